#include "support/RecordingProxy.h"
#include "support/RemoteSocket.h"
#include "support/SecuredProcess.h"
#include "support/SteadyClock.h"
#include "support/Test.h"

#include <chrono>
#include <future>

namespace rk::tests {

namespace {

using socket::Security::generateKeyPair;
using socket::Security::KeyPair;

constexpr int connectionEnds = ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                               ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;

/// An encrypted reply socket and publish socket, and their clients.
class SecurityServer : public testing::Test {
protected:
    SecurityServer() {
        process.trust(process.itself() + SecuredProcess::asClient(client));
        SteadyClock().advance(std::chrono::minutes(1)); // because each address is logged once a minute
    }

    std::unique_ptr<RemoteSocket> connected(int type, const KeyPair& keys) const {
        auto peer = std::make_unique<RemoteSocket>(type);
        peer->trustServer(process.own.publicKey, keys).connect(endpoint);
        return peer;
    }

    /// Expects `text` to be the next request.
    void expectRequest(const std::string& text) {
        EXPECT_EQ(text, receiveText(server));
        sendText(server, "reply to " + text);
    }

    void expectToServeClient() {
        const auto peer = connected(ZMQ_REQ, client);
        peer->send("from the client");
        expectRequest("from the client");
        EXPECT_EQ("reply to from the client", peer->receive());
    }

    void expectToServeNoPlainClient() {
        RemoteSocket peer(ZMQ_REQ);
        RemoteSocket::Monitor end(peer, connectionEnds);
        peer.connect(endpoint).send("in plain");
        EXPECT_TRUE(end.waitForEvent());
        expectToServeClient();
    }

    bool waitForRefusal(const KeyPair& keys) {
        return standIn.journal().waitFor("warning: Security: Refused the untrusted key " + keys.publicKey +
                                         " of 127.0.0.1");
    }

    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const KeyPair client = generateKeyPair();
    StandIn standIn;
    SecuredProcess process;
    Socket server{"server", ClosePolicy::DropPending};
};

} // namespace

TEST_F(SecurityServer, RefusesUntrustedClient) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const KeyPair untrusted = generateKeyPair();
    const auto peer = connected(ZMQ_REQ, untrusted);
    peer->send("from a stranger");
    EXPECT_TRUE(waitForRefusal(untrusted));
    expectToServeClient();
}

TEST_F(SecurityServer, RefusesUntrustedSubscriber) {
    server.createAndConnect(Protocol::Pub, endpoint, 0);
    const KeyPair untrusted = generateKeyPair();
    const auto peer = connected(ZMQ_SUB, untrusted);
    peer->set(ZMQ_SUBSCRIBE, std::string());
    EXPECT_TRUE(waitForRefusal(untrusted));
    const auto friendly = connected(ZMQ_SUB, client);
    friendly->set(ZMQ_SUBSCRIBE, std::string());
    while (!friendly->hasInputWithin(10)) {
        sendText(server, "news");
    }
    EXPECT_FALSE(peer->hasInputWithin(0));
}

TEST_F(SecurityServer, RefusesServersKeyAsClient) {
    const KeyPair other = generateKeyPair();
    process.trust(SecuredProcess::asClient(client) + SecuredProcess::asServer(other));
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const auto peer = connected(ZMQ_REQ, other);
    peer->send("from a server");
    EXPECT_TRUE(waitForRefusal(other));
    expectToServeClient();
}

TEST_F(SecurityServer, RefusesItsOwnKeyUnlessNamed) {
    process.trust(SecuredProcess::asClient(client) + SecuredProcess::asServer(process.own));
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const auto peer = connected(ZMQ_REQ, process.own);
    peer->send("from a thief");
    EXPECT_TRUE(waitForRefusal(process.own));
    expectToServeClient();
}

TEST_F(SecurityServer, RefusesOlderProtocols) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const std::string signature = std::string("\xff") + std::string(8, '\0') + "\x7f";
    const std::string firstVersion("\x01\x00\x01\x01\x06\x00hello", 11);
    const std::string secondVersion("\x01\x03\x00\x00\x01\x00\x00\x05hello", 13);
    for (const std::string& bytes : {firstVersion, signature + '\0' + firstVersion, signature + secondVersion}) {
        const SystemConnection connection(endpoint.port);
        connection.send(bytes);
        EXPECT_TRUE(connection.waitForEnd());
    }
    expectToServeClient();
}

TEST_F(SecurityServer, SurvivesGarbage) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const std::string greeting = std::string("\xff") + std::string(8, '\0') + "\x7f\x03" + '\0' + "CURVE" +
                                 std::string(15, '\0') + '\0' + std::string(31, '\0');
    for (const std::string& bytes :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string(100000, '\xff'), greeting,
          greeting + std::string(1000, '\0'), greeting + '\x06' + std::string(4, '\0') + '\x10' + std::string(3, '\0'),
          greeting + "\x04\xc8\x05HELLO" + std::string(194, 'x')}) {
        const SystemConnection connection(endpoint.port);
        connection.send(bytes);
    }
    expectToServeClient();
}

