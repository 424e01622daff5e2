#include "support/Endpoints.h"
#include "support/StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace rk::tests {

using socket::Socket;
using testing::ElementsAre;

TEST(ResetConnections, OfAClosedSocketDoesNothing) {
    StandIn standIn;
    Socket socket("cmd", socket::ClosePolicy::DropPending);

    socket.resetConnections();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST(ResetConnections, ConnectsEveryEndpointAgainInOrder) {
    StandIn standIn;
    Socket socket("cmd", socket::ClosePolicy::LingerTwoSeconds);
    socket.create(socket::Protocol::Req);
    socket.connect({socket::Transport::Inproc, "first", 0}, 100);
    socket.connect({socket::Transport::Inproc, "second", 0}, 0);
    standIn.journal().clear();

    socket.resetConnections();

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_close", "zmq_socket 3", "debug: Connecting [Socket cmd], sending to inproc://first",
                            "zmq_connect inproc://first", "zmq_setsockopt 27 = 100 (4 bytes)",
                            "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]",
                            "debug: Connecting [Socket cmd], sending to inproc://second", "zmq_connect inproc://second",
                            "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]"));
}

} // namespace rk::tests
