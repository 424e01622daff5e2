#include "support/Calls.h"
#include "support/NativeSocket.h"
#include "support/Test.h"
#include "support/ThreadFaults.h"
#include "support/ZmqHandle.h"

#include <rk/socket/Network.h>

#include <zmq.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <limits>
#include <list>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <system_error>
#include <tuple>
#include <utility>

namespace rk::tests {

namespace {

using calls::operator+;
using calls::Lines;

const std::string linger = "zmq_setsockopt " + std::to_string(ZMQ_LINGER) + " ";

/// Sets every option to ZeroMQ's default. A setting cannot become absent again.
void restoreDefaults() {
    Network::listenOn("*");
    Network::setPeerTimeout(0);
    Network::setSilenceLimit(0);
    Network::setMaxMessageSize(-1);
    Network::setQueueSize(1000);
    Network::setIpv6(false);
}

/// Restores the settings at its end.
class NetworkTest : public testing::Test {
protected:
    ~NetworkTest() override { restoreDefaults(); }
};

class NetworkOf : public NetworkTest,
                  public testing::WithParamInterface<std::tuple<Protocol::Protocol, Transport::Transport>> {
protected:
    /// Returns the options that `connect` sets for the endpoint.
    Lines linesOfConnect() {
        socket.create(protocol);
        standIn.journal().clear();
        socket.connect(endpoint, 0);
        Lines lines;
        for (const std::string& line : standIn.journal().linesWith("zmq_")) {
            if (line.find("zmq_bind") == 0 || line.find("zmq_connect") == 0) {
                break;
            }
            if (line.find(linger) != 0) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    void setEverything() const {
        Network::setPeerTimeout(30);
        Network::setMaxMessageSize(1000);
        Network::setIpv6(true);
    }

    /// Binds the inproc name of a connecting socket. Otherwise ZeroMQ would never release that socket.
    std::optional<NativeSocket> inprocPeer() const {
        if (calls::binds(protocol) || endpoint.transport != Transport::Inproc) {
            return std::nullopt;
        }
        return NativeSocket(protocol == Protocol::Req ? Protocol::Rep : Protocol::Pub, endpoint);
    }

    Lines ofBinding(const Lines& lines) const { return calls::binds(protocol) ? lines : Lines(); }
    Lines ofConnecting(const Lines& lines) const { return calls::binds(protocol) ? Lines() : lines; }
    Lines ofTcp(const Lines& lines) const { return endpoint.transport == Transport::Tcp ? lines : Lines(); }

    const Protocol::Protocol protocol = std::get<0>(GetParam());
    const SocketEndpoint endpoint = freshEndpoint(std::get<1>(GetParam()));
    const ContextOfTheProcess context;
    const std::optional<NativeSocket> peer = inprocPeer();
    StandIn standIn;
    Socket socket{"part", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(All, NetworkOf, testing::Combine(testing::ValuesIn(everyPattern), everyTransport()),
                         [](const auto& tested) {
                             return Protocol::ToString(std::get<0>(tested.param)) +
                                    Transport::ToString(std::get<1>(tested.param));
                         });

/// The system's options for a peer timeout.
struct Probing {
    unsigned int timeout;
    int idle;
    int interval;
    int probes;
    int silence; ///< in milliseconds
    int attempt; ///< in milliseconds
};

class NetworkProbing : public NetworkTest, public testing::WithParamInterface<Probing> {};

INSTANTIATE_TEST_SUITE_P(After, NetworkProbing,
                         testing::Values(Probing{1, 1, 1, 1, 1500, 2000}, Probing{2, 1, 1, 1, 1500, 2000},
                                         Probing{3, 1, 1, 2, 2500, 3000}, Probing{5, 1, 1, 4, 4500, 5000},
                                         Probing{6, 2, 1, 4, 5500, 5000}, Probing{30, 10, 5, 4, 29500, 5000},
                                         Probing{32767, 10923, 5461, 4, 32766500, 5000}),
                         [](const auto& tested) { return std::to_string(tested.param.timeout); });

class NetworkFailure : public NetworkTest, public testing::WithParamInterface<std::pair<int, const char*>> {};

INSTANTIATE_TEST_SUITE_P(Of, NetworkFailure,
                         testing::Values(std::pair{ZMQ_MAXMSGSIZE, "ZMQ_MAXMSGSIZE"}, std::pair{ZMQ_IPV6, "ZMQ_IPV6"},
                                         std::pair{ZMQ_TCP_KEEPALIVE, "ZMQ_TCP_KEEPALIVE"},
                                         std::pair{ZMQ_TCP_KEEPALIVE_IDLE, "ZMQ_TCP_KEEPALIVE_IDLE"},
                                         std::pair{ZMQ_TCP_KEEPALIVE_INTVL, "ZMQ_TCP_KEEPALIVE_INTVL"},
                                         std::pair{ZMQ_TCP_KEEPALIVE_CNT, "ZMQ_TCP_KEEPALIVE_CNT"},
                                         std::pair{ZMQ_TCP_MAXRT, "ZMQ_TCP_MAXRT"},
                                         std::pair{ZMQ_CONNECT_TIMEOUT, "ZMQ_CONNECT_TIMEOUT"}),
                         [](const auto& tested) { return std::string(tested.param.second); });

class NetworkSettings : public NetworkTest {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
};

/// Returns the peers' ports of all connections to a local port.
std::set<std::string> connectionsTo(unsigned short port) {
    std::ostringstream suffix;
    suffix << ':' << std::uppercase << std::hex << std::setw(4) << std::setfill('0') << port;
    std::set<std::string> found;
    std::ifstream table("/proc/self/net/tcp");
    std::string number;
    std::string local;
    std::string remote;
    std::string state;
    for (std::string line; std::getline(table, line);) {
        std::istringstream(line) >> number >> local >> remote >> state;
        if (state == "01" && local.size() > 5 && local.substr(local.size() - 5) == suffix.str()) {
            found.insert(remote);
        }
    }
    return found;
}

/// Exits with 0 if a request socket is rebuilt while `others` sockets are open.
void repairBeside(int others) {
    const rlimit many{4096, 4096};
    if (setrlimit(RLIMIT_NOFILE, &many) != 0) {
        std::exit(3);
    }
    Network::setMaxSockets(others + 10);
    std::list<Socket> open;
    for (int number = 0; number < others; ++number) {
        open.emplace_back("other", ClosePolicy::DropPending).create(Protocol::Pub);
    }
    Peer client("client", Protocol::Req, freshEndpoint(Transport::Tcp), ClosePolicy::DropPending, 0);
    sendText(client, "first");
    sendText(client, "again");
    open.clear();
    client.close();
    std::exit(0);
}

/// Exits with 0 if exactly `limit` sockets can be created.
void exhaust(int limit) {
    Network::setMaxSockets(limit);
    std::list<Socket> open;
    try {
        for (int number = 0; number <= limit; ++number) {
            open.emplace_back("one", ClosePolicy::DropPending).create(Protocol::Pub);
        }
    } catch (const std::runtime_error&) {
        const bool wasLast = open.size() == static_cast<std::size_t>(limit) + 1;
        open.clear(); // because the exit waits for them
        std::exit(wasLast ? 0 : 2);
    }
    std::exit(1);
}

/// Exits with 0 if the limit can still be set after a failed lock has prevented the first socket.
void limitAfterFailedLock() {
    Socket socket("one", ClosePolicy::DropPending);
    try {
        const MutexFault fault(EAGAIN, 2);
        socket.create(Protocol::Pub);
    } catch (const std::system_error&) {
        exhaust(20);
    }
    std::exit(3);
}

} // namespace

TEST_P(NetworkOf, SetsOptionsBeforeTheEndpoint) {
    setEverything();

    const Lines keepalive{calls::set(ZMQ_IPV6, endpoint.transport == Transport::Tcp ? 1 : 0),
                          calls::set(ZMQ_TCP_KEEPALIVE, 1), calls::set(ZMQ_TCP_KEEPALIVE_IDLE, 10),
                          calls::set(ZMQ_TCP_KEEPALIVE_INTVL, 5), calls::set(ZMQ_TCP_KEEPALIVE_CNT, 4)};
    Lines expected = ofTcp(keepalive);
    if (!calls::binds(protocol) && endpoint.transport == Transport::Tcp) {
        expected.front() = calls::set(ZMQ_IPV6, 0); // for an IPv4 address
    }
    EXPECT_THAT(linesOfConnect(), ElementsAreArray(ofBinding({"zmq_setsockopt 22 = 1000 (8 bytes)"}) + expected +
                                                   ofTcp(ofConnecting({calls::set(ZMQ_TCP_MAXRT, 29500),
                                                                       calls::set(ZMQ_CONNECT_TIMEOUT, 5000)}))));
}

TEST_P(NetworkOf, SwitchesOptionsOff) {
    restoreDefaults();

    EXPECT_THAT(
        linesOfConnect(),
        ElementsAreArray(ofBinding({"zmq_setsockopt 22 = -1 (8 bytes)"}) +
                         ofTcp({calls::set(ZMQ_IPV6, 0), calls::set(ZMQ_TCP_KEEPALIVE, -1)}) +
                         ofTcp(ofConnecting({calls::set(ZMQ_TCP_MAXRT, 0), calls::set(ZMQ_CONNECT_TIMEOUT, 0)}))));
}

TEST_P(NetworkOf, FollowsInARebuild) {
    setEverything();
    const Lines lines = linesOfConnect();
    socket.resetConnections();
    setEverything();
    standIn.journal().clear();
    socket.resetConnections();

    for (const std::string& line : lines) {
        EXPECT_EQ(1U, standIn.journal().count(line)) << line;
    }
}

TEST_P(NetworkOf, SetsQueueSizesInCreate) {
    Network::setQueueSize(7);
    socket.create(protocol);
    EXPECT_THAT(standIn.journal().lines(),
                ElementsAreArray({calls::open(protocol), calls::set(ZMQ_SNDHWM, 7), calls::set(ZMQ_RCVHWM, 7)}));

    socket.connect(endpoint, 0);
    socket.setInternalFifoSize(3);
    standIn.journal().clear();
    socket.resetConnections();
    EXPECT_EQ(1U, standIn.journal().count(calls::set(ZMQ_SNDHWM, 7)));
    EXPECT_EQ(1U, standIn.journal().count(calls::set(ZMQ_RCVHWM, 7)));
}

TEST_P(NetworkProbing, SplitsTheTimeIntoProbes) {
    Network::setPeerTimeout(GetParam().timeout);
    StandIn standIn;
    Peer client("client", Protocol::Req, freshEndpoint(Transport::Tcp), ClosePolicy::DropPending, 0);

    const std::vector<std::pair<int, int>> options{{ZMQ_TCP_KEEPALIVE, 1},
                                                   {ZMQ_TCP_KEEPALIVE_IDLE, GetParam().idle},
                                                   {ZMQ_TCP_KEEPALIVE_INTVL, GetParam().interval},
                                                   {ZMQ_TCP_KEEPALIVE_CNT, GetParam().probes},
                                                   {ZMQ_TCP_MAXRT, GetParam().silence},
                                                   {ZMQ_CONNECT_TIMEOUT, GetParam().attempt}};
    for (const auto& [option, value] : options) {
        EXPECT_EQ(1U, standIn.journal().count(calls::set(option, value))) << option;
    }
}

TEST_P(NetworkFailure, ThrowsAndClosesTheSocket) {
    Network::setPeerTimeout(30);
    Network::setMaxMessageSize(1000);
    Network::setIpv6(true);
    const Protocol::Protocol protocol = GetParam().first == ZMQ_MAXMSGSIZE ? Protocol::Rep : Protocol::Req;
    StandIn standIn;
    Socket socket("part", ClosePolicy::DropPending);
    standIn.fail("zmq_setsockopt " + std::to_string(GetParam().first), ETERM);

    EXPECT_EQ("Socket: Error setting " + std::string(GetParam().second) + " Context was terminated on [Socket part]",
              textThrownBy([&] { socket.createAndConnect(protocol, freshEndpoint(Transport::Tcp), 0); }));
    std::string error;
    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { socket.poll(0, error); }));
}

TEST_F(NetworkSettings, RefuseWrongValues) {
    const auto refusal = [](const auto& call) { return textThrownBy<std::invalid_argument>(call); };
    for (const char* const host : {"lo:5555", "tcp://lo", "127.0.0.1:1", "[::1]:1", "[::1", "::1]", ":"}) {
        EXPECT_EQ(std::string("Network: Cannot listen on ") + host + ": a host without port and transport is needed",
                  refusal([=] { Network::listenOn(host); }));
    }
    EXPECT_EQ("Network: Peer timeout of 32768 seconds: at most 32767 possible",
              refusal([] { Network::setPeerTimeout(32768); }));
    EXPECT_EQ("Network: Message size of 0 bytes: at least 1, or -1 for no limit",
              refusal([] { Network::setMaxMessageSize(0); }));
    EXPECT_EQ("Network: Message size of -2 bytes: at least 1, or -1 for no limit",
              refusal([] { Network::setMaxMessageSize(-2); }));
    EXPECT_EQ("Network: Queue size of -1 messages: at least 1, or 0 for no limit",
              refusal([] { Network::setQueueSize(-1); }));
    EXPECT_EQ("Network: Limit of 0 sockets: 1 to 65535 possible", refusal([] { Network::setMaxSockets(0); }));
    EXPECT_EQ("Network: Limit of 65536 sockets: 1 to 65535 possible", refusal([] { Network::setMaxSockets(65536); }));
}

TEST_F(NetworkSettings, AcceptTheirLimits) {
    Network::setPeerTimeout(std::numeric_limits<std::int16_t>::max());
    Network::setMaxMessageSize(std::numeric_limits<std::int64_t>::max());
    Network::setMaxMessageSize(1);
    Network::setQueueSize(std::numeric_limits<int>::max());
    Network::setQueueSize(0);
    Network::setSilenceLimit(std::numeric_limits<unsigned int>::max());
}

TEST_F(NetworkSettings, LeaveRoomForTheHandshake) {
    Network::setMaxMessageSize(1);
    Socket server("server", ClosePolicy::DropPending);
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    EXPECT_EQ(1U, standIn.journal().count("zmq_setsockopt 22 = 64 (8 bytes)"));

    Peer client("client", Protocol::Req, endpoint);
    sendText(client, std::string(64, 'x'));
    EXPECT_EQ(std::string(64, 'x'), receiveText(server));
}

TEST_F(NetworkSettings, DropThePeerOfALargeMessage) {
    Network::setMaxMessageSize(1000);
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Peer server("server", Protocol::Rep, endpoint);
    Peer large("large", Protocol::Req, endpoint);
    Peer small("small", Protocol::Req, endpoint);

    sendText(large, std::string(1001, 'x'));
    sendText(small, "small");
    EXPECT_EQ("small", receiveText(server));
    sendText(server, "reply");
    EXPECT_EQ("reply", receiveText(small));
    std::string error;
    EXPECT_EQ(PollResult::Timeout, server.poll(100, error));
}

/// Unread messages fill every queue and buffer between the two sockets for longer than the peer timeout.
TEST_F(NetworkSettings, KeepAFullSubscriber) {
    Network::setPeerTimeout(2);
    Network::setSilenceLimit(1);
    Network::setMaxMessageSize(1 << 20);
    Network::setQueueSize(5);
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Peer publisher("source", Protocol::Pub, endpoint, ClosePolicy::DropPending, 0);
    Peer subscriber("feed", Protocol::Sub, endpoint);
    std::string error;
    std::string frame(1 << 20, 'x');
    do {
        publisher.poll(0, error); // processes the subscription
        publisher.send(frame.data(), frame.size());
    } while (subscriber.poll(1, error) != PollResult::Input);
    const std::set<std::string> before = connectionsTo(endpoint.port);

    // The test is about this time, more than three times the timeout. The poll limits the rate.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(7);
    while (std::chrono::steady_clock::now() < end) {
        publisher.send(frame.data(), frame.size());
        publisher.poll(20, error);
    }
    EXPECT_EQ(before, connectionsTo(endpoint.port));
    frame.back() = 'y';
    std::vector<char> buffer(frame.size());
    do {
        publisher.send(frame.data(), frame.size());
        ASSERT_EQ(static_cast<int>(frame.size()), subscriber.receive(buffer.data(), buffer.size()));
    } while (buffer.back() != 'y');
    EXPECT_EQ(before, connectionsTo(endpoint.port));
}

TEST_F(NetworkSettings, LogARefusedQueueSize) {
    Network::setQueueSize(10);
    standIn.fail("zmq_setsockopt " + std::to_string(ZMQ_SNDHWM), EINVAL);
    standIn.fail("zmq_setsockopt " + std::to_string(ZMQ_RCVHWM), EINVAL);
    Socket socket("part", ClosePolicy::DropPending);
    socket.create(Protocol::Pub);

    EXPECT_THAT(
        standIn.journal().linesWith("error: "),
        ElementsAre("error: [Socket part]: Failed setting emission buffer size: Invalid argument on [Socket part]",
                    "error: [Socket part]: Failed setting reception buffer size: Invalid argument on [Socket part]"));
}

TEST_F(NetworkSettings, KeepTheLimitOfSockets) {
    for (const int limit : {1, 2000, 65535}) {
        EXPECT_EQ("Network: The limit of sockets cannot change after the first socket",
                  textThrownBy<std::logic_error>([limit] { Network::setMaxSockets(limit); }));
    }
}

TEST_F(NetworkSettings, ThrowWhenTheLockFails) {
    for (const auto set : {+[] { Network::setQueueSize(1); }, +[] { Network::setMaxSockets(1); }}) {
        const MutexFault fault(EAGAIN);
        EXPECT_THROW(set(), std::system_error);
    }
}

TEST(NetworkDeathTest, RepairsBeyondZmqsLimit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(repairBeside(1200), testing::ExitedWithCode(0), "");
}

TEST(NetworkDeathTest, LimitsSockets) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exhaust(20), testing::ExitedWithCode(0), "");
}

TEST(NetworkDeathTest, LimitsSocketsAfterALockFails) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(limitAfterFailedLock(), testing::ExitedWithCode(0), "");
}

} // namespace rk::tests
