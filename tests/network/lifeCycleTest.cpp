// The network nodes in every order of life.
#include "tests/support/lifeCycle.h"

#include "network/kivNetworkRecv.h"
#include "network/kivNetworkSend.h"
#include "tests/network/scriptedPeer.h"

// Without a peer until setup; then with one that says nothing.
template <class Node> struct WithPeer {
    static std::unique_ptr<Node> make() { return std::make_unique<Node>(); }
    static void setup(Node& node)
    {
        static ScriptedPeer peer;
        node.setWispData(&peer);
    }
};
template <> struct LifeCycleOf<kivNetworkRecv> : WithPeer<kivNetworkRecv> {
};
template <> struct LifeCycleOf<kivNetworkSend> : WithPeer<kivNetworkSend> {
};

using NetworkNodes = testing::Types<kivNetworkRecv, kivNetworkSend>;
INSTANTIATE_TYPED_TEST_SUITE_P(network, LifeCycle, NetworkNodes);
