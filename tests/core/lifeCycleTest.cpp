// lifeCycleTest.cpp - the core's nodes in every order of life.
#include "tests/support/lifeCycle.h"

#include "core/kivChain.h"
#include "core/kivLatch.h"

template <> struct LifeCycleOf<kivLatch> {
    static std::unique_ptr<kivLatch> make() { return std::make_unique<kivLatch>(); }
    static void setup(kivLatch& latch) { EXPECT_EQ(latch.setup(), 0); }
};

using CoreNodes = testing::Types<kivObj, kivChain, kivLatch>;
INSTANTIATE_TYPED_TEST_SUITE_P(core, LifeCycle, CoreNodes);
