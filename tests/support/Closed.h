#pragma once

#include "Errors.h"
#include "StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace rk::tests {

/// Checks that `socket` is closed and has neither pattern nor endpoints. Leaves it closed, and the journal empty.
inline void expectClosed(StandIn& standIn, socket::Socket& socket) {
    std::string error;
    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { socket.poll(0, error); }));
    standIn.journal().clear();
    socket.resetConnections();
    socket.setInternalFifoSize(1);
    EXPECT_NO_THROW(socket.flushIncomingMessages());
    socket.close();
    EXPECT_THAT(standIn.journal().lines(), testing::ElementsAre());
    socket.create(socket::Protocol::Pub);
    standIn.journal().clear();
    socket.resetConnections();
    EXPECT_THAT(standIn.journal().lines(), testing::ElementsAre("zmq_close", "zmq_socket 1"));
    socket.close();
    standIn.journal().clear();
}

} // namespace rk::tests
