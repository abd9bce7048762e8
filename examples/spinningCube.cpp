// spinningCube - a cube with a movie on its faces, in a window.
//   spinningCube MOVIE [FRAMES]        (until it is ended)
#include <convert/kivICjdecoder.h>
#include <core/kivLoop.h>
#include <gl/kivGLTex2d.h>
#include <movie/kivMovieInCompressed.h>
#include <window/ScratchWindow.h>

#include <cstdio>
#include <cstdlib>

static void drawCube(int frame)
{
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glLoadIdentity();
    glTranslatef(0, 0, -6);
    glRotatef(float(frame), 0.6f, 1, 0.2f);
    for (int face = 0; face < 6; ++face) {
        glRotatef(90, float(face % 2), float(1 - face % 2), 0);
        glBegin(GL_QUADS);  // texture row 0 is the picture's top
        glTexCoord2f(0, 0), glVertex3f(-1, 1, 1), glTexCoord2f(0, 1), glVertex3f(-1, -1, 1);
        glTexCoord2f(1, 1), glVertex3f(1, -1, 1), glTexCoord2f(1, 0), glVertex3f(1, 1, 1);
        glEnd();
    }
    glXSwapBuffersQTN(glXGetCurrentDrawable());
}

int main(int argc, char** argv)
{
    setTrace(0);
    kivMovieInCompressed movie;
    Display* display = glXOpenDisplayQTN(nullptr);
    if (argc < 2 || display == nullptr || movie.setup(argv[1]) != kivErrNone)
        return 2;
    kivICjdecoder decoder(movie.imageSizeX, movie.imageSizeY);
    decoder.dstPacking = ZV_IMAGE_PACKING_RGBA;
    kivGLTex2d texture;
    movie.addObject(&decoder);
    decoder.addObject(&texture);
    kivChain chain;
    chain.setChain(&movie);
    if (ScratchWindow::create(display, 640, 480, nullptr, nullptr) == nullptr || decoder.setup() != kivErrNone
        || texture.setup(display, movie.imageSizeX, movie.imageSizeY) != kivErrNone || chain.init(nullptr) != kivErrNone
        || chain.start(1) != kivErrNone)
        return 1;
    glMatrixMode(GL_PROJECTION), glFrustum(-0.8, 0.8, -0.6, 0.6, 2, 20);
    glMatrixMode(GL_MODELVIEW);
    glEnable(GL_DEPTH_TEST), glEnable(GL_TEXTURE_2D);

    kivLoop loop;
    loop.addChain(&chain);
    int frames = 0;
    for (const int wanted = argc > 2 ? atoi(argv[2]) : -1; frames != wanted && loop.pass() == kivErrNone; ++frames) {
        texture.defineTex2D();  // the newest frame of the movie, into the window's context
        drawCube(frames);
    }
    movie.stop();
    printf("%d frames of a %d x %d movie\n", frames, movie.imageSizeX, movie.imageSizeY);
}
