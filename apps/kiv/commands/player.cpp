// player.cpp - see player.h.
#include "apps/kiv/commands/player.h"

#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "window/ScratchWindow.h"
#include "window/glwDrawingArea.h"

Player::Player(kivLoop& loop, Graph& graph)
    : loop_(loop), display_(dynamic_cast<DisplayPart&>(*graph.sinks().front())), window_(*display_.window()),
      movie_(dynamic_cast<MovieSource*>(&graph.sources().front()->node())),
      timerFD_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK))
{
    FD_ZERO(&watched_);
    loop_.removeFD(window_.getEventFD());  // the window's loop sees to its events
    static char input[] = GLwNinputCallback;
    window_.addGLCallback(
        input,
        [](Widget, XtPointer player, XtPointer call) {
            XEvent* event = static_cast<GLwDrawingAreaCallbackStruct*>(call)->event;
            if (event->type == KeyPress)
                static_cast<Player*>(player)->key(XLookupKeysym(&event->xkey, 0));
        },
        this);
}

Player::~Player()
{
    for (int fd = 0; fd < FD_SETSIZE; ++fd)
        if (FD_ISSET(fd, &watched_))
            window_.removeInput(fd);
    close(timerFD_);
}

int Player::run()
{
    if (timerFD_ < 0)
        return kivErrGeneric;
    pass();
    window_.eventLoop();
    if (error_ == kivErrNone)
        pass();  // tells the graph why the loop has ended
    return error_;
}

// One pass of the graph's loop; then the window's loop waits for what the next one needs.
void Player::pass()
{
    uint64_t times;
    [[maybe_unused]] const ssize_t n = read(timerFD_, &times, sizeof times);
    error_ = loop_.passNow();
    if (error_ != kivErrNone || loop_.quitAsked())
        window_.endLoop();
    watch();
}

void Player::watch()
{
    fd_set wanted;
    int top = timerFD_;
    FD_ZERO(&wanted);
    FD_SET(timerFD_, &wanted);
    loop_.setFD(&wanted, &top);
    for (int fd = 0; fd < FD_SETSIZE; ++fd) {
        const bool is = FD_ISSET(fd, &watched_), shall = FD_ISSET(fd, &wanted);
        if (is && !shall)
            window_.removeInput(fd);
        if (shall && !is)
            window_.addInput(
                fd, [](XtPointer player, int*, XtInputId*) { static_cast<Player*>(player)->pass(); }, this);
    }
    watched_ = wanted;

    const unsigned long long ns = loop_.deadline();  // the clock is the same
    const itimerspec when = {{}, {time_t(ns / 1000000000), long(ns % 1000000000)}};
    timerfd_settime(timerFD_, TFD_TIMER_ABSTIME, &when, nullptr);
}

void Player::key(KeySym key)
{
    if (key == XK_q || key == XK_Escape)
        loop_.quit();  // which wakes the loop
    else if (key == XK_space)
        paused_ ? resume() : pause();
    else if (key == XK_Left)
        step(-1);
    else if (key == XK_Right)
        step(1);
}

void Player::pause()
{
    paused_ = true;
    if (movie_ != nullptr)
        movie_->pause();
    else
        display_.freeze(true);
}

// A movie goes on from the frame that is shown.
void Player::resume()
{
    paused_ = false;
    display_.freeze(false);
    if (movie_ == nullptr)
        return;
    movie_->gotoFrame(kivShared(movie_->currentFrameIndex).load());
    movie_->restartClock();
    movie_->resume();
}

// The reader hands over a frame that it has not just read: it is told that it has read none.
void Player::step(int frames)
{
    if (movie_ == nullptr)
        return;
    pause();
    const int index = std::clamp(kivShared(movie_->currentFrameIndex).load() + frames, 0, movie_->numFrames);
    kivShared(movie_->currentFrameIndex).store(index);
    kivShared(movie_->lastFrameIndex).store(-1);
}
