#include "support/Test.h"
#include "support/ThreadFaults.h"
#include "support/ZmqHandle.h"
#include "support/messages.pb.h"

#include <rk/socket/utils/Subscriber.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace rk::tests {

namespace {

using socket::utils::SocketListener;

static_assert(std::is_convertible_v<socket::utils::Subscriber<Text>*, SocketListener*>);
static_assert(std::is_final_v<socket::utils::Subscriber<Text>>);

class Subscriber : public testing::Test {
protected:
    Subscriber() { publisher.createAndConnect(Protocol::Pub, endpoint, 0); }

    /// Publishes until the subscriber has received a message.
    std::string textReceivedOf(const std::string& text) {
        Text message;
        message.set_text(text);
        auto received = promise.get_future();
        while (received.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
            publisher.sendProtoBuf(message);
        }
        return received.get();
    }

    const ContextOfTheProcess context;
    StandIn standIn;
    std::optional<PollsRunOut> pollsRunOut;
    const BeforeJoin endOfPolls{[this] { pollsRunOut.emplace(); }};
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket publisher{"source", ClosePolicy::DropPending};
    std::promise<std::string> promise;
    std::once_flag once;
    std::string error;
    socket::utils::Subscriber<Text> subscriber{
        "feed", [this](const Text& text) { std::call_once(once, [&] { promise.set_value(text.text()); }); }};
};

} // namespace

TEST_F(Subscriber, PassesMessagesToTheHandler) {
    ASSERT_TRUE(subscriber.addListenEndpoint(endpoint.toString(Protocol::Sub), error)) << error;
    ASSERT_TRUE(subscriber.start(error)) << error;

    EXPECT_TRUE(subscriber.isServing());
    EXPECT_EQ("news", textReceivedOf("news"));
}

TEST_F(Subscriber, ReceivesUpToTheSetSize) {
    subscriber.setMessageBufferSize(1000000);
    ASSERT_TRUE(subscriber.addListenEndpoint(endpoint.toString(Protocol::Sub), error)) << error;
    ASSERT_TRUE(subscriber.start(error)) << error;

    EXPECT_EQ(900000U, textReceivedOf(std::string(900000, 'x')).size());
}

TEST_F(Subscriber, RefusesAnEmptyHandler) {
    EXPECT_EQ("[Socket Listener sub] Cannot listen without a handler",
              textThrownBy<std::invalid_argument>([] { socket::utils::Subscriber<Text>("feed", nullptr); }));
}

TEST_F(Subscriber, FailsToStartWithTheReason) {
    ASSERT_TRUE(subscriber.addListenEndpoint(endpoint.toString(Protocol::Sub), error)) << error;
    standIn.fail("zmq_connect", EINVAL);

    EXPECT_FALSE(subscriber.start(error));

    EXPECT_EQ("[Socket Listener sub] Failed connecting endpoint " + endpoint.toString(Protocol::Sub) +
                  ": Socket: Failed connecting/binding socket: Invalid argument on [Socket feed]",
              error);
    EXPECT_FALSE(subscriber.isServing());
    EXPECT_TRUE(subscriber.start(error)) << error;
}

TEST_F(Subscriber, StopsInItsOwnDestructor) {
    std::promise<void> entered;
    std::promise<void> left;
    auto captured = std::make_shared<int>();
    bool outlived = false;
    {
        const BeforeJoin release([&] { left.set_value(); });
        const std::weak_ptr<int> watched = captured;
        // The destructor of the base class would stop the thread too late, after the handler was destroyed.
        socket::utils::Subscriber<Text> slow("slow", [&, kept = std::move(captured)](const Text&) {
            entered.set_value();
            left.get_future().wait();
            outlived = !watched.expired();
        });
        ASSERT_TRUE(slow.addListenEndpoint(endpoint.toString(Protocol::Sub), error)) << error;
        ASSERT_TRUE(slow.start(error)) << error;
        auto running = entered.get_future();
        while (running.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
            publisher.send("");
        }
    }
    EXPECT_TRUE(outlived);
}

} // namespace rk::tests
