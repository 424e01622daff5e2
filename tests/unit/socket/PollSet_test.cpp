#include "support/Feed.h"
#include "support/Signals.h"
#include "support/Test.h"

#include <rk/socket/PollSet.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <sys/eventfd.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace rk::tests {

namespace {

using std::chrono::milliseconds;

static_assert(!std::is_copy_constructible_v<socket::PollSet>);
static_assert(!std::is_copy_assignable_v<socket::PollSet>);

template <class Target, class = void>
constexpr bool isAccepted = false;
template <class Target>
constexpr bool isAccepted<Target, std::void_t<decltype(std::declval<socket::PollSet>().add(
                                      std::declval<Target>(), std::function<void()>()))>> = true;
static_assert(isAccepted<Socket&> && isAccepted<int> && isAccepted<const int&>);
static_assert(!isAccepted<bool> && !isAccepted<Socket*> && !isAccepted<const Socket&> && !isAccepted<std::nullptr_t>);

constexpr milliseconds atOnce{0};
constexpr milliseconds withoutLimit{-1};
constexpr milliseconds patience{20000};

/// A descriptor that a test makes readable.
class Event {
public:
    ~Event() { close(); }
    Event() = default;
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    int get() const { return descriptor; }
    void raise() const { EXPECT_EQ(0, eventfd_write(descriptor, 1)); }
    void take() const {
        eventfd_t value = 0;
        EXPECT_EQ(0, eventfd_read(descriptor, &value));
    }
    void close() {
        if (descriptor >= 0) {
            ::close(descriptor);
            descriptor = -1;
        }
    }

private:
    int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
};

class PollSet : public testing::Test {
protected:
    PollSet() { standIn.journal().clear(); }

    std::function<void()> note(const std::string& name) {
        return [this, name] { called.push_back(name); };
    }
    /// Returns a handler that records the message.
    std::function<void()> read(Socket& socket) {
        return [this, &socket] { called.push_back(receiveText(socket)); };
    }

    StandIn standIn;
    Feed feed;
    Feed otherFeed;
    Event event;
    Event otherEvent;
    socket::PollSet set;
    std::vector<std::string> called;
};

} // namespace

TEST_F(PollSet, CallsReadyHandlers) {
    set.add(feed.subscriber, read(feed.subscriber));
    set.add(otherFeed.subscriber, note("silent feed"));
    set.add(event.get(), [&] {
        event.take();
        called.emplace_back("event");
    });
    set.add(otherEvent.get(), note("silent event"));
    EXPECT_EQ(0U, set.wait(atOnce));
    feed.publisher.send("news");
    event.raise();

    EXPECT_EQ(2U, set.wait(withoutLimit));
    EXPECT_EQ(0U, set.wait(atOnce));

    EXPECT_THAT(called, ElementsAre("news", "event"));
}

TEST_F(PollSet, CallsAgainForRemainingInput) {
    set.add(feed.subscriber, read(feed.subscriber));
    feed.publisher.send("one");
    feed.publisher.send("two");

    EXPECT_EQ(1U, set.wait(patience));
    EXPECT_EQ(1U, set.wait(patience));

    EXPECT_THAT(called, ElementsAre("one", "two"));
}

TEST_F(PollSet, WaitsWithNothingToPoll) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0U, set.wait(milliseconds(20)));
    EXPECT_LE(milliseconds(20), std::chrono::steady_clock::now() - begin);
    EXPECT_EQ(0U, set.wait(atOnce));
}

TEST_F(PollSet, PollsOnceWhileNothingIsReady) {
    set.add(feed.subscriber, note("feed"));
    set.add(event.get(), note("event"));
    for (const auto& [timeout, polled] : {std::pair(milliseconds(0), "0"), std::pair(milliseconds(7), "7"),
                                          std::pair(milliseconds::max(), "2147483647"),
                                          std::pair(milliseconds(-1), "-1"), std::pair(milliseconds::min(), "-1")}) {
        standIn.answer("zmq_poll", 0);
        EXPECT_EQ(0U, set.wait(timeout));
        EXPECT_THAT(standIn.journal().lines(),
                    ElementsAre("zmq_poll 2 items, events 1, " + std::string(polled) + " ms"));
        standIn.journal().clear();
    }
}

TEST_F(PollSet, ReplacesAHandler) {
    set.add(event.get(), note("old"));
    set.add(event.get(), note("new"));
    set.add(feed.subscriber, note("old"));
    set.add(feed.subscriber, note("new feed"));
    event.raise();
    feed.publisher.send("news");

    EXPECT_EQ(2U, set.wait(patience));

    EXPECT_THAT(called, ElementsAre("new", "new feed"));
}

TEST_F(PollSet, ForgetsRemovedItems) {
    set.add(event.get(), note("event"));
    set.add(feed.subscriber, note("feed"));
    set.remove(event.get());
    set.remove(feed.subscriber);
    set.remove(feed.subscriber);
    set.remove(otherFeed.subscriber);
    set.remove(-1);
    event.raise();
    feed.publisher.send("news");

    EXPECT_EQ(0U, set.wait(atOnce));
}

