// lifeCycleTest.cpp - the GL nodes in every order of life.
#include "tests/support/lifeCycle.h"

#include "gl/kivGLPaintBuffer.h"
#include "gl/kivGLPixelTrans.h"
#include "gl/kivGLTex2d.h"
#include "tests/gl/glFixture.h"

namespace {

template <class Node> struct PbufferNode {
    static std::unique_ptr<Node> make() { return std::make_unique<Node>(); }
    static void setup(Node& node)
    {
        // What GL opens once in a process is no node's.
        static const bool opened = [] {
            kivGLCtx first;
            first.setup(connection(), 8, 8);
            return first.init(nullptr) == kivErrNone && first.makeCurrent();
        }();
        EXPECT_TRUE(opened);
        EXPECT_EQ(node.setup(connection(), 8, 8), kivErrNone);
    }
};

}  // namespace

template <> struct LifeCycleOf<kivGLPBuffer> : PbufferNode<kivGLPBuffer> {
};
template <> struct LifeCycleOf<kivGLCtx> : PbufferNode<kivGLCtx> {
};
template <> struct LifeCycleOf<kivGLPixelTrans> : PbufferNode<kivGLPixelTrans> {
};
template <> struct LifeCycleOf<kivGLPaintBuffer> : PbufferNode<kivGLPaintBuffer> {
};
template <> struct LifeCycleOf<kivGLTex2d> : PbufferNode<kivGLTex2d> {
};
// Its setup opens a window that stays.
template <> struct LifeCycleOf<kivGLDisplay> {
    static std::unique_ptr<kivGLDisplay> make() { return std::make_unique<kivGLDisplay>(); }
    static void setup(kivGLDisplay&) { }
};

using GLNodes = testing::Types<kivGLPBuffer, kivGLCtx, kivGLPixelTrans, kivGLPaintBuffer, kivGLTex2d, kivGLDisplay>;
INSTANTIATE_TYPED_TEST_SUITE_P(gl, LifeCycle, GLNodes);
