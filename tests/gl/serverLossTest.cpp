// serverLossTest.cpp - an X server killed under a running graph.
#include "tests/gl/glFixture.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "core/kivLoop.h"
#include "gl/kivGLPaintBuffer.h"
#include "gl/kivGLPixelTrans.h"
#include "gl/kivGLTex2d.h"
#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"
#include "window/ScratchWindow.h"

namespace {

constexpr int width = 32, height = 24;

// An X server of this process, on a free number, as the default display.
class OwnServer {
public:
    OwnServer()
    {
        int answer[2];
        if (pipe(answer) != 0)
            return;
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(answer[1], 3);
            freopen("/dev/null", "w", stderr);  // it looks for its number aloud
            execlp("Xvfb", "Xvfb", "-displayfd", "3", "-screen", "0", "640x480x24", "-nolisten", "tcp", "-noreset",
                   nullptr);
            _exit(127);
        }
        close(answer[1]);
        FILE* from = fdopen(answer[0], "r");
        char number[16] = "";
        if (fgets(number, sizeof number, from) != nullptr)  // a line, when it is ready
            setenv("DISPLAY", (":" + std::to_string(atoi(number))).c_str(), 1);
        fclose(from);
    }
    void kill()
    {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

private:
    pid_t pid_ = -1;
};

// The ids of a frame's operations, in a line.
struct Graph {
    Graph()
    {
        setTrace(0);
        display.imageSizeX = width;
        display.imageSizeY = height;
        dpy = glXOpenDisplayQTN(nullptr);
        for (kivGLPBuffer* node : {static_cast<kivGLPBuffer*>(&paint), static_cast<kivGLPBuffer*>(&transfer),
                                   static_cast<kivGLPBuffer*>(&texture)})
            node->setup(dpy, width, height);
        transfer.setInputFormat(GL_RGBA);
        paint.addObject(&transfer);
        transfer.addObject(&display);
        display.kivObj::addObject(&end);
        chain.setChain(&paint);
        if (display.setup(0) != 0 || chain.init(nullptr) != 0 || texture.init(nullptr) != 0)
            fprintf(stderr, "the graph cannot be set up\n");
        loop.addChain(&chain);
    }
    std::string frame()
    {
        std::string ids = std::to_string(paint.grab());
        ids += " " + std::to_string(paint.makeCurrent());
        glClear(GL_COLOR_BUFFER_BIT);
        const ZVbuffer painted = paint.latchBuffer;
        paint.release();
        loop.wake();
        loop.pass();  // transfer and window
        ids += " " + std::to_string(display.receive(painted));
        texture.receive(painted);
        ids += " " + std::to_string(texture.defineTex2D());
        return ids;
    }

    Display* dpy;
    CallLog log;
    FakeNode end{log, "end"};
    kivGLDisplay display;
    kivGLPaintBuffer paint;
    kivGLPixelTrans transfer;
    kivGLTex2d texture;
    kivChain chain;
    kivLoop loop;
};

// In a process of its own, whose end is looked at.
void loseTheServer()
{
    OwnServer server;
    {
        Graph graph;
        for (int i = 0; i < 4; ++i)
            fprintf(stderr, "%s\n", graph.frame().c_str());
        server.kill();
        for (int i = 0; i < 4; ++i)
            fprintf(stderr, "%s\n", graph.frame().c_str());
    }
    fprintf(stderr, "done\n");
    fflush(nullptr);
    _exit(0);
}

TEST(serverLoss, EndsTheWorkOfTheNodesAndNotTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(loseTheServer(), testing::ExitedWithCode(0),
                "^(0 1 0 0\n){4}X server :[0-9]+ is gone\n.*3004 0 1 3004\n.*done\n$");
}

}  // namespace
