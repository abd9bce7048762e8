// paintSend - draws with GL into media buffers and sends them to a kiv that receives:
//   kiv run 'recv tcp://:5000 size=320x240 packing=RGBA ! file frame-%d.png'
//   paintSend [URL] [FRAMES]        (tcp://localhost:5000, 100)
#include <core/kivLoop.h>
#include <gl/kivGLPaintBuffer.h>
#include <network/kivNetworkSend.h>
#include <platform/wisp/wispSocket.h>

#include <cstdio>
#include <cstdlib>

// A turning triangle. Row 0 of the buffer, the picture's top row, is at y = -1.
static void draw(int frame)
{
    glViewport(0, 0, 320, 240);
    glClearColor(0, 0, 0.2f, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glLoadIdentity();
    glRotatef(float(frame) * 6, 0, 0, 1);
    glBegin(GL_TRIANGLES);
    glColor3f(1, 0, 0), glVertex2f(0, -0.8f);
    glColor3f(0, 1, 0), glVertex2f(0.7f, 0.4f);
    glColor3f(1, 1, 0), glVertex2f(-0.7f, 0.4f);
    glEnd();
}

int main(int argc, char** argv)
{
    setTrace(0);
    const auto connection = wispSocket::connect(argc > 1 ? argv[1] : "tcp://localhost:5000");
    Display* display = glXOpenDisplayQTN(nullptr);
    if (connection == nullptr || display == nullptr) {
        fprintf(stderr, "paintSend: no %s\n", connection == nullptr ? "receiver" : "X display");
        return 1;
    }
    connection->setLossless(1);
    kivGLPaintBuffer paint;
    kivNetworkSend send;
    send.setWispData(connection.get());
    paint.addObject(&send);
    if (paint.setup(display, 320, 240) != kivErrNone || paint.init(nullptr) != kivErrNone)
        return 1;
    paint.start(1);

    const int wanted = argc > 2 ? atoi(argv[2]) : 100;
    for (int frame = 0; frame < wanted && send.sendFailures() == 0; ++frame) {
        paint.grab();  // a buffer of the node's own pool, as the pbuffer's picture
        paint.makeCurrent();
        draw(frame);
        paint.release();  // what was drawn is in the buffer, and with `send`
    }
    paint.stop();
    connection->close(1000);  // what is under way still goes out
    printf("%d frames to %s\n", send.counter, connection->peerName());
}