TEST_F(SecurityServer, RefusesAReplayedSession) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    std::string session;
    {
        const RecordingProxy proxy(endpoint.port);
        RemoteSocket peer(ZMQ_REQ);
        peer.trustServer(process.own.publicKey, client).connect(proxy.endpoint()).send("once");
        expectRequest("once");
        EXPECT_EQ("reply to once", peer.receive());
        session = proxy.bytesOfClient();
    }
    const SystemConnection thief(endpoint.port);
    thief.send(session);
    EXPECT_TRUE(thief.waitForEnd());
    std::string error;
    EXPECT_EQ(PollResult::Timeout, server.poll(0, error));
    expectToServeClient();
}

TEST_F(SecurityServer, ClosesHalfOpenHandshakes) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const SystemConnection connection(endpoint.port);
    EXPECT_TRUE(connection.waitForEnd());
}

TEST_F(SecurityServer, KeepsRevokedClientUntilRebuilt) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const auto peer = connected(ZMQ_REQ, client);
    peer->send("trusted");
    expectRequest("trusted");
    EXPECT_EQ("reply to trusted", peer->receive());

    const KeyPair other = generateKeyPair();
    process.trust(SecuredProcess::asClient(other));
    peer->send("revoked");
    expectRequest("revoked");
    EXPECT_EQ("reply to revoked", peer->receive());

    server.resetConnections();
    peer->send("disconnected");
    ASSERT_TRUE(waitForRefusal(client));
    const auto admitted = connected(ZMQ_REQ, other);
    admitted->send("admitted");
    expectRequest("admitted");
}

TEST_F(SecurityServer, IgnoresFilesUntilEnabled) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const KeyPair other = generateKeyPair();
    process.files.write("keys", other);
    process.files.write("trusted", SecuredProcess::asClient(other));
    expectToServeClient();
    server.resetConnections();
    expectToServeClient();
    const auto peer = connected(ZMQ_REQ, other);
    peer->send("too early");
    EXPECT_TRUE(waitForRefusal(other));
}

TEST_F(SecurityServer, KeepsItsKeysUntilRebuilt) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const KeyPair next = generateKeyPair();
    process.enable(next, SecuredProcess::asClient(client));
    expectToServeClient();

    server.resetConnections();
    RemoteSocket peer(ZMQ_REQ);
    peer.trustServer(next.publicKey, client).connect(endpoint).send("to the next key");
    expectRequest("to the next key");
}

TEST_F(SecurityServer, ServesAfterARepair) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const auto peer = connected(ZMQ_REQ, client);
    peer->set(ZMQ_REQ_RELAXED, 1);
    peer->send("unanswered");
    EXPECT_EQ("unanswered", receiveText(server));
    auto other = std::async(std::launch::async, [&] { // after the rebuild, because an earlier request would be lost
        standIn.journal().waitFor("debug: Connected [Socket server]", 2);
        auto next = connected(ZMQ_REQ, client);
        next->send("after the repair");
        return next;
    });
    expectRequest("after the repair");
    EXPECT_EQ("reply to after the repair", other.get()->receive());
    EXPECT_EQ(1U, standIn.journal().count("warning: [Socket server] Attempting reset"));
}

TEST_F(SecurityServer, ServesPlainOnIpcAlone) {
    const SocketEndpoint ipc = freshEndpoint(Transport::Ipc);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    server.connect(ipc, patienceMs);
    RemoteSocket peer(ZMQ_REQ);
    peer.connect(ipc).send("in plain");
    expectRequest("in plain");
    EXPECT_EQ("reply to in plain", peer.receive());
    expectToServeNoPlainClient();
}

TEST_F(SecurityServer, EncryptsBehindIpc) {
    server.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Ipc), patienceMs);
    server.connect(endpoint, patienceMs);
    expectToServeNoPlainClient();
}

TEST_F(SecurityServer, DisconnectsLargeMessages) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    RemoteSocket peer(ZMQ_REQ);
    RemoteSocket::Monitor end(peer, ZMQ_EVENT_DISCONNECTED);
    peer.trustServer(process.own.publicKey, client).connect(endpoint).send(std::string(16 * 1024 * 1024 + 1, 'x'));
    EXPECT_TRUE(end.waitForEvent());
    expectToServeClient();
}

TEST_F(SecurityServer, ReceivesTheLargestMessage) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const auto peer = connected(ZMQ_REQ, client);
    peer->send(std::string(16 * 1024 * 1024, 'x'));
    char byte = 0;
    EXPECT_EQ(16 * 1024 * 1024, server.receive(&byte, sizeof byte));
}

TEST_F(SecurityServer, RejectsTheAuthenticatorsName) {
    const SocketEndpoint authenticator(Transport::Inproc, "zeromq.zap.01", 0);
    for (const Protocol::Protocol protocol : everyPattern) {
        Socket intruder("intruder", ClosePolicy::DropPending);
        EXPECT_EQ("Socket: Cannot use the name of the authenticator on [Socket intruder]",
                  textThrownBy([&] { intruder.createAndConnect(protocol, authenticator, 0); }));
    }
}

} // namespace rk::tests
