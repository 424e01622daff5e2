#include "support/Allocations.h"
#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/StandIn.h"
#include "support/SteadyClock.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <numeric>
#include <string>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

const std::string refusal = "Socket: Failed connecting/binding socket: Address already in use on [Socket server]";

/// An address that a socket has bound and given up, on a clock that stands still but for pauses. 0MQ does not see the
/// bind: it would need real time to release the address.
class ReleasedAddress : public testing::Test {
protected:
    ReleasedAddress() {
        bindUnseen();
        server.close();
    }

    void bindUnseen() { bindUnseen(server); }

    void bindUnseen(Socket& socket) {
        standIn.answer("zmq_bind", 0);
        socket.createAndConnect(Protocol::Rep, endpoint, 0);
    }

    void letManyOthersComeAndGo() {
        for (int number = 0; number < 200; ++number) {
            clock.advance(seconds(1));
            Socket passing("passing", ClosePolicy::DropPending);
            passing.createAndConnect(Protocol::Pub, freshEndpoint(Transport::Inproc), 0);
        }
    }

    void bind() { server.createAndConnect(Protocol::Rep, endpoint, 0); }

    void refuseBinds(int times) { standIn.fail("zmq_bind", EADDRINUSE, 1, times); }

    void firstAttemptTakes(nanoseconds time) {
        standIn.after("zmq_bind", [this, time] {
            clock.advance(time);
            standIn.after("zmq_bind", nullptr);
        });
    }

    /// How often 0MQ was asked again before the refusal was believed.
    std::size_t pausesUntilRefusal() {
        refuseBinds(StandIn::always);
        EXPECT_EQ(refusal, textThrownBy([&] { bind(); }));
        return clock.takePauses().size();
    }

    StandIn standIn;
    SteadyClock clock;
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server{"server", ClosePolicy::DropPending};
};

/// An address that one socket has bound, and then another: on IPC, 0MQ lets it.
class AddressTakenOver : public ReleasedAddress {
protected:
    AddressTakenOver() {
        bindUnseen();
        bindUnseen(other);
    }

    Socket other{"other", ClosePolicy::DropPending};
};

/// What the book remembers, seen by what it deletes. Each test has a process, and hence a book, of its own.
class AddressBookDeathTest : public testing::Test {
protected:
    using Deletions = std::map<int, std::size_t>;

    AddressBookDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    void SetUp() override {
        if (!seesAllocations()) {
            GTEST_SKIP() << "a tool has replaced operator new";
        }
    }

    /// Binds one new address after the other, each given up before the next. Those among the binds that deleted more
    /// than a bind does otherwise, and how many addresses more: an address is a node of the book, and a text. An odd
    /// deletion is of the stand-ins' own.
    static Deletions forgottenBy(int binds, nanoseconds apart) {
        StandIn standIn;
        SteadyClock clock;
        std::vector<std::size_t> deletions;
        for (int number = 0; number < binds; ++number) {
            const SocketEndpoint endpoint(Transport::Inproc, "an-address-that-is-long-" + std::to_string(number), 0);
            clock.advance(apart);
            Socket socket("server", ClosePolicy::DropPending);
            socket.create(Protocol::Pub);
            standIn.journal().clear();
            standIn.answer("zmq_bind", 0);
            deletions.push_back(allocationsOf([&] { socket.connect(endpoint, 0); }).deletions);
        }
        const std::size_t usual = *std::min_element(deletions.begin(), deletions.end());
        Deletions forgotten;
        for (int number = 0; number < binds; ++number) {
            const std::size_t addresses = (deletions[static_cast<std::size_t>(number)] - usual) / 2;
            if (addresses != 0) {
                forgotten[number + 1] = addresses;
            }
        }
        return forgotten;
    }

    /// What the close of a socket with so many endpoints deletes, which 0MQ does not see.
    static std::size_t deletionsOfClose(Protocol::Protocol protocol, int endpoints) {
        StandIn standIn;
        Socket socket("server", ClosePolicy::DropPending);
        socket.create(protocol);
        for (int number = 0; number < endpoints; ++number) {
            standIn.answer("zmq_bind", 0);
            standIn.answer("zmq_connect", 0);
            socket.connect({Transport::Inproc, "another-address-that-is-long-" + std::to_string(number), 0}, 0);
        }
        standIn.journal().clear();
        return allocationsOf([&] { socket.close(); }).deletions;
    }

    [[noreturn]] static void leave() { std::exit(HasFailure() ? 1 : 0); }
};

} // namespace

TEST_F(ReleasedAddress, IsAskedForAgainAfterPausesThatGrowToFiveMilliseconds) {
    refuseBinds(8);

    bind();

    EXPECT_THAT(clock.takePauses(),
                ElementsAre(microseconds(100), microseconds(200), microseconds(400), microseconds(800),
                            microseconds(1600), microseconds(3200), microseconds(5000), microseconds(5000)));
}

TEST_F(ReleasedAddress, IsWaitedForNoLongerThanTwoSecondsAfterItWasGivenUp) {
    clock.advance(seconds(1));
    refuseBinds(StandIn::always);

    EXPECT_EQ(refusal, textThrownBy([&] { bind(); }));

    const std::vector<nanoseconds> pauses = clock.takePauses();
    EXPECT_EQ(microseconds(1001300), std::accumulate(pauses.begin(), pauses.end(), nanoseconds(0)));
}

