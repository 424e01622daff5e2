#include "support/RecordingListener.h"
#include "support/RecordingProxy.h"
#include "support/RemoteSocket.h"
#include "support/SecuredProcess.h"
#include "support/SteadyClock.h"

#include <rk/socket/Network.h>
#include <rk/socket/TimeoutException.h>
#include <rk/socket/utils/Requester.h>

#include <chrono>

namespace rk::tests {

namespace {

using socket::Security::generateKeyPair;
using socket::Security::KeyPair;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

constexpr int connectionFails =
    ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL | ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL;

/// Connects request and subscribe sockets to encrypted servers.
class SecurityClient : public testing::Test {
protected:
    SecurityClient() {
        process.trust(SecuredProcess::asServer(server));
        SteadyClock().advance(std::chrono::minutes(1)); // because each address is logged once a minute
    }

    /// Sends a request to `peer` and expects that it does not arrive.
    void expectSilence(RemoteSocket& peer) {
        Socket client("client", ClosePolicy::DropPending);
        client.createAndConnect(Protocol::Req, endpoint, 300);
        sendText(client, "secret");
        textThrownBy<TimeoutException>([&] { receiveText(client); });
        EXPECT_FALSE(peer.hasInputWithin(0));
    }

    std::string refusalOf(const SocketEndpoint& target) const {
        Socket client("client", ClosePolicy::DropPending);
        return textIfThrownBy([&] { client.createAndConnect(Protocol::Req, target, 0); });
    }

    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const KeyPair server = generateKeyPair();
    StandIn standIn;
    SecuredProcess process;
};

/// A wrong server to which an encrypted client connects.
enum class Impostor {
    PlainServer,
    OtherProtocol
};

/// A way to recover a client whose connection ZeroMQ has closed permanently.
class SecurityClientRecovery : public SecurityClient, public testing::WithParamInterface<Impostor> {
protected:
    ~SecurityClientRecovery() override { Network::setSilenceLimit(0); }

    /// Connects, and returns once the connection has ended.
    template <class Connect>
    void meetImpostor(const Connect& connect) const {
        if (GetParam() == Impostor::OtherProtocol) {
            const WrongServer wrong(endpoint);
            connect();
            EXPECT_TRUE(wrong.answerOne());
            return;
        }
        RemoteSocket plain(ZMQ_PUB);
        RemoteSocket::Monitor refusal(plain, connectionFails);
        plain.bind(endpoint);
        connect();
        EXPECT_TRUE(refusal.waitForEvent());
    }

    /// Publishes from the right server.
    template <class Condition>
    bool publishUntil(const Condition& isHeard) const {
        Text news;
        news.set_text("news");
        RemoteSocket publisher(ZMQ_PUB);
        publisher.serveWith(server).bind(endpoint);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!isHeard() && std::chrono::steady_clock::now() < deadline) {
            publisher.send(news.SerializeAsString());
            publisher.hasInputWithin(10);
        }
        return isHeard();
    }
};

INSTANTIATE_TEST_SUITE_P(From, SecurityClientRecovery, testing::Values(Impostor::PlainServer, Impostor::OtherProtocol),
                         [](const auto& tested) {
                             return tested.param == Impostor::PlainServer ? "PlainServer" : "OtherProtocol";
                         });

/// A request socket and a reply socket that does not trust its key, in one process.
class SecurityClientRefused : public SecurityClient {
protected:
    SecurityClientRefused() {
        process.trust(SecuredProcess::asServer(process.own));
        reply.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    }

    bool waitForRefusal() {
        return standIn.journal().waitFor("warning: Security: Refused the untrusted key " + process.own.publicKey);
    }

    std::string request(milliseconds timeout, unsigned int attempts) {
        Text question;
        question.set_text("question");
        Text answer;
        requester.request(question, answer, timeout, attempts);
        return answer.text();
    }

    Socket reply{"server", ClosePolicy::DropPending};
    socket::utils::Requester requester{"requester", endpoint};
};

} // namespace

TEST_F(SecurityClient, SubscribesWithEachServersKey) {
    const SocketEndpoint second = freshEndpoint(Transport::Tcp);
    const KeyPair other = generateKeyPair();
    process.trust(SecuredProcess::asServer(server) + other.publicKey +
                  " tcp://127.0.0.1:" + std::to_string(second.port) + "\n");
    RemoteSocket publisher(ZMQ_PUB);
    publisher.serveWith(server).bind(endpoint);
    RemoteSocket otherPublisher(ZMQ_PUB);
    otherPublisher.serveWith(other).bind(second);
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Sub, endpoint, patienceMs);
    client.connect(second, patienceMs);
    std::string error;
    std::string heard;
    while (heard.find("one") == std::string::npos || heard.find("two") == std::string::npos) {
        publisher.send("one");
        otherPublisher.send("two");
        while (client.poll(10, error) == PollResult::Input) {
            heard += receiveText(client);
        }
    }
}

TEST_F(SecurityClient, SendsNothingToFalseServer) {
    RemoteSocket peer(ZMQ_REP);
    peer.serveWith(generateKeyPair()).bind(endpoint);
    expectSilence(peer);
}

TEST_F(SecurityClient, SendsNothingToPlainServer) {
    RemoteSocket peer(ZMQ_REP);
    peer.bind(endpoint);
    expectSilence(peer);
}

