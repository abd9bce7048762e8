// movieToNetwork - plays a movie's frames, compressed as they are, to a kiv that receives:
//   kiv run 'recv tcp://:5000 size=1280x720 ! jpegdec ! file frame-%d.png'
//   movieToNetwork MOVIE [URL] [FRAMES]        (tcp://localhost:5000, 100)
#include <core/kivLoop.h>
#include <movie/kivMovieInCompressed.h>
#include <network/kivNetworkSend.h>
#include <platform/wisp/wispSocket.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: movieToNetwork MOVIE [URL] [FRAMES]\n");
        return 2;
    }
    setTrace(0);
    const auto connection = wispSocket::connect(argc > 2 ? argv[2] : "tcp://localhost:5000");
    if (connection == nullptr) {
        char detail[ZV_ERROR_DETAIL_MAX];
        zvGetError(nullptr, detail);
        fprintf(stderr, "movieToNetwork: %s\n", detail);
        return 1;
    }
    kivMovieInCompressed movie;
    kivNetworkSend send;
    send.setWispData(connection.get());
    movie.addObject(&send);
    kivChain chain;
    chain.setChain(&movie);
    if (movie.setup(argv[1]) != kivErrNone || send.setup() != kivErrNone || chain.init(nullptr) != kivErrNone
        || chain.start(1) != kivErrNone)
        return 1;

    kivLoop loop;
    loop.addChain(&chain);
    loop.addFD(connection->getEndFD(), [&] { loop.quit(); });  // the receiver has gone
    const int wanted = argc > 3 ? atoi(argv[3]) : 100;
    loop.setPassHandler([&] {
        if (send.counter >= wanted)
            loop.quit();
    });
    loop.run();
    movie.stop();
    connection->close(1000);  // what is under way still goes out
    printf("%d frames of %d x %d to %s\n", send.counter, movie.imageSizeX, movie.imageSizeY, connection->peerName());
}
