#include "support/Endpoints.h"
#include "support/Errors.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>

// What docs/guide/ tells about messages that are lost, doubled or delayed.

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
namespace ClosePolicy = socket::ClosePolicy;
namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr unsigned int patienceMs = 20000;
/// For what must not come: long enough for it to come if it would.
constexpr unsigned int silenceMs = 400;

void send(Socket& socket, char message) {
    socket.send(&message, 1);
}

char receive(Socket& socket) {
    char message = 0;
    socket.receive(&message, 1);
    return message;
}

bool hasInput(Socket& socket, unsigned int milliseconds) {
    std::string error;
    return socket.poll(milliseconds, error) == PollResult::Input;
}

/// Serves every request that comes to `endpoint`, until none has come for a while; returns them.
std::string serve(const SocketEndpoint& endpoint, std::size_t expected) {
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    std::string served;
    while (hasInput(server, served.size() < expected ? patienceMs : silenceMs)) {
        served += receive(server);
        send(server, served.back());
    }
    return served;
}

struct Case {
    const char* name;
    ClosePolicy::ClosePolicy policy;
    const char* servedAfterClose;
    const char* servedAfterSendingAgain;
};

std::ostream& operator<<(std::ostream& out, const Case& value) {
    return out << value.name;
}

class RequestToAServerThatIsNotRunning : public testing::TestWithParam<Case> {
protected:
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Socket client{"client", GetParam().policy};

    void ask() {
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
        send(client, '1');
    }

    /// 0MQ drops messages in the background, soon after the socket is closed; nobody is told when.
    void letZmqDrop() {
        if (GetParam().policy == ClosePolicy::DropPending) {
            Socket idle("idle", ClosePolicy::DropPending);
            idle.create(Protocol::Sub);
            EXPECT_FALSE(hasInput(idle, 1000));
        }
    }
};

class RequesterOfTwoServers : public testing::TestWithParam<Transport::Transport> {
protected:
    const SocketEndpoint firstEndpoint = freshEndpoint(GetParam());
    const SocketEndpoint secondEndpoint = freshEndpoint(GetParam());
    Socket first{"first", ClosePolicy::DropPending};
    Socket second{"second", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};

    static void start(Socket& server, const SocketEndpoint& endpoint) {
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    }

    void connectToBoth(Socket& requester) const {
        requester.createAndConnect(Protocol::Req, firstEndpoint, patienceMs);
        requester.connect(secondEndpoint, patienceMs);
    }

    void answer(Socket& server, char request) {
        EXPECT_EQ(request, receive(server));
        send(server, 'r');
        EXPECT_EQ('r', receive(client));
    }

    /// What a listener does with a request that its handler does not answer.
    static void giveUp(Socket& server, char request) {
        EXPECT_EQ(request, receive(server));
        server.resetConnections();
    }
};

/// Not over inproc: there the rebuild of a client of a name that nobody has bound is a race between 0MQ's own threads.
class RequesterOfTwoRemoteServers : public RequesterOfTwoServers {};

class ClientOfAServerClosedOverInproc : public testing::Test {
protected:
    ClientOfAServerClosedOverInproc() {
        bindServer();
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    }

    void bindServer() { server.createAndConnect(Protocol::Rep, endpoint, patienceMs); }

    void expectExchange() {
        send(client, 'q');
        EXPECT_EQ('q', receive(server));
        send(server, 'r');
        EXPECT_EQ('r', receive(client));
    }

    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
};

} // namespace

TEST_P(RequestToAServerThatIsNotRunning, IsServedWhenTheServerComesIfTheClientWaits) {
    ask();
    EXPECT_EQ("1", serve(endpoint, 1));
    EXPECT_EQ('1', receive(client));
}

TEST_P(RequestToAServerThatIsNotRunning, IsServedAfterACloseIfThePolicyKeepsIt) {
    ask();
    client.close();
    letZmqDrop();
    const std::string expected = GetParam().servedAfterClose;
    EXPECT_EQ(expected, serve(endpoint, expected.size()));
}

TEST_P(RequestToAServerThatIsNotRunning, IsServedAlongWithItsRepetitionIfThePolicyKeepsIt) {
    ask();
    send(client, '2');
    letZmqDrop();
    const std::string expected = GetParam().servedAfterSendingAgain;
    EXPECT_THAT(serve(endpoint, expected.size()), testing::UnorderedElementsAreArray(expected));
    EXPECT_EQ('2', receive(client));
}

INSTANTIATE_TEST_SUITE_P(Policies, RequestToAServerThatIsNotRunning,
                         testing::Values(Case{"DropPending", ClosePolicy::DropPending, "", "2"},
                                         Case{"LingerTwoSeconds", ClosePolicy::LingerTwoSeconds, "1", "12"},
                                         Case{"WaitForDelivery", ClosePolicy::WaitForDelivery, "1", "12"}),
                         testing::PrintToStringParamName());

TEST(LingerTwoSeconds, DropsAGivenUpRequestAfterTwoSeconds) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Socket client("client", ClosePolicy::LingerTwoSeconds);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    send(client, '1');
    send(client, '2');
    EXPECT_FALSE(hasInput(client, 2500));
    EXPECT_EQ("2", serve(endpoint, 1));
}

TEST(RequestSentAgain, IsServedTwiceAndItsFirstReplyDiscarded) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);

    send(client, 'q');
    EXPECT_EQ('q', receive(server));
    send(client, 'q');
    send(server, '1');
    EXPECT_EQ('q', receive(server));
    send(server, '2');

    EXPECT_EQ('2', receive(client));
}

