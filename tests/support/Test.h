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

/// Checks that `socket` is closed and has neither pattern nor endpoints. Leaves it closed, and the journal empty.
inline void expectClosed(StandIn& standIn, Socket& socket) {
    std::string error;
    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { socket.poll(0, error); }));
    standIn.journal().clear();
    socket.resetConnections();
    socket.setInternalFifoSize(1);
    EXPECT_NO_THROW(socket.flushIncomingMessages());
    socket.close();
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
    socket.create(Protocol::Pub);
    standIn.journal().clear();
    socket.resetConnections();
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close", "zmq_socket 1"));
    socket.close();
    standIn.journal().clear();
}

} // namespace rk::tests
