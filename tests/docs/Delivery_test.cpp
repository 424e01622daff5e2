#include "support/Test.h"

#include <rk/socket/TimeoutException.h>

#include <cstddef>

// Tests the statements of docs/guide/ about lost, duplicated and delayed messages.

namespace rk::tests {

namespace {

/// Long enough for a message to arrive.
constexpr unsigned int silenceMs = 400;

/// A server and its client.
struct Pair {
    explicit Pair(Transport::Transport transport) : endpoint(freshEndpoint(transport)) {}

    const SocketEndpoint endpoint;
    Peer server{"server", Protocol::Rep, endpoint};
    Peer client{"client", Protocol::Req, endpoint};
};

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

/// Serves requests at `endpoint` until none arrives for a while. Returns the requests.
std::string serve(const SocketEndpoint& endpoint, std::size_t expected) {
    Peer server("server", Protocol::Rep, endpoint);
    std::string served;
    while (hasInput(server, served.size() < expected ? patienceMs : silenceMs)) {
        served += receive(server);
        send(server, served.back());
    }
    return served;
}

void expectExchange(Socket& client, Socket& server, char request = 'q') {
    send(client, request);
    EXPECT_EQ(request, receive(server));
    send(server, 'r');
    EXPECT_EQ('r', receive(client));
}

/// The fate of a first request to a server that is not running, if the client closes or sends another request.
struct Fate {
    ClosePolicy::ClosePolicy policy;
    std::string servedAfterClose;
    std::string servedAfterSendingAgain;
};

const Fate fates[] = {{ClosePolicy::DropPending, "", "2"},
                      {ClosePolicy::LingerTwoSeconds, "1", "12"},
                      {ClosePolicy::WaitForDelivery, "1", "12"}};

/// Waits a second, because ZeroMQ drops messages in the background after a close, and reports no event.
void letZmqDrop(ClosePolicy::ClosePolicy policy) {
    if (policy == ClosePolicy::DropPending) {
        Socket idle("idle", ClosePolicy::DropPending);
        idle.create(Protocol::Sub);
        EXPECT_FALSE(hasInput(idle, 1000));
    }
}

/// A client of two servers.
class TwoServers {
public:
    explicit TwoServers(Transport::Transport transport)
        : firstEndpoint(freshEndpoint(transport)), secondEndpoint(freshEndpoint(transport)) {}

    void start() {
        first.createAndConnect(Protocol::Rep, firstEndpoint, patienceMs);
        second.createAndConnect(Protocol::Rep, secondEndpoint, patienceMs);
        connectToBoth(client);
    }

    void connectToBoth(Socket& requester) const {
        requester.createAndConnect(Protocol::Req, firstEndpoint, patienceMs);
        requester.connect(secondEndpoint, patienceMs);
    }

    /// Sends a request that the server abandons, like a listener whose handler does not reply.
    void abandon(Socket& server, char request) {
        send(client, request);
        EXPECT_EQ(request, receive(server));
        server.resetConnections();
    }

    const SocketEndpoint firstEndpoint;
    const SocketEndpoint secondEndpoint;
    Socket first{"first", ClosePolicy::DropPending};
    Socket second{"second", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
};

} // namespace

TEST(Delivery, ServesARequestWhenServerStartsLater) {
    for (const Fate& fate : fates) {
        SCOPED_TRACE(fate.policy);
        const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
        Peer client("client", Protocol::Req, endpoint, fate.policy);
        send(client, '1');
        EXPECT_EQ("1", serve(endpoint, 1));
        EXPECT_EQ('1', receive(client));
    }
}

TEST(Delivery, ServesAClosedRequestIfKept) {
    for (const Fate& fate : fates) {
        SCOPED_TRACE(fate.policy);
        const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
        Peer client("client", Protocol::Req, endpoint, fate.policy);
        send(client, '1');
        client.close();
        letZmqDrop(fate.policy);
        EXPECT_EQ(fate.servedAfterClose, serve(endpoint, fate.servedAfterClose.size()));
    }
}

TEST(Delivery, ServesTheFirstRequestTooIfKept) {
    for (const Fate& fate : fates) {
        SCOPED_TRACE(fate.policy);
        const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
        Peer client("client", Protocol::Req, endpoint, fate.policy);
        send(client, '1');
        send(client, '2');
        letZmqDrop(fate.policy);
        const std::string expected = fate.servedAfterSendingAgain;
        EXPECT_THAT(serve(endpoint, expected.size()), testing::UnorderedElementsAreArray(expected));
        EXPECT_EQ('2', receive(client));
    }
}

TEST(Delivery, DropsALingeringRequestInTwoSeconds) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Peer client("client", Protocol::Req, endpoint, ClosePolicy::LingerTwoSeconds);
    send(client, '1');
    send(client, '2');
    EXPECT_FALSE(hasInput(client, 2500));
    EXPECT_EQ("2", serve(endpoint, 1));
}

TEST(Delivery, DropsTheFirstOfTwoReplies) {
    Pair pair(Transport::Tcp);
    send(pair.client, 'q');
    EXPECT_EQ('q', receive(pair.server));
    send(pair.client, 'q');
    send(pair.server, '1');
    EXPECT_EQ('q', receive(pair.server));
    send(pair.server, '2');
    EXPECT_EQ('2', receive(pair.client));
}

TEST(Delivery, KeepsALateReplyForTheNextReceive) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Peer server("server", Protocol::Rep, endpoint);
    Peer client("client", Protocol::Req, endpoint, ClosePolicy::DropPending, 1);

