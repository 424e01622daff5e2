#include "support/Test.h"

#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

#include <cerrno>

// Every call between a failure and its report may change the error number. These tests let each of them do so in turn.

namespace rk::tests {

namespace {

class SocketErrno : public testing::TestWithParam<std::string> {
protected:
    void clobberWith(int error) {
        standIn.after(GetParam(), [error] { errno = error; });
    }

    /// Lets the `nth` send fail, with both kinds of error.
    void expectKept(int nth) {
        clobberWith(ETERM);
        standIn.fail("zmq_send", EHOSTUNREACH, nth);
        EXPECT_EQ("Send error: Host unreachable on [Socket cmd]", textThrownBy([&] { sendText(socket, "news"); }));
        if (nth > 1) {
            sendText(socket, "never answered, either");
        }
        clobberWith(EAGAIN);
        standIn.fail("zmq_send", ETERM, nth);
        EXPECT_EQ("Context terminated in send() for socket [Socket cmd]",
                  textThrownBy<ZmqContextTerminationException>([&] { sendText(socket, "news"); }));
    }

    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::DropPending};
};

class SocketErrnoOfCount : public SocketErrno {};
class SocketErrnoOfRepair : public SocketErrno {
protected:
    SocketErrnoOfRepair() {
        socket.createAndConnect(Protocol::Req, freshEndpoint(Transport::Ipc), patienceMs);
        sendText(socket, "never answered");
    }
};

std::string nameOf(const testing::TestParamInfo<std::string>& info) {
    return info.param.substr(0, info.param.find(' '));
}

INSTANTIATE_TEST_SUITE_P(Through, SocketErrnoOfCount, testing::Values("gettimeofday", "debug"), nameOf);
INSTANTIATE_TEST_SUITE_P(Through, SocketErrnoOfRepair,
                         testing::Values("warning", "zmq_close", "zmq_socket", "debug", "zmq_connect",
                                         "zmq_setsockopt " + std::to_string(ZMQ_LINGER), "error"),
                         nameOf);

} // namespace

TEST_P(SocketErrnoOfCount, IsKeptAtEveryBlock) {
    socket.create(Protocol::Pub);
    for (int before = 0; before < 51; ++before) {
        socket.activateStatistics(true);
        for (int block = 0; block < before; ++block) {
            socket.addBlockToStatistics(10);
        }
        expectKept(1);
    }
}

TEST_P(SocketErrnoOfCount, IsKeptByAddBlock) {
    clobberWith(ETERM);
    errno = ERANGE;
    for (int block = 0; block < 50; ++block) {
        socket.addBlockToStatistics(10);
        EXPECT_EQ(ERANGE, errno);
    }
}

TEST_P(SocketErrnoOfRepair, IsThatOfTheSecondAttempt) {
    expectKept(2);
}

TEST_P(SocketErrnoOfRepair, IsThatOfTheFailedRepair) {
    standIn.fail("zmq_setsockopt " + std::to_string(ZMQ_RCVTIMEO), EINVAL);
    clobberWith(ETERM);

    EXPECT_EQ("Send error: Socket operation on non-socket on [Socket cmd]",
              textThrownBy([&] { sendText(socket, "second"); }));
    EXPECT_THAT(standIn.journal().linesWith("error: "),
                ElementsAre("error: [Socket cmd]: Error resetting socket: Socket: Error setting ZMQ_RCVTIMEO "
                            "Invalid argument on [Socket cmd]"));
}

} // namespace rk::tests
