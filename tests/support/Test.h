#pragma once

#include "Endpoints.h"
#include "Errors.h"
#include "StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// Common includes of tests: names, parameters, and messages made of strings.
namespace rk::tests {

using namespace socket;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

inline constexpr unsigned int patienceMs = 20000;

inline constexpr auto everyPattern = {Protocol::Pub, Protocol::Sub, Protocol::Rep, Protocol::Req};

inline auto everyTransport() {
    return testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc);
}

inline std::string nameOfTransport(const testing::TestParamInfo<Transport::Transport>& tested) {
    return Transport::ToString(tested.param);
}

inline std::string nameOfPattern(const testing::TestParamInfo<Protocol::Protocol>& tested) {
    return Protocol::ToString(tested.param);
}

/// Returns a connected socket.
class Peer : public Socket {
public:
    Peer(const std::string& title, Protocol::Protocol pattern, const SocketEndpoint& address,
         ClosePolicy::ClosePolicy atClose = ClosePolicy::DropPending, unsigned int timeoutMs = patienceMs)
        : Socket(title, atClose) {
        createAndConnect(pattern, address, timeoutMs);
    }
};

inline void sendText(Socket& socket, const std::string& text) {
    std::string copy = text;
    socket.send(copy.data(), copy.size());
}

/// Receives a message of at most 256 bytes.
inline std::string receiveText(Socket& socket) {
    std::string buffer(256, '\0');
    const int size = socket.receive(buffer.data(), buffer.size());
    buffer.resize(static_cast<std::size_t>(size)); // a truncated message keeps its full size
    return buffer;
}

} // namespace rk::tests
