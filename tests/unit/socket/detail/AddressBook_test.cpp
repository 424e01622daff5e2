#include "support/Allocations.h"
#include "support/SteadyClock.h"
#include "support/Test.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <numeric>

namespace rk::tests {

namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

const std::string refusal = "Socket: Failed connecting/binding socket: Address already in use on [Socket server]";

/// An address that a socket has bound and given up, on a clock that stands still but for pauses. 0MQ does not see the
/// bind: it would need real time to release the address.
class AddressBook : public testing::Test {
protected:
    AddressBook() {
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
            Peer passing("passing", Protocol::Pub, freshEndpoint(Transport::Inproc), ClosePolicy::DropPending, 0);
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
class AddressBookTakeOver : public AddressBook {
protected:
    AddressBookTakeOver() {
        bindUnseen();
        bindUnseen(other);
    }

    Socket other{"other", ClosePolicy::DropPending};
};

/// Sockets that bind ever new addresses. ZeroMQ sees none of it, because it takes sockets back more slowly.
class AddressBookPassing : public testing::Test {
protected:
    void SetUp() override {
        if (!seesAllocations()) {
            GTEST_SKIP() << "a tool has replaced operator new";
        }
        forgetOtherTests();
    }

    void advance(nanoseconds time) { clock.advance(time); }

    /// Binds and closes a socket with so many addresses. Returns by how many blocks the heap has grown for them.
    std::ptrdiff_t pass(int addresses) {
        std::unique_ptr<Socket> socket;
        std::ptrdiff_t growth =
            growthBy([&] { socket = std::make_unique<Socket>("passing", ClosePolicy::DropPending); });
        standIn.answer("zmq_socket", this);
        socket->create(Protocol::Pub);
        for (int number = 0; number < addresses; ++number) {
            const SocketEndpoint next(Transport::Inproc, "an-address-that-is-long-" + std::to_string(++bound), 0);
            growth += growthBy([&] {
                standIn.answer("zmq_bind", 0);
                standIn.answer("zmq_setsockopt 17", 0);
                socket->connect(next, 0);
            });
        }
        return growth + growthBy([&] {
                   standIn.answer("zmq_close", 0);
                   socket.reset();
               }) -
               growthWithoutAddress;
    }

private:
    void forgetOtherTests() {
        pass(1);
        advance(hours(100));
        for (int number = 0; number < 1000; ++number) {
            pass(0);
        }
        growthWithoutAddress = pass(0);
    }

    template <class Action>
    std::ptrdiff_t growthBy(const Action& action) {
        standIn.journal().clear();
        const Allocations made = allocationsOf([&] {
            action();
            standIn.journal().clear();
        });
        return static_cast<std::ptrdiff_t>(made.all.size()) - static_cast<std::ptrdiff_t>(made.deletions);
    }

    StandIn standIn;
    SteadyClock clock;
    int bound = 0;
    std::ptrdiff_t growthWithoutAddress = 0;
};

/// What an address takes: an entry, its text, and a node of the index.
constexpr std::ptrdiff_t blocksPerAddress = 3;

} // namespace

TEST_F(AddressBook, RetriesAfterGrowingPauses) {
    refuseBinds(8);

    bind();

    EXPECT_THAT(clock.takePauses(),
                ElementsAre(microseconds(100), microseconds(200), microseconds(400), microseconds(800),
                            microseconds(1600), microseconds(3200), microseconds(5000), microseconds(5000)));
}

TEST_F(AddressBook, WaitsTwoSeconds) {
    clock.advance(seconds(1));
    refuseBinds(StandIn::always);

    EXPECT_EQ(refusal, textThrownBy([&] { bind(); }));

    const std::vector<nanoseconds> pauses = clock.takePauses();
    EXPECT_EQ(microseconds(1001300), std::accumulate(pauses.begin(), pauses.end(), nanoseconds(0)));
}

TEST_F(AddressBook, EndsAfterExactlyTwoSeconds) {
    // Six pauses that grow take 6.3 ms, twenty that do not take 100 ms.
    clock.advance(seconds(2) - microseconds(106300));

    EXPECT_EQ(26U, pausesUntilRefusal());
}

TEST_F(AddressBook, WaitsAtLeastFiftyMs) {
    clock.advance(hours(1));

    EXPECT_EQ(15U, pausesUntilRefusal());
}

TEST_F(AddressBook, EndsAfterExactlyFiftyMs) {
    clock.advance(hours(1));
    // It takes what fourteen pauses leave of them.
    firstAttemptTakes(microseconds(3700));

    EXPECT_EQ(14U, pausesUntilRefusal());
}

TEST_F(AddressBook, RetriesJustBeforeFiftyMs) {
    clock.advance(hours(1));
    firstAttemptTakes(microseconds(3699));

    EXPECT_EQ(15U, pausesUntilRefusal());
}

TEST_F(AddressBook, IgnoresAStaleErrno) {
    standIn.journal().clear();
    standIn.answer("zmq_bind", 0);
    standIn.after("zmq_bind", [] { errno = EADDRINUSE; });

    bind();

    EXPECT_EQ(1U, standIn.journal().count("zmq_bind"));
}

TEST_F(AddressBook, IgnoresTheFirstErrno) {
    standIn.journal().clear();
    refuseBinds(1);
    standIn.after("zmq_bind", [] { errno = EADDRINUSE; });

    bind();

    EXPECT_EQ(2U, standIn.journal().count("zmq_bind"));
}

TEST_F(AddressBook, EndsOnAnotherError) {
    standIn.fail("zmq_bind", EACCES, 1, StandIn::always);

    EXPECT_EQ("Socket: Failed connecting/binding socket: Permission denied on [Socket server]",
              textThrownBy([&] { bind(); }));

    EXPECT_THAT(clock.takePauses(), IsEmpty());
}

TEST_F(AddressBook, EndsOnALaterOtherError) {
    refuseBinds(1);
    standIn.after("zmq_bind", [&] { standIn.fail("zmq_bind", EACCES, 1, StandIn::always); });

    EXPECT_EQ("Socket: Failed connecting/binding socket: Permission denied on [Socket server]",
              textThrownBy([&] { bind(); }));

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_F(AddressBook, WaitsForItsOwnAddressOnly) {
    refuseBinds(StandIn::always);

    EXPECT_EQ(refusal,
              textThrownBy([&] { server.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Inproc), 0); }));

