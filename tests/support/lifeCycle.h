// lifeCycle.h - takes a node class through every order of life.
//
// A class joins by one line in its folder's test program, the list of its types:
//
//   using MovieNodes = testing::Types<kivMovieInCompressed>;
//   INSTANTIATE_TYPED_TEST_SUITE_P(movie, LifeCycle, MovieNodes);
//
// and, where it needs members set and its own setup called, by a LifeCycleOf of its own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/support/fakeNode.h"
#include "tests/support/resources.h"

template <class Node> struct LifeCycleOf {
    static std::unique_ptr<Node> make() { return std::make_unique<Node>(); }
    static void setup(Node&) { }  // once in a life, anywhere before or after the other operations
};

template <class Node> class LifeCycle : public testing::Test {
protected:
    void SetUp() override
    {
        setTrace(0);
        kivObj arenaMaker;  // so that the arena's descriptor is not counted as a node's
        LifeCycleOf<Node>::setup(*LifeCycleOf<Node>::make());  // nor what a service opens once
        std::thread([] {}).join();  // a sanitizer adds a thread of its own with the first
        descriptors_ = openDescriptors();
        threads_ = runningThreads();
    }
    void TearDown() override
    {
        setTrace(1);
        EXPECT_EQ(openDescriptors(), descriptors_) << "a descriptor is left open";
        EXPECT_EQ(runningThreads(), threads_) << "a thread is left running";
    }

    // One life: the operations in that order, then the destructor.
    static void live(const std::string& order)
    {
        SCOPED_TRACE(order);
        CallLog log;
        FakeNode below(log, "below");
        auto node = LifeCycleOf<Node>::make();
        node->kivObj::addObject(&below);
        for (const char operation : order)
            step(*node, below, operation);
    }

private:
    static void step(Node& node, FakeNode& below, char operation)
    {
        const bool forwards = node.getFD() == kivErrUseSetFD;  // a chain without nodes
        if (operation == 'p') {
            LifeCycleOf<Node>::setup(node);
        } else if (operation == 'i') {
            const int err = node.init(nullptr);
            EXPECT_TRUE(err != kivErrNone || node.isInitialized());
            EXPECT_TRUE(err != kivErrNone || below.isInitialized());
        } else if (operation == 's') {
            const int err = node.start(1);
            EXPECT_TRUE(err != kivErrNone || node.isStarted());
            EXPECT_TRUE(err != kivErrNone || below.isStarted());
        } else if (operation == 'e') {
            EXPECT_EQ(node.stop(), kivErrNone);
            EXPECT_FALSE(node.isStarted());
            EXPECT_FALSE(below.isStarted());
        }
        poll(node, forwards);
    }

    // What a loop does with it: no descriptor out of range, nothing done without one.
    static void poll(Node& node, bool forwards)
    {
        fd_set set;
        FD_ZERO(&set);
        int maxFD = -1;
        EXPECT_EQ(node.setFD(&set, &maxFD, 0), forwards ? kivErrNoChain : kivErrNone);
        EXPECT_LT(maxFD, FD_SETSIZE);
        FD_ZERO(&set);
        EXPECT_GE(node.handleEvents(set), 0);
    }

    int descriptors_ = 0;
    int threads_ = 0;
};

TYPED_TEST_SUITE_P(LifeCycle);

TYPED_TEST_P(LifeCycle, SurvivesEveryOrder)
{
    // p: setup, i: init, s: start, e: stop. Setup comes at most once in a life.
    const std::string operations = "pise";
    std::vector<std::string> orders = {""};
    for (size_t done = 0; done < orders.size(); ++done) {
        const std::string order = orders[done];
        this->live(order);
        for (const char operation : operations)
            if (order.size() < 4 && (operation != 'p' || order.find('p') == std::string::npos))
                orders.push_back(order + operation);
    }
}

TYPED_TEST_P(LifeCycle, StartsAndStopsAThousandTimes)
{
    std::string order = "pi";
    for (int i = 0; i < 1000; ++i)
        order += "se";
    this->live(order);
}

REGISTER_TYPED_TEST_SUITE_P(LifeCycle, SurvivesEveryOrder, StartsAndStopsAThousandTimes);
