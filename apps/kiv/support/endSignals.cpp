// endSignals.cpp - see endSignals.h.
#include "apps/kiv/support/endSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include "platform/thread/thread.h"

EndSignals::EndSignals()
{
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    sigaddset(&set_, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set_, &before_);
    signals_ = signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK);
    thread_ = threadStart([](void* self) { static_cast<EndSignals*>(self)->watch(); }, this);
    if (signals_ < 0 || thread_ < 0)  // then they end the process, as without this class
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

EndSignals::~EndSignals()
{
    if (thread_ > 0) {
        threadKill(thread_, SIGTERM);
        threadWait(thread_, nullptr);
    }
    if (signals_ >= 0)
        ::close(signals_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

// The class's own thread. Two of one kind that come together count as one.
void EndSignals::watch()
{
    signalfd_siginfo info;
    bool first = true;
    while (threadPoll(signals_, 0) == THREAD_POLL_READY) {
        if (read(signals_, &info, sizeof info) != sizeof info)
            continue;
        if (info.ssi_signo == SIGUSR1) {
            asked_.raise();
            continue;
        }
        if (!first) {
            signal(int(info.ssi_signo), SIG_DFL);
            pthread_sigmask(SIG_UNBLOCK, &set_, nullptr);
            raise(int(info.ssi_signo));
        }
        first = false;
        event_.raise();
    }
}
