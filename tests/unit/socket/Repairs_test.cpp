#include "support/Calls.h"
#include "support/NativeSocket.h"
#include "support/Test.h"
#include "support/messages.pb.h"

#include <zmq.h>

#include <functional>
#include <list>
#include <random>
#include <thread>
#include <utility>

namespace rk::tests {

namespace {

using calls::operator+;

const auto counts = testing::Values(1, 2, 3, 4, 5, 8, 17, 50);

/// A socket with endpoints of mixed transports and receive timeouts, and peers for them.
class Repaired {
public:
    Repaired(Protocol::Protocol pattern, int count, ClosePolicy::ClosePolicy closePolicy = ClosePolicy::DropPending)
        : protocol(pattern),
          policy(closePolicy),
          random(static_cast<unsigned int>(17 * count + pattern)),
          socket("x", closePolicy) {
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

    /// Returns the same calls from the model.
    calls::Lines modelOfRebuild() const {
        calls::Lines lines{"zmq_close", calls::open(protocol)};
        for (const auto& [endpoint, timeout] : connections) {
            lines = lines + calls::connect("x", protocol, policy, endpoint, timeout);
        }
        return lines;
    }

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

    /// Expects messages of every publisher to arrive.
    void expectNewsOfEveryPeer() {
        for (std::size_t number = 0; number < peers.size(); ++number) {
            expectNews([&](const std::string& text) { peer(number).send(text); }, socket);
        }
    }

    /// Expects subscribers of every endpoint to receive.
    void expectSubscribersHear() {
        for (const auto& [endpoint, timeout] : connections) {
            Peer subscriber("subscriber", Protocol::Sub, endpoint);
            expectNews([&](const std::string& text) { sendText(socket, text); }, subscriber);
        }
    }

    const ContextOfTheProcess context;
    const Protocol::Protocol protocol;
    const ClosePolicy::ClosePolicy policy;
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

    /// Publishes repeatedly, because a subscription takes time to arrive.
    void expectNews(const std::function<void(const std::string&)>& publish, Socket& subscriber) {
        static int edition = 0;
        const std::string text = "edition " + std::to_string(++edition);
        do {
            publish(text);
        } while (!hears(text, subscriber));
    }

    /// Skips older messages.
    static bool hears(const std::string& text, Socket& subscriber) {
        std::string error;
        while (subscriber.poll(1, error) == PollResult::Input) {
            if (receiveText(subscriber) == text) {
                return true;
            }
        }
        return false;
    }
};

class Repairs : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Of, Repairs, counts);

/// Returns one policy for many endpoints. ZeroMQ closes peers' sockets slowly and has at most 1,023.
std::vector<ClosePolicy::ClosePolicy> policiesFor(int count) {
    if (count > 8) {
        return {ClosePolicy::WaitForDelivery};
    }
    return {ClosePolicy::DropPending, ClosePolicy::LingerTwoSeconds, ClosePolicy::WaitForDelivery};
}

} // namespace

TEST_P(Repairs, ConnectsEachLikeTheModel) {
    for (const auto pattern : everyPattern) {
        for (const auto policy : policiesFor(GetParam())) {
            Repaired repaired(pattern, GetParam(), policy);
            EXPECT_EQ(repaired.modelOfRebuild(), repaired.linesOfRebuild());
        }
    }
}

TEST_P(Repairs, RebuildsInOrderEveryTime) {
    for (const auto pattern : everyPattern) {
        for (const auto policy : policiesFor(GetParam())) {
            Repaired repaired(pattern, GetParam(), policy);
            for (int round = 0; round < 4; ++round) {
                EXPECT_EQ(repaired.linesOfRebuild(), repaired.linesOf([&] { repaired.socket.resetConnections(); }));
            }
        }
    }
}

TEST_P(Repairs, KeepsTheOrderOfARequestersPeers) {
    Repaired repaired(Protocol::Req, GetParam());
    repaired.expectPeersInOrder();
    repaired.socket.resetConnections();
    repaired.expectPeersInOrder();
}

TEST_P(Repairs, ServesEveryClientOfAReplier) {
    Repaired repaired(Protocol::Rep, GetParam());
    repaired.expectClientsServed();
    repaired.socket.resetConnections();
    repaired.expectClientsServed();
}

TEST_P(Repairs, KeepsASubscriberOnEveryPublisher) {
    Repaired repaired(Protocol::Sub, GetParam());
    repaired.expectNewsOfEveryPeer();
    repaired.socket.resetConnections();
    repaired.expectNewsOfEveryPeer();
}

TEST_P(Repairs, KeepsAPublisherForEverySubscriber) {
    Repaired repaired(Protocol::Pub, GetParam());
    repaired.expectSubscribersHear();
    repaired.socket.resetConnections();
    repaired.expectSubscribersHear();
}

TEST_P(Repairs, SendsAfterEachOfManyJams) {
    for (const auto policy : policiesFor(GetParam())) {
        Repaired repaired(Protocol::Req, GetParam(), policy);
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
}

TEST_P(Repairs, ReceivesAfterEachOfManyJams) {
    for (const auto policy : policiesFor(GetParam())) {
        Repaired repaired(Protocol::Rep, GetParam(), policy);
        NativeSocket first(Protocol::Req);
        first.connect(repaired.connections.front().first);
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
            EXPECT_EQ(repaired.linesOfJam("zmq_recv 256 bytes, flags 0"),
                      calls::once(repaired.standIn.journal().lines()));
        }
        sendText(repaired.socket, "reply");
        repaired.expectClientsServed();
    }
}

TEST_P(Repairs, StopsAtTheFailingEndpoint) {
    for (int failing = 1; failing <= GetParam(); failing += 1 + GetParam() / 5) {
        Repaired repaired(Protocol::Req, GetParam());
        repaired.standIn.fail("zmq_connect", EINVAL, failing);
        const calls::Lines lines = repaired.linesOf([&] { repaired.socket.resetConnections(); });
        EXPECT_EQ("error: [Socket x]: Error resetting socket: Socket: Failed connecting/binding socket: Invalid "
                  "argument on [Socket x]",
                  lines.back());
        EXPECT_EQ(static_cast<std::size_t>(failing), repaired.standIn.journal().count("debug: Connecting"));
        EXPECT_THAT(repaired.linesOf([&] { repaired.socket.resetConnections(); }), ElementsAre());
    }
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

TEST_P(Repairs, ResetsOnlyTheQueueSize) {
    Repaired repaired(Protocol::Req, GetParam());
    repaired.standIn.setClock(1000.0);
    repaired.socket.setTargetBitRate(1);
    repaired.socket.activateStatistics(true);
    Text text;
    text.set_text(std::string(131072 - 4, 'x'));
    for (int exchange = 0; exchange < 100; ++exchange) {
        repaired.socket.setInternalFifoSize(7);
        EXPECT_EQ(repaired.linesOfRebuild(), repaired.linesOf([&] { repaired.socket.resetConnections(); }));
        repaired.socket.sendProtoBuf(&text);
        EXPECT_EQ(exchange == 0 ? 0U : 1U, repaired.standIn.journal().count("usleep 1000000"));
        EXPECT_EQ(131072U, text.ByteSizeLong());
        EXPECT_EQ(exchange % 50 == 49 ? 1U : 0U, repaired.standIn.journal().count("debug: [Socket x]: Rate is "));
    }
}

} // namespace rk::tests
