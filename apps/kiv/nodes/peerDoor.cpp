// peerDoor.cpp - see peerDoor.h.
#include "apps/kiv/nodes/peerDoor.h"

#include <poll.h>

#include "apps/kiv/support/text.h"
#include "platform/zv/zv.h"

bool PeerDoor::open(RunContext& run, const std::string& place, const std::string& url, bool listen, OnPeer onPeer,
                    std::string* wrong)
{
    run_ = &run;
    place_ = place;
    onPeer_ = std::move(onPeer);
    if (listen) {
        listener_ = wispListener::open(url.c_str());
    } else if (std::unique_ptr<wispSocket> peer = wispSocket::connect(url.c_str())) {
        onPeer_(std::move(peer));
        return true;
    }
    if (listener_ == nullptr) {
        *wrong = serviceError();
        return false;
    }
    run.note(place + ": listening on " + listener_->url());
    waitForPeer();
    return true;
}

void PeerDoor::waitForPeer()
{
    if (listener_ == nullptr || waiting_)
        return;
    waiting_ = true;
    run_->loop().addFD(listener_->getFD(), [this] { accept(); });
}

void PeerDoor::accept()
{
    std::unique_ptr<wispSocket> peer = listener_->accept();
    if (peer == nullptr) {
        int number = 0;
        zvGetError(&number, nullptr);
        if (number != ZV_ERROR_EMPTY)
            run_->note(place_ + ": " + serviceError());
        return;
    }
    run_->loop().removeFD(listener_->getFD());
    waiting_ = false;
    run_->note(place_ + ": " + peer->peerName() + " has come");
    onPeer_(std::move(peer));
}

bool PeerDoor::somebodyWaits() const
{
    pollfd door = {listener_ != nullptr ? listener_->getFD() : -1, POLLIN, 0};
    return poll(&door, 1, 0) == 1;
}

void PeerDoor::close()
{
    if (waiting_)
        run_->loop().removeFD(listener_->getFD());
    waiting_ = false;
    listener_.reset();
}