TEST(RequestReceivedAgain, WaitsOnForTheReplyThatWasLate) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, 1);

    send(client, 'q');
    EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket client]",
              textThrownBy([&] { receive(client); }));
    EXPECT_EQ('q', receive(server));
    send(server, 'r');

    ASSERT_TRUE(hasInput(client, patienceMs));
    EXPECT_EQ('r', receive(client));
}

TEST(RebuiltReplySocket, DropsTheRequestsInItsQueue) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    Socket first("first", ClosePolicy::DropPending);
    first.createAndConnect(Protocol::Req, endpoint, patienceMs);
    Socket second("second", ClosePolicy::DropPending);
    second.createAndConnect(Protocol::Req, endpoint, patienceMs);

    send(first, '1');
    send(second, '2');
    const char served = receive(server);
    send(server, served);
    Socket& waiting = served == '1' ? second : first;
    ASSERT_TRUE(hasInput(server, patienceMs));
    server.resetConnections();

    EXPECT_FALSE(hasInput(server, silenceMs));
    EXPECT_FALSE(hasInput(waiting, 0));
}

TEST(Publisher, SendsNothingToWhoeverSubscribesLater) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket publisher("publisher", ClosePolicy::WaitForDelivery);
    publisher.createAndConnect(Protocol::Pub, endpoint, 0);
    send(publisher, 'x');
    Socket subscriber("subscriber", ClosePolicy::DropPending);
    subscriber.createAndConnect(Protocol::Sub, endpoint, 0);
    EXPECT_FALSE(hasInput(subscriber, silenceMs));
}

TEST(SubscriberOverInproc, FindsARebuiltPublisherOnlyWhenItIsRebuiltItself) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket publisher("publisher", ClosePolicy::DropPending);
    publisher.createAndConnect(Protocol::Pub, endpoint, 0);
    Socket subscriber("subscriber", ClosePolicy::DropPending);
    subscriber.createAndConnect(Protocol::Sub, endpoint, patienceMs);

    publisher.resetConnections();
    std::string error;
    publisher.poll(silenceMs, error);
    send(publisher, '1');
    EXPECT_FALSE(hasInput(subscriber, silenceMs));

    subscriber.connect(endpoint, patienceMs);
    publisher.poll(silenceMs, error);
    send(publisher, '2');
    EXPECT_FALSE(hasInput(subscriber, silenceMs));

    subscriber.resetConnections();
    publisher.poll(0, error);
    send(publisher, '3');
    EXPECT_EQ('3', receive(subscriber));
}

TEST_P(RequesterOfTwoServers, AsksThemInTurnAsLongAsTheyAnswer) {
    start(first, firstEndpoint);
    start(second, secondEndpoint);
    connectToBoth(client);
    for (Socket* const asked : {&first, &second, &first, &second}) {
        send(client, 'q');
        answer(*asked, 'q');
    }
}

TEST_P(RequesterOfTwoServers, SendsEveryRepetitionToTheFirstThoughItIsSilent) {
    start(first, firstEndpoint);
    start(second, secondEndpoint);
    connectToBoth(client);
    for (const char request : {'1', '2', '3'}) {
        send(client, request);
        giveUp(first, request);
    }
    EXPECT_FALSE(hasInput(second, 0));
}

TEST_P(RequesterOfTwoRemoteServers, SendsEveryRepetitionToTheFirstThoughItIsNotRunning) {
    Socket keeping("keeping", ClosePolicy::WaitForDelivery);
    start(second, secondEndpoint);
    connectToBoth(keeping);
    for (const char request : {'1', '2', '3'}) {
        send(keeping, request);
    }
    start(first, firstEndpoint);
    std::string asked;
    for (int request = 0; request < 3; ++request) {
        asked += receive(first);
        send(first, 'r');
    }
    EXPECT_THAT(asked, testing::UnorderedElementsAre('1', '2', '3'));
    EXPECT_EQ('r', receive(keeping));
}

TEST_P(RequesterOfTwoServers, AsksASilentSecondFirstWithEveryRequestAfterARepetition) {
    start(first, firstEndpoint);
    start(second, secondEndpoint);
    connectToBoth(client);
    send(client, 'q');
    answer(first, 'q');
    for (int round = 0; round < 3; ++round) {
        send(client, '1');
        giveUp(second, '1');
        send(client, '2');
        answer(first, '2');
    }
}

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, RequesterOfTwoServers,
                         testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& instance) { return Transport::ToString(instance.param); });

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, RequesterOfTwoRemoteServers, testing::Values(Transport::Tcp, Transport::Ipc),
                         [](const auto& instance) { return Transport::ToString(instance.param); });

TEST_F(ClientOfAServerClosedOverInproc, ReachesTheServerThatIsBackOnceItIsRebuilt) {
    server.close();
    bindServer();
    client.resetConnections();
    expectExchange();
}

TEST_F(ClientOfAServerClosedOverInproc, ReachesTheServerThatIsBackWithARepetitionOfItsOpenRequest) {
    send(client, '1');
    EXPECT_EQ('1', receive(server));
    server.close();
    bindServer();
    expectExchange();
}

TEST(IpcPath, IsTakenOverByTheSecondWhoBindsIt) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);
    Socket first("first", ClosePolicy::DropPending);
    first.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    Socket second("second", ClosePolicy::DropPending);
    second.createAndConnect(Protocol::Rep, endpoint, patienceMs);

    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    send(client, 'q');

    EXPECT_EQ('q', receive(second));
    EXPECT_FALSE(hasInput(first, 0));
}

TEST(Reply, ToAClientThatHasGoneIsDroppedWithoutAnError) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    {
        Socket client("client", ClosePolicy::LingerTwoSeconds);
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
        send(client, 'q');
        EXPECT_EQ('q', receive(server));
    }
    EXPECT_NO_THROW(send(server, 'r'));
}

} // namespace rk::tests
