#include "support/RecordingListener.h"
#include "support/RemoteSocket.h"
#include "support/SecuredProcess.h"

#include <rk/socket/Network.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <future>

namespace rk::tests {

namespace {

using socket::Security::generateKeyPair;

/// A reply listener with an encrypted endpoint. A stray frame has blocked it in its receive.
class ListenerSecurity : public testing::Test {
protected:
    void block() {
        stray.trustServer(process.own.publicKey, process.own).connect(endpoint).send("x");
        ASSERT_TRUE(standIn.journal().waitFor("zmq_recv 131072"));
    }

    void expectStop() {
        std::string error;
        auto stop = std::async(std::launch::async, [&] { return listener.SocketListener::stop(error); });
        const bool inTime = stop.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
        EXPECT_TRUE(inTime);
        if (!inTime) {
            std::_Exit(1); // because no peer could wake it either
        }
        EXPECT_TRUE(stop.get()) << error;
    }

    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    StandIn standIn;
    SecuredProcess process;
    RecordingListener listener{Protocol::Rep};
    RemoteSocket stray{ZMQ_DEALER};
};

} // namespace

TEST_F(ListenerSecurity, ServesAfterARestart) {
    listener.serve(endpoint);
    EXPECT_EQ("first", ask(endpoint, "first"));
    std::string error;
    ASSERT_TRUE(listener.stop(error)) << error;
    ASSERT_TRUE(listener.start(error)) << error;
    EXPECT_EQ("second", ask(endpoint, "second"));
    EXPECT_THAT(listener.texts(), ElementsAre("first", "second"));
}

TEST_F(ListenerSecurity, StopsInAReceive) {
    listener.serve(endpoint);
    block();
    expectStop();
}

TEST_F(ListenerSecurity, StopsInAReceiveAfterNewKeys) {
    listener.serve(endpoint);
    block();
    process.enable(generateKeyPair(), "");
    expectStop();
}

TEST_F(ListenerSecurity, StopsInAReceiveOnIpcToo) {
    std::string error;
    ASSERT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Req), error));
    listener.serve(freshEndpoint(Transport::Ipc));
    block();
    standIn.journal().clear();
    standIn.fail("zmq_connect", EINVAL); // the encrypted one
    expectStop();
    EXPECT_EQ(2U, standIn.journal().count("zmq_connect"));
}

TEST_F(ListenerSecurity, ReconnectsWithARevokedServer) {
    Network::setSilenceLimit(1);
    const SocketEndpoint revoked = freshEndpoint(Transport::Tcp);
    RecordingListener subscriber(Protocol::Sub);
    std::string error;
    ASSERT_TRUE(subscriber.addListenEndpoint(revoked.toString(Protocol::Sub), error));
    subscriber.serve(endpoint);
    process.trust(process.own.publicKey + " " + endpoint.toString(Protocol::Sub) + "\n");
    {
        const PollsRunOut runOut;
        EXPECT_TRUE(standIn.journal().waitFor("zmq_connect " + endpoint.toString(Protocol::Sub), 2));
    }
    subscriber.stop(error);
    Network::setSilenceLimit(0);
}

TEST_F(ListenerSecurity, StopsAfterAnOptionFails) {
    listener.serve(endpoint);
    block();
    standIn.fail("zmq_setsockopt " + std::to_string(ZMQ_CURVE_SERVERKEY), EINVAL);
    expectStop();
}

} // namespace rk::tests
