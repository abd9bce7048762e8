// wispSocketImpl.h - what stands behind a wispSocket.
#pragma once

#include <memory>
#include <string>

#include "platform/wisp/wispReceiver.h"
#include "platform/wisp/wispSender.h"
#include "platform/wisp/wispSocket.h"

struct wispSocket::Impl {
    Impl(kiv::UniqueFd socket, std::string peer) : link(std::move(socket), std::move(peer)) { }

    kiv::WispLink link;
    kiv::WispSender sender{link};
    kiv::WispReceiver receiver{link};
};

namespace kiv {

// Makes the connection of an open socket; null, with an error recorded, without memory.
std::unique_ptr<wispSocket> makeWispSocket(UniqueFd socket, std::string peer);

}  // namespace kiv