TEST_F(SecurityClient, SendsNothingInPlain) {
    const std::string question(100, 'q');
    const std::string answer(100, 'a');
    RemoteSocket peer(ZMQ_REP);
    peer.serveWith(server).bind(endpoint);
    const RecordingProxy proxy(endpoint.port);
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, proxy.endpoint(), patienceMs);
    sendText(client, question);
    EXPECT_EQ(question, peer.receive());
    peer.send(answer);
    EXPECT_EQ(answer, receiveText(client));
    for (const std::string& bytes : {proxy.bytesOfClient(), proxy.bytesOfServer()}) {
        EXPECT_LT(400U, bytes.size());
        EXPECT_THAT(bytes, Not(HasSubstr("qqqqqqqq")));
        EXPECT_THAT(bytes, Not(HasSubstr("aaaaaaaa")));
    }
}

TEST_F(SecurityClient, RefusesServersWithoutKey) {
    const std::string port = std::to_string(endpoint.port);
    EXPECT_EQ("Socket: No trusted key for tcp://localhost:" + port + " on [Socket client]",
              refusalOf({Transport::Tcp, "localhost", endpoint.port}));
    process.trust(server.publicKey + " tcp://localhost:0" + port + "\n");
    EXPECT_EQ("", refusalOf({Transport::Tcp, "localhost", endpoint.port}));
    EXPECT_EQ("Socket: No trusted key for tcp://localhost:1 on [Socket client]",
              refusalOf({Transport::Tcp, "localhost", 1}));
}

TEST_F(SecurityClient, PrefersTheKeyForThePort) {
    process.trust(generateKeyPair().publicKey + " tcp://127.0.0.1:*\n" + server.publicKey +
                  " tcp://127.0.0.1:" + std::to_string(endpoint.port) + "\n");
    RemoteSocket peer(ZMQ_REP);
    peer.serveWith(server).bind(endpoint);
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    sendText(client, "question");
    EXPECT_EQ("question", peer.receive());
}

TEST_F(SecurityClient, ConnectsInPlainBehindTcp) {
    const SocketEndpoint ipc = freshEndpoint(Transport::Ipc);
    RemoteSocket peer(ZMQ_PUB);
    peer.bind(ipc);
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Sub, endpoint, 0);
    client.connect(ipc, patienceMs);
    std::string error;
    while (client.poll(10, error) != PollResult::Input) {
        peer.send("news");
    }
    EXPECT_EQ("news", receiveText(client));
}

TEST_P(SecurityClientRecovery, HearsAfterSilence) {
    Network::setSilenceLimit(1);
    RecordingListener listener(Protocol::Sub);
    meetImpostor([&] { listener.serve(endpoint); });
    EXPECT_TRUE(publishUntil([&] { return !listener.texts().empty(); }));
}

TEST_P(SecurityClientRecovery, HearsAfterARebuild) {
    Socket client("client", ClosePolicy::DropPending);
    meetImpostor([&] { client.createAndConnect(Protocol::Sub, endpoint, 0); });
    client.resetConnections();
    std::string error;
    EXPECT_TRUE(publishUntil([&] { return client.poll(0, error) == PollResult::Input; }));
}

TEST_P(SecurityClientRecovery, RequestsAfterARepair) {
    Socket client("client", ClosePolicy::DropPending);
    meetImpostor([&] {
        client.createAndConnect(Protocol::Req, endpoint, 1);
        sendText(client, "lost");
    });
    textThrownBy<TimeoutException>([&] { receiveText(client); });
    sendText(client, "repeated");
    RemoteSocket peer(ZMQ_REP);
    peer.serveWith(server).bind(endpoint);
    EXPECT_EQ("repeated", peer.receive());
    EXPECT_EQ(1U, standIn.journal().count("warning: [Socket client] Attempting reset"));
}

TEST_F(SecurityClientRefused, TimesOutAfterAFirstSend) {
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, 300);
    ASSERT_TRUE(waitForRefusal());
    sendText(client, "question");
    EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket client]",
              textThrownBy<TimeoutException>([&] { receiveText(client); }));
}

TEST_F(SecurityClientRefused, TimesOutAsARequester) {
    EXPECT_EQ("[Socket requester]: No reply from " + endpoint.toString(Protocol::Req) +
                  " within 300 ms, attempts made: 3",
              textThrownBy<TimeoutException>([&] { request(milliseconds(300), 3); }));
    std::string error;
    EXPECT_EQ(PollResult::Timeout, reply.poll(0, error));
}

TEST_F(SecurityClientRefused, SendsOnceTrusted) {
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    sendText(client, "question");
    ASSERT_TRUE(waitForRefusal());
    process.trust(process.itself());
    EXPECT_EQ("question", receiveText(reply));
    sendText(reply, "answer");
    EXPECT_EQ("answer", receiveText(client));
}

TEST_F(SecurityClientRefused, HearsOnceTrusted) {
    const SocketEndpoint feed = freshEndpoint(Transport::Tcp);
    Socket publisher("publisher", ClosePolicy::DropPending);
    publisher.createAndConnect(Protocol::Pub, feed, 0);
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Sub, feed, patienceMs);
    ASSERT_TRUE(waitForRefusal());
    process.trust(process.itself());
    std::string error;
    do {
        sendText(publisher, "news");
    } while (client.poll(10, error) != PollResult::Input);
    EXPECT_EQ("news", receiveText(client));
}

TEST_F(SecurityClientRefused, IsServedOnceTrusted) {
    textThrownBy<TimeoutException>([&] { request(milliseconds(300), 1); });
    process.trust(process.itself());
    reply.close();
    RecordingListener listener(Protocol::Rep);
    listener.serve(endpoint);
    EXPECT_EQ("question", request(milliseconds(patienceMs), 1));
}

} // namespace rk::tests