TEST_F(PollSet, SkipsAnEmptiedSocket) {
    set.add(event.get(), [&] {
        called.push_back(receiveText(feed.subscriber));
        event.take();
    });
    set.add(feed.subscriber, note("feed"));
    event.raise();
    feed.publisher.send("news");

    EXPECT_EQ(1U, set.wait(patience));

    EXPECT_THAT(called, ElementsAre("news"));
    EXPECT_EQ(2U, standIn.journal().count("zmq_poll 1 items, events 1, 0 ms")) << "one before each handler";
}

TEST_F(PollSet, AllowsHandlersToChangeIt) {
    set.add(event.get(), [&, kept = std::string(1000, 'x')] {
        set.remove(event.get()); // itself
        set.remove(feed.subscriber);
        set.add(otherEvent.get(), note("added"));
        called.push_back(kept);
    });
    set.add(feed.subscriber, note("feed"));
    event.raise();
    otherEvent.raise();
    feed.publisher.send("news");

    EXPECT_EQ(1U, set.wait(patience));
    EXPECT_EQ(1U, set.wait(patience));

    EXPECT_THAT(called, ElementsAre(std::string(1000, 'x'), "added"));
}

TEST_F(PollSet, CallsAllAfterAHandlerThrows) {
    set.add(event.get(), [&] { throw std::runtime_error("as asked"); });
    set.add(feed.subscriber, read(feed.subscriber));
    set.add(otherEvent.get(), [&] {
        otherEvent.take();
        called.emplace_back("other");
    });
    event.raise();
    otherEvent.raise();
    feed.publisher.send("news");

    EXPECT_EQ("as asked", textThrownBy([&] { set.wait(patience); }));
    EXPECT_THAT(called, IsEmpty());
    EXPECT_EQ("as asked", textThrownBy([&] { set.wait(patience); }));
    EXPECT_THAT(called, ElementsAre("news", "other"));
}

TEST_F(PollSet, FollowsARebuiltSocket) {
    set.add(feed.subscriber, read(feed.subscriber));
    EXPECT_EQ(0U, set.wait(atOnce));
    feed.subscriber.resetConnections();
    feed.join();
    feed.publisher.send("news");

    EXPECT_EQ(1U, set.wait(patience));

    EXPECT_THAT(called, ElementsAre("news"));
}

TEST_F(PollSet, ThrowsForAClosedSocket) {
    set.add(feed.subscriber, note("feed"));
    feed.subscriber.close();

    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { set.wait(atOnce); }));

    set.remove(feed.subscriber);
    EXPECT_EQ(0U, set.wait(atOnce));
}

TEST_F(PollSet, CallsForAHangUp) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, pipe(ends));
    set.add(ends[0], note("pipe"));
    EXPECT_EQ(0U, set.wait(atOnce));
    ::close(ends[1]);
    EXPECT_EQ(1U, set.wait(patience));
    ::close(ends[0]);
    EXPECT_EQ(1U, set.wait(patience)); // a closed descriptor
    EXPECT_THAT(called, ElementsAre("pipe", "pipe"));
}

TEST_F(PollSet, EndsOnASignal) {
    interrupt([&] { EXPECT_EQ(0U, set.wait(withoutLimit)); });
    set.add(event.get(), note("event"));
    interrupt([&] { EXPECT_EQ(0U, set.wait(withoutLimit)); });

    event.raise();
    set.add(feed.subscriber, read(feed.subscriber));
    feed.publisher.send("news");
    standIn.fail("zmq_poll", EINTR);
    EXPECT_EQ(0U, set.wait(patience));
    set.remove(feed.subscriber);
    standIn.fail("zmq_poll", EINTR, 2); // before the handler
    EXPECT_EQ(0U, set.wait(patience));
    EXPECT_EQ(1U, set.wait(patience));
}

TEST_F(PollSet, ThrowsWhenZmqFails) {
    set.add(event.get(), note("event"));
    standIn.fail("zmq_poll", ETERM);
    EXPECT_EQ("Context terminated in poll() for a set of sockets",
              textThrownBy<ZmqContextTerminationException>([&] { set.wait(atOnce); }));
    standIn.fail("zmq_poll", EFAULT);
    EXPECT_EQ("Cannot poll a set of sockets: Bad address", textThrownBy([&] { set.wait(atOnce); }));
}

TEST_F(PollSet, RejectsInvalidItems) {
    EXPECT_EQ("Cannot poll without a handler",
              textThrownBy<std::invalid_argument>([&] { set.add(feed.subscriber, nullptr); }));
    EXPECT_EQ("Cannot poll descriptor -1", textThrownBy<std::invalid_argument>([&] { set.add(-1, note("none")); }));
    set.add(0, note("standard input"));
    set.remove(0);
    EXPECT_EQ(0U, set.wait(atOnce));
}

} // namespace rk::tests