    EXPECT_THAT(clock.takePauses(), IsEmpty());
}

TEST_F(AddressBook, RemembersALongHeldAddress) {
    bindUnseen();
    letManyOthersComeAndGo();
    server.close();
    refuseBinds(1);

    bind();

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_F(AddressBookTakeOver, IgnoresTheFormerHolder) {
    server.close();

    EXPECT_EQ(0U, pausesUntilRefusal());
}

TEST_F(AddressBookTakeOver, WaitsForItsHolder) {
    other.close();
    refuseBinds(1);
    Socket third("third", ClosePolicy::DropPending);

    third.createAndConnect(Protocol::Rep, endpoint, 0);

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_F(AddressBookTakeOver, OutlivesItsRecord) {
    other.close();
    letManyOthersComeAndGo();
    server.close();

    EXPECT_EQ(0U, pausesUntilRefusal());
}

TEST_F(AddressBookPassing, RemembersForTwoSeconds) {
    std::ptrdiff_t growth = 0;
    for (int number = 0; number < 1000; ++number) {
        growth += pass(1);
        advance(milliseconds(10));
    }
    EXPECT_EQ(201 * blocksPerAddress, growth);
}

TEST_F(AddressBookPassing, ForgetsInSmallSteps) {
    pass(900);
    advance(seconds(3));

    for (int number = 0; number < 225; ++number) {
        // One address comes, and each of the two calls forgets two.
        EXPECT_EQ(-3 * blocksPerAddress, pass(1)) << number;
    }
    EXPECT_EQ(blocksPerAddress, pass(1)) << "none is left to forget";
}

TEST_F(AddressBookTakeOver, ForgetsBothHolders) {
    other.close();
    clock.advance(seconds(3));
    letManyOthersComeAndGo();
    server.close();
    clock.advance(seconds(3));
    letManyOthersComeAndGo();

    EXPECT_EQ(0U, pausesUntilRefusal());
}

} // namespace rk::tests
