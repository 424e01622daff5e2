#include "support/Calls.h"
#include "support/NativeSocket.h"
#include "support/Test.h"

#include <zmq.h>

#include <functional>
#include <list>
#include <random>
#include <thread>
#include <utility>

namespace rk::tests {

namespace {

using calls::operator+;

/// A socket with endpoints of mixed transports and receive timeouts, and peers for them. The close policy differs from
/// count to count.
class Repaired {
public:
    Repaired(Protocol::Protocol pattern, int count)
        : protocol(pattern),
          random(static_cast<unsigned int>(17 * count + pattern)),
          socket("x", static_cast<ClosePolicy::ClosePolicy>(count % 3)) {
        for (int number = 0; number < count; ++number) {
            addEndpoint();
        }
        standIn.journal().clear();
        socket.create(protocol);
        for (const auto& [endpoint, timeout] : connections) {
            socket.connect(endpoint, timeout);
        }
        made = standIn.journal().lines();
    }

    /// Returns the expected calls of a rebuild: a close, and the calls of the original connects.
    calls::Lines linesOfRebuild() const { return calls::Lines{"zmq_close"} + made; }

    calls::Lines linesOfJam(const std::string& call) const {
        return calls::Lines{call, calls::repairWarning("x")} + linesOfRebuild() + calls::Lines{call};
    }

    /// Returns the journal of `action`.
    calls::Lines linesOf(const std::function<void()>& action) {
        standIn.journal().clear();
        action();
        return calls::once(standIn.journal().lines());
    }

    NativeSocket& peer(std::size_t number) { return *std::next(peers.begin(), static_cast<std::ptrdiff_t>(number)); }

    /// Peer `number` receives `text` and replies. Skips requests of replaced sockets, which may arrive first.
    void expectAtPeer(std::size_t number, const std::string& text) {
        std::string received = peer(number).receive();
        while (received != text && !received.empty()) {
            peer(number).send("nobody awaits this");
            received = peer(number).receive();
        }
        EXPECT_EQ(text, received) << number;
        peer(number).send("reply to " + text);
    }

    /// Expects every endpoint to be connected in order. ZeroMQ sends to the peers in the order of the connects.
    void expectPeersInOrder(std::size_t from = 0) {
        for (std::size_t number = from; number < peers.size(); ++number) {
            const std::string text = "to " + std::to_string(number);
            sendText(socket, text);
            expectAtPeer(number, text);
            EXPECT_EQ("reply to " + text, receiveText(socket));
        }
    }

    void expectClientsServed() {
        for (const auto& [endpoint, timeout] : connections) {
            NativeSocket client(Protocol::Req, endpoint);
            client.send("request");
            EXPECT_EQ("request", receiveText(socket)) << endpoint.address;
            sendText(socket, "reply");
            EXPECT_EQ("reply", client.receive());
        }
    }

    const ContextOfTheProcess context;
    const Protocol::Protocol protocol;
    std::vector<std::pair<SocketEndpoint, unsigned int>> connections;
    StandIn standIn;
    std::list<NativeSocket> peers;
    std::mt19937 random;
    Socket socket;
    calls::Lines made;

private:
    void addEndpoint() {
        const auto transport = static_cast<Transport::Transport>(1 + random() % 3);
        const auto timeout = static_cast<unsigned int>(random() % 4 == 0 ? 0 : 20000 + random() % 100000);
        const SocketEndpoint endpoint = freshEndpoint(transport);
        if (!calls::binds(protocol)) {
            peers.emplace_back(protocol == Protocol::Req ? Protocol::Rep : Protocol::Pub).bind(endpoint);
        }
        connections.emplace_back(endpoint, timeout);
    }
};

class Repairs : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Of, Repairs, testing::Values(1, 2, 3, 4, 5, 8, 17, 50));

} // namespace

TEST_P(Repairs, RebuildsInOrderEveryTime) {
    for (const auto pattern : everyPattern) {
        Repaired repaired(pattern, GetParam());
        for (int round = 0; round < 4; ++round) {
            EXPECT_EQ(repaired.linesOfRebuild(), repaired.linesOf([&] { repaired.socket.resetConnections(); }));
        }
    }
}

TEST_P(Repairs, SendsAfterEachOfManyJams) {
    Repaired repaired(Protocol::Req, GetParam());
    sendText(repaired.socket, "lost");
    for (int jam = 0; jam < 3; ++jam) {
        const std::string text = "jam " + std::to_string(jam);
        EXPECT_EQ(repaired.linesOfJam("zmq_send 5 bytes, flags 0"),
                  repaired.linesOf([&] { sendText(repaired.socket, text); }));
        repaired.expectAtPeer(0, text);
    }
    EXPECT_EQ("reply to jam 2", receiveText(repaired.socket));
    repaired.expectPeersInOrder(1);
}

TEST_P(Repairs, ReceivesAfterEachOfManyJams) {
    Repaired repaired(Protocol::Rep, GetParam());
    NativeSocket first(Protocol::Req, repaired.connections.front().first);
    first.send("lost");
    EXPECT_EQ("lost", receiveText(repaired.socket));
    for (int jam = 0; jam < 3; ++jam) {
        const SocketEndpoint endpoint = repaired.connections[repaired.random() % repaired.connections.size()].first;
        NativeSocket client(Protocol::Req);
        repaired.standIn.journal().clear();
        std::thread thread([&] {
            repaired.standIn.journal().waitFor("debug: Connected", repaired.connections.size());
            client.connect(endpoint);
            client.send("again");
        });
        EXPECT_EQ("again", receiveText(repaired.socket));
        thread.join();
        EXPECT_EQ(repaired.linesOfJam("zmq_recv 256 bytes, flags 0"), calls::once(repaired.standIn.journal().lines()));
    }
    sendText(repaired.socket, "reply");
    repaired.expectClientsServed();
}

TEST_P(Repairs, IgnoresDuplicateEndpoints) {
    Repaired repaired(Protocol::Req, GetParam());
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(repaired.linesOf([&] {
            for (const auto& [endpoint, timeout] : repaired.connections) {
                repaired.socket.connect(endpoint, timeout + 1);
            }
        }),
                    ElementsAre());
        EXPECT_EQ(repaired.linesOfRebuild(), repaired.linesOf([&] { repaired.socket.resetConnections(); }));
    }
}

} // namespace rk::tests
