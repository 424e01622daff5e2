#include "support/CurvePeer.h"
#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/Patterns.h"
#include "support/RecordingListener.h"
#include "support/SecuredProcess.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Security.h>
#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <memory>
#include <string>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using socket::Security::generateKeyPair;
using socket::Security::KeyPair;
namespace ClosePolicy = socket::ClosePolicy;
namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

/// Whom a reply socket serves, and a publish socket.
class SecurityServer : public testing::Test {
protected:
    SecurityServer() { process.trust(process.itself() + SecuredProcess::asClient(client)); }

    std::unique_ptr<CurvePeer> connected(int type, const KeyPair& keys) const {
        auto peer = std::make_unique<CurvePeer>(type);
        peer->trustServer(process.own.publicKey, keys).connect(endpoint);
        return peer;
    }

    /// Expects that the reply socket receives just this.
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

    bool waitForRefusal(const KeyPair& keys) const {
        return standIn.journal().waitFor("warning: Security: Refused the untrusted key " + keys.publicKey +
                                         " of 127.0.0.1");
    }

    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const KeyPair client = generateKeyPair();
    mutable StandIn standIn;
    SecuredProcess process;
    Socket server{"server", ClosePolicy::DropPending};
};

} // namespace

TEST_F(SecurityServer, ServesItsOwnProcess) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    Socket requester("requester", ClosePolicy::DropPending);
    requester.createAndConnect(Protocol::Req, endpoint, patienceMs);
    sendText(requester, "question");
    expectRequest("question");
    EXPECT_EQ("reply to question", receiveText(requester));
}

TEST_F(SecurityServer, ServesTrustedClient) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    expectToServeClient();
}

TEST_F(SecurityServer, PublishesToTrustedClient) {
    server.createAndConnect(Protocol::Pub, endpoint, 0);
    const auto peer = connected(ZMQ_SUB, client);
    peer->set(ZMQ_SUBSCRIBE, std::string());
    while (!peer->hasInputWithin(10)) {
        sendText(server, "news");
    }
    EXPECT_EQ("news", peer->receive());
}

TEST_F(SecurityServer, RefusesUntrustedClient) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    const KeyPair untrusted = generateKeyPair();
    const auto peer = connected(ZMQ_REQ, untrusted);
    peer->send("from a stranger");
    EXPECT_TRUE(waitForRefusal(untrusted));
    expectToServeClient();
}

} // namespace rk::tests