TEST_F(ReleasedAddress, IsAskedForNoMoreWhenTheTwoSecondsAreJustOver) {
    // Six pauses that grow take 6.3 ms, twenty that do not take 100 ms.
    clock.advance(seconds(2) - microseconds(106300));

    EXPECT_EQ(26U, pausesUntilRefusal());
}

TEST_F(ReleasedAddress, IsWaitedForFiftyMillisecondsHoweverLongAgoItWasGivenUp) {
    clock.advance(hours(1));

    EXPECT_EQ(15U, pausesUntilRefusal());
}

TEST_F(ReleasedAddress, IsAskedForNoMoreWhenTheFiftyMillisecondsAreJustOver) {
    clock.advance(hours(1));
    // It takes what fourteen pauses leave of them.
    firstAttemptTakes(microseconds(3700));

    EXPECT_EQ(14U, pausesUntilRefusal());
}

TEST_F(ReleasedAddress, IsAskedForOnceMoreWhenTheFiftyMillisecondsAreNotQuiteOver) {
    clock.advance(hours(1));
    firstAttemptTakes(microseconds(3699));

    EXPECT_EQ(15U, pausesUntilRefusal());
}

TEST_F(ReleasedAddress, IsBoundOnceWhateverErrorIsLeftFromBefore) {
    standIn.journal().clear();
    standIn.answer("zmq_bind", 0);
    standIn.after("zmq_bind", [] { errno = EADDRINUSE; });

    bind();

    EXPECT_EQ(1U, standIn.journal().count("zmq_bind"));
}

TEST_F(ReleasedAddress, IsBoundAtTheSecondAttemptWhateverErrorIsLeftFromTheFirst) {
    standIn.journal().clear();
    refuseBinds(1);
    standIn.after("zmq_bind", [] { errno = EADDRINUSE; });

    bind();

    EXPECT_EQ(2U, standIn.journal().count("zmq_bind"));
}

TEST_F(ReleasedAddress, IsNotWaitedForWhenItIsRefusedForAnotherReason) {
    standIn.fail("zmq_bind", EACCES, 1, StandIn::always);

    EXPECT_EQ("Socket: Failed connecting/binding socket: Permission denied on [Socket server]",
              textThrownBy([&] { bind(); }));

    EXPECT_THAT(clock.takePauses(), IsEmpty());
}

TEST_F(ReleasedAddress, IsNotWaitedForOnceItIsRefusedForAnotherReason) {
    refuseBinds(1);
    standIn.after("zmq_bind", [&] { standIn.fail("zmq_bind", EACCES, 1, StandIn::always); });

    EXPECT_EQ("Socket: Failed connecting/binding socket: Permission denied on [Socket server]",
              textThrownBy([&] { bind(); }));

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_F(ReleasedAddress, IsNoReasonToWaitForAnotherOne) {
    refuseBinds(StandIn::always);

    EXPECT_EQ(refusal,
              textThrownBy([&] { server.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Inproc), 0); }));

    EXPECT_THAT(clock.takePauses(), IsEmpty());
}

TEST_F(ReleasedAddress, IsWaitedForThoughItWasHeldForLongWhileManyOthersCameAndWent) {
    bindUnseen();
    letManyOthersComeAndGo();
    server.close();
    refuseBinds(1);

    bind();

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_F(AddressTakenOver, IsNotTheFormerHoldersToGiveUp) {
    server.close();

    EXPECT_EQ(0U, pausesUntilRefusal());
}

TEST_F(AddressTakenOver, IsWaitedForWhenItsHolderHasGivenItUpThoughTheFormerOneIsStillOpen) {
    other.close();
    refuseBinds(1);
    Socket third("third", ClosePolicy::DropPending);

    third.createAndConnect(Protocol::Rep, endpoint, 0);

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_F(AddressTakenOver, MayBeForgottenBeforeItsFormerHolderIsClosed) {
    other.close();
    letManyOthersComeAndGo();
    server.close();

    EXPECT_EQ(0U, pausesUntilRefusal());
}

TEST_F(AddressBookDeathTest, ForgetsOncePerManyAddressesThoseThatWereGivenUpOverAMinuteAgo) {
    EXPECT_EXIT(
        {
            EXPECT_THAT(forgottenBy(130, seconds(61)), ElementsAre(Pair(64, 63), Pair(129, 65)));
            leave();
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(AddressBookDeathTest, RemembersThoseThatWereGivenUpWithinTheLastMinute) {
    EXPECT_EXIT(
        {
            EXPECT_THAT(forgottenBy(200, seconds(1)), ElementsAre(Pair(64, 3), Pair(189, 125)));
            leave();
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(AddressBookDeathTest, LosesWhatASocketHeldWhenItIsClosed) {
    const std::size_t ofBound = deletionsOfClose(Protocol::Rep, 5) - deletionsOfClose(Protocol::Rep, 0);
    const std::size_t ofConnected = deletionsOfClose(Protocol::Req, 5) - deletionsOfClose(Protocol::Req, 0);

    EXPECT_EQ(10U, ofBound - ofConnected) << "a node of the book and a text for each of five";
}

} // namespace rk::tests
