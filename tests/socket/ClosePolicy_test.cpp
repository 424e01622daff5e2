#include "support/Endpoints.h"
#include "support/StandIn.h"
#include "support/ZmqHandle.h"

#include <rk/socket/ClosePolicy.h>
#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cerrno>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

static_assert(std::is_enum_v<ClosePolicy::ClosePolicy>);
static_assert(std::is_convertible_v<ClosePolicy::ClosePolicy, int>, "a plain enumeration");
static_assert(sizeof(ClosePolicy::ClosePolicy) == 4);
static_assert(ClosePolicy::DropPending == 0);
static_assert(ClosePolicy::LingerTwoSeconds == 1);
static_assert(ClosePolicy::WaitForDelivery == 2);

constexpr unsigned int patienceMs = 20000;

struct Linger {
    int policy;
    int milliseconds;
};

void PrintTo(const Linger& linger, std::ostream* out) {
    *out << linger.policy;
}

class LingerOf : public testing::TestWithParam<Linger> {
protected:
    const ClosePolicy::ClosePolicy policy = static_cast<ClosePolicy::ClosePolicy>(GetParam().policy);
    StandIn standIn;
    ZmqContext context;

    /// The linger time that 0MQ has after a socket of the pattern is connected. It begins with another than 0MQ's
    /// default, which is the value of one of the policies.
    int lingerAfterConnect(Protocol::Protocol protocol) {
        Socket socket("cmd", policy);
        void* const handle = context.handleOf(Protocol::ToNativeProtocol(protocol));
        const int other = 12345;
        zmq_setsockopt(handle, ZMQ_LINGER, &other, sizeof other);
        standIn.answer("zmq_socket", handle);
        socket.createAndConnect(protocol, freshEndpoint(Transport::Ipc), 0);
        return optionOf(handle, ZMQ_LINGER);
    }
};

INSTANTIATE_TEST_SUITE_P(Policy, LingerOf,
                         testing::Values(Linger{0, 0}, Linger{1, 2000}, Linger{2, -1}, Linger{3, -1}, Linger{7, -1},
                                         Linger{-1, -1}, Linger{std::numeric_limits<int>::max(), -1},
                                         Linger{std::numeric_limits<int>::min(), -1}));

std::vector<std::string> lingerOf(Socket& socket, StandIn& standIn, Protocol::Protocol protocol) {
    standIn.journal().clear();
    socket.createAndConnect(protocol, freshEndpoint(Transport::Ipc), 0);
    return standIn.journal().linesWith("zmq_setsockopt 17");
}

/// A request to a server that is not there yet, which its socket has not sent when it is destroyed.
void leaveRequest(const SocketEndpoint& endpoint, ClosePolicy::ClosePolicy policy) {
    Socket client("client", policy);
    client.createAndConnect(Protocol::Req, endpoint, 0);
    char byte = 'x';
    client.send(&byte, 1);
}

class RequestLeftBehind : public testing::TestWithParam<Transport::Transport> {
protected:
    StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Socket server{"server", ClosePolicy::DropPending};
    std::string error;
};

INSTANTIATE_TEST_SUITE_P(OnEveryWire, RequestLeftBehind, testing::Values(Transport::Tcp, Transport::Ipc),
                         [](const auto& instance) { return Transport::ToString(instance.param); });

} // namespace

TEST_P(LingerOf, PublishersIsThePolicys) {
    EXPECT_EQ(GetParam().milliseconds, lingerAfterConnect(Protocol::Pub));
}

TEST_P(LingerOf, RepliersIsThePolicys) {
    EXPECT_EQ(GetParam().milliseconds, lingerAfterConnect(Protocol::Rep));
}

TEST_P(LingerOf, RequestersIsThePolicys) {
    EXPECT_EQ(GetParam().milliseconds, lingerAfterConnect(Protocol::Req));
}

TEST_P(LingerOf, SubscribersIsAlwaysZero) {
    EXPECT_EQ(0, lingerAfterConnect(Protocol::Sub));
}

TEST(ClosePolicy, StaysDropPendingAfterASocketWasASubscriber) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::LingerTwoSeconds);
    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Req), ElementsAre("zmq_setsockopt 17 = 2000 (4 bytes)"));
    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Sub), ElementsAre("zmq_setsockopt 17 = 0 (4 bytes)"));
    socket.close();

    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Req), ElementsAre("zmq_setsockopt 17 = 0 (4 bytes)"));
    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Pub), ElementsAre("zmq_setsockopt 17 = 0 (4 bytes)"));
}

TEST(ClosePolicy, StaysDropPendingAlsoWhenTheSubscriberCouldNotConnect) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::WaitForDelivery);
    standIn.fail("zmq_connect", ENOMEM);
    EXPECT_THROW(socket.createAndConnect(Protocol::Sub, freshEndpoint(Transport::Ipc), 0), std::runtime_error);

    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Req), ElementsAre("zmq_setsockopt 17 = 0 (4 bytes)"));
}

TEST(ClosePolicy, IsNotChangedByCreatingASubscriberAlone) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::LingerTwoSeconds);
    socket.create(Protocol::Sub);

    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Req), ElementsAre("zmq_setsockopt 17 = 2000 (4 bytes)"));
}

TEST(ClosePolicy, SurvivesClose) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::LingerTwoSeconds);
    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Req), ElementsAre("zmq_setsockopt 17 = 2000 (4 bytes)"));
    socket.close();

    EXPECT_THAT(lingerOf(socket, standIn, Protocol::Req), ElementsAre("zmq_setsockopt 17 = 2000 (4 bytes)"));
}

TEST_P(RequestLeftBehind, ReachesALaterServerUnderWaitForDelivery) {
    leaveRequest(endpoint, ClosePolicy::WaitForDelivery);

    server.createAndConnect(Protocol::Rep, endpoint, 0);

    EXPECT_EQ(socket::PollResult::Input, server.poll(patienceMs, error));
}

TEST_P(RequestLeftBehind, ReachesAServerWithinTwoSecondsUnderLingerTwoSeconds) {
    leaveRequest(endpoint, ClosePolicy::LingerTwoSeconds);

    server.createAndConnect(Protocol::Rep, endpoint, 0);

    EXPECT_EQ(socket::PollResult::Input, server.poll(patienceMs, error));
}

TEST_P(RequestLeftBehind, IsDroppedUnderDropPending) {
    {
        // Its end waits until 0MQ is done with the socket and has dropped the request.
        ZmqContext context;
        standIn.answer("zmq_socket", context.handleOf(ZMQ_REQ));
        leaveRequest(endpoint, ClosePolicy::DropPending);
    }
    server.createAndConnect(Protocol::Rep, endpoint, 0);

    Socket later("later", ClosePolicy::DropPending);
    later.createAndConnect(Protocol::Req, endpoint, 0);
    char byte = 'y';
    later.send(&byte, 1);

    ASSERT_EQ(socket::PollResult::Input, server.poll(patienceMs, error));
    server.receive(&byte, 1);
    EXPECT_EQ('y', byte);
}

} // namespace rk::tests