    send(client, 'q');
    EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket client]",
              textThrownBy<rk::socket::TimeoutException>([&] { receive(client); }));
    EXPECT_EQ('q', receive(server));
    send(server, 'r');

    ASSERT_TRUE(hasInput(client, patienceMs));
    EXPECT_EQ('r', receive(client));
}

TEST(Delivery, DropsQueuedRequestsWhenRebuilt) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Peer server("server", Protocol::Rep, endpoint);
    Peer first("first", Protocol::Req, endpoint);
    Peer second("second", Protocol::Req, endpoint);

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

TEST(Delivery, SkipsSubscribersThatConnectLater) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Peer publisher("publisher", Protocol::Pub, endpoint, ClosePolicy::WaitForDelivery);
    send(publisher, 'x');
    Peer subscriber("subscriber", Protocol::Sub, endpoint);
    EXPECT_FALSE(hasInput(subscriber, silenceMs));
}

TEST(Delivery, NeedsBothRebuiltOverInproc) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Peer publisher("publisher", Protocol::Pub, endpoint);
    Peer subscriber("subscriber", Protocol::Sub, endpoint);

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

TEST(Delivery, AlternatesBetweenServersThatReply) {
    for (const auto transport : {Transport::Tcp, Transport::Ipc, Transport::Inproc}) {
        SCOPED_TRACE(Transport::ToString(transport));
        TwoServers servers(transport);
        servers.start();
        for (Socket* const asked : {&servers.first, &servers.second, &servers.first, &servers.second}) {
            expectExchange(servers.client, *asked);
        }
    }
}

TEST(Delivery, RetriesWithASilentFirstServer) {
    for (const auto transport : {Transport::Tcp, Transport::Ipc, Transport::Inproc}) {
        SCOPED_TRACE(Transport::ToString(transport));
        TwoServers servers(transport);
        servers.start();
        for (const char request : {'1', '2', '3'}) {
            servers.abandon(servers.first, request);
        }
        EXPECT_FALSE(hasInput(servers.second, 0));
    }
}

/// Not over inproc. There the rebuild of a client of an unbound name races with ZeroMQ's threads.
TEST(Delivery, RetriesWithAFirstServerThatIsDown) {
    for (const auto transport : {Transport::Tcp, Transport::Ipc}) {
        SCOPED_TRACE(Transport::ToString(transport));
        const TwoServers servers(transport);
        Socket keeping("keeping", ClosePolicy::WaitForDelivery);
        Peer second("second", Protocol::Rep, servers.secondEndpoint);
        servers.connectToBoth(keeping);
        for (const char request : {'1', '2', '3'}) {
            send(keeping, request);
        }
        Peer first("first", Protocol::Rep, servers.firstEndpoint);
        std::string asked;
        for (int request = 0; request < 3; ++request) {
            asked += receive(first);
            send(first, 'r');
        }
        EXPECT_THAT(asked, testing::UnorderedElementsAre('1', '2', '3'));
        EXPECT_FALSE(hasInput(second, 0));
        EXPECT_EQ('r', receive(keeping));
    }
}

TEST(Delivery, SendsToASilentSecondServerAfterRetry) {
    for (const auto transport : {Transport::Tcp, Transport::Ipc, Transport::Inproc}) {
        SCOPED_TRACE(Transport::ToString(transport));
        TwoServers servers(transport);
        servers.start();
        expectExchange(servers.client, servers.first);
        for (int round = 0; round < 3; ++round) {
            servers.abandon(servers.second, '1');
            expectExchange(servers.client, servers.first, '2');
        }
    }
}

TEST(Delivery, FindsAnInprocServerWhenRebuilt) {
    Pair pair(Transport::Inproc);
    pair.server.close();
    pair.server.createAndConnect(Protocol::Rep, pair.endpoint, patienceMs);
    pair.client.resetConnections();
    expectExchange(pair.client, pair.server);
}

TEST(Delivery, FindsAnInprocServerWhenRetried) {
    Pair pair(Transport::Inproc);
    send(pair.client, '1');
    EXPECT_EQ('1', receive(pair.server));
    pair.server.close();
    pair.server.createAndConnect(Protocol::Rep, pair.endpoint, patienceMs);
    expectExchange(pair.client, pair.server);
}

TEST(Delivery, ReachesTheLastServerToBindAnIpcPath) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);
    Peer first("first", Protocol::Rep, endpoint);
    Peer second("second", Protocol::Rep, endpoint);
    Peer client("client", Protocol::Req, endpoint);
    expectExchange(client, second);
    EXPECT_FALSE(hasInput(first, 0));
}

TEST(Delivery, DropsTheReplyWhenTheClientHasEnded) {
    Pair pair(Transport::Inproc);
    send(pair.client, 'q');
    EXPECT_EQ('q', receive(pair.server));
    pair.client.close();
    EXPECT_NO_THROW(send(pair.server, 'r'));
}

} // namespace rk::tests
