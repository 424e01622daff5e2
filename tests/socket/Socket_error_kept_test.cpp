#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cerrno>
#include <string>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::ZmqContextTerminationException;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr auto unreachable = "Send error: Host unreachable on [Socket cmd]";
constexpr auto terminated = "Context terminated in send() for socket [Socket cmd]";

/// Whatever the library calls between the failure and its report may change the error number: here each of those calls
/// does, one after the other.
class ErrorKept : public testing::TestWithParam<const char*> {
protected:
    void clobberWith(int error) {
        standIn.after(GetParam(), [error] { errno = error; });
    }

    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::DropPending};
};

class ErrorKeptByStatistics : public ErrorKept {
protected:
    ErrorKeptByStatistics() {
        socket.create(Protocol::Pub);
        socket.activateStatistics(true);
    }

    void sendUpToTheLastBlock() {
        for (int block = 1; block < 50; ++block) {
            sendText(socket, "news");
        }
    }
};

class ErrorKeptByRepair : public ErrorKept {
protected:
    ErrorKeptByRepair() {
        socket.createAndConnect(Protocol::Req, freshEndpoint(Transport::Ipc), 20000);
        sendText(socket, "never answered");
    }
};

std::string nameOf(const testing::TestParamInfo<const char*>& info) {
    const std::string text = info.param;
    return text.substr(0, text.find(' '));
}

INSTANTIATE_TEST_SUITE_P(Through, ErrorKeptByStatistics, testing::Values("gettimeofday", "debug"), nameOf);
INSTANTIATE_TEST_SUITE_P(Through, ErrorKeptByRepair,
                         testing::Values("warning", "zmq_close", "zmq_socket", "debug", "zmq_connect",
                                         "zmq_setsockopt 17", "error"),
                         nameOf);

} // namespace

TEST_P(ErrorKeptByStatistics, OfASendThatIsTheFirstBlockOfAPeriod) {
    clobberWith(ETERM);
    standIn.fail("zmq_send", EHOSTUNREACH);

    EXPECT_EQ(unreachable, textThrownBy([&] { sendText(socket, "news"); }));
}

TEST_P(ErrorKeptByStatistics, OfASendThatIsTheLastBlockOfAPeriod) {
    sendUpToTheLastBlock();
    clobberWith(ETERM);
    standIn.fail("zmq_send", EHOSTUNREACH);

    EXPECT_EQ(unreachable, textThrownBy([&] { sendText(socket, "news"); }));
    EXPECT_EQ(1U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
}

TEST_P(ErrorKeptByStatistics, OfATerminatedContextAtTheFirstBlock) {
    clobberWith(EAGAIN);
    standIn.fail("zmq_send", ETERM);

    EXPECT_EQ(terminated, textThrownBy<ZmqContextTerminationException>([&] { sendText(socket, "news"); }));
}

TEST_P(ErrorKeptByStatistics, OfATerminatedContextAtTheLastBlock) {
    sendUpToTheLastBlock();
    clobberWith(EAGAIN);
    standIn.fail("zmq_send", ETERM);

    EXPECT_EQ(terminated, textThrownBy<ZmqContextTerminationException>([&] { sendText(socket, "news"); }));
    EXPECT_EQ(1U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
}

TEST_P(ErrorKeptByStatistics, OfAnythingElseThatTheCallerDid) {
    clobberWith(ETERM);
    errno = ERANGE;

    for (int block = 0; block < 50; ++block) {
        socket.addBlockToStatistics(10);
        EXPECT_EQ(ERANGE, errno);
    }
}

TEST_P(ErrorKeptByRepair, OfTheSecondAttempt) {
    clobberWith(ETERM);
    standIn.fail("zmq_send", EHOSTUNREACH, 2);

    EXPECT_EQ(unreachable, textThrownBy([&] { sendText(socket, "second"); }));
    EXPECT_EQ(1U, standIn.journal().count("warning: "));
}

TEST_P(ErrorKeptByRepair, OfATerminatedContextAtTheSecondAttempt) {
    clobberWith(EAGAIN);
    standIn.fail("zmq_send", ETERM, 2);

    EXPECT_EQ(terminated, textThrownBy<ZmqContextTerminationException>([&] { sendText(socket, "second"); }));
}

TEST_P(ErrorKeptByRepair, OfARepairThatFails) {
    standIn.fail("zmq_setsockopt 27", EINVAL);
    clobberWith(ETERM);

    EXPECT_EQ("Send error: Socket operation on non-socket on [Socket cmd]",
              textThrownBy([&] { sendText(socket, "second"); }));

    EXPECT_THAT(standIn.journal().linesWith("error: "),
                ElementsAre("error: [Socket cmd]: Error resetting socket: Socket: Error setting ZMQ_RCVTIMEO "
                            "Invalid argument on [Socket cmd]"));
}

} // namespace rk::tests
