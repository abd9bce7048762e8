// Who feeds a receiver when several want to: run in this process, for the limit that it needs.
#include <gtest/gtest.h>

#include <future>

#include "apps/kiv/commands/runner.h"
#include "platform/limits.h"
#include "platform/wisp/wispSocket.h"
#include "tests/apps/program.h"

TEST(recv, LetsTheNextSenderInWhenOneIsSilent)
{
    const int usual = kivLimits()->recvMs;
    kivLimits()->recvMs = 50;
    const Folder folder;
    const std::string url = "unix:" + (folder / "door");
    RunOptions options;
    options.graph = "recv " + url + " size=16x16 ! null";
    options.frames = 3;
    auto run = std::async(std::launch::async, [&] { return runGraph(options); });

    std::unique_ptr<wispSocket> silent, talking;
    while ((silent = wispSocket::connect(url.c_str())) == nullptr
           && run.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) { }
    talking = wispSocket::connect(url.c_str());
    ASSERT_NE(talking, nullptr);
    char header[24] = {}, frame[64] = {};
    while (run.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
        talking->sendData(header, frame, sizeof frame);
    EXPECT_EQ(run.get(), 0);
    EXPECT_EQ(silent->getHeader(header), -1) << "it was turned away";
    kivLimits()->recvMs = usual;
}
