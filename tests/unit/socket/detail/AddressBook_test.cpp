#include "support/Allocations.h"
#include "support/SteadyClock.h"
#include "support/Test.h"

#include <rk/socket/Network.h>

#include <zmq.h>

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

/// An address that a socket has released, and a clock that only advances in pauses. The bind does not reach ZeroMQ,
/// which would need real time to release the address.
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

    /// Returns the number of retries before the bind fails.
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

/// An IPC address that two sockets have bound, one after the other, which ZeroMQ allows.
class AddressBookTakeOver : public AddressBook {
protected:
    AddressBookTakeOver() {
        bindUnseen();
        bindUnseen(other);
    }

    Socket other{"other", ClosePolicy::DropPending};
};

/// A bind of an address that was `released`.
struct Rebind {
    SocketEndpoint released;
    SocketEndpoint wanted;
    bool waits;
};

class AddressBookOverlap : public testing::TestWithParam<Rebind> {};

SocketEndpoint tcp(const char* host, unsigned short port) {
    return {Transport::Tcp, host, port};
}

INSTANTIATE_TEST_SUITE_P(Of, AddressBookOverlap,
                         testing::Values(Rebind{tcp("*", 1), tcp("127.0.0.1", 1), true},
                                         Rebind{tcp("*", 2), tcp("*", 3), false},
                                         Rebind{tcp("*", 4), {Transport::Inproc, "name:4", 0}, false},
                                         Rebind{{Transport::Inproc, "name:5", 0}, tcp("*", 5), false},
                                         Rebind{tcp("*", 0), tcp("*", 6), true}));

/// Sockets that bind many different addresses. The calls do not reach ZeroMQ, which would close the sockets too slowly.
class AddressBookPassing : public testing::Test {
protected:
    void SetUp() override {
        if (!seesAllocations()) {
            GTEST_SKIP() << "a tool has replaced operator new";
        }
        standIn.after("zmq_bind", [this] { standIn.answer("zmq_setsockopt 17", 0); }); // set before and after the bind
        forgetOtherTests();
    }

    void advance(nanoseconds time) { clock.advance(time); }

    /// Binds a socket to `addresses` addresses and closes it. Returns by how many blocks the heap has grown.
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

/// An entry, its string, and a node of the index.
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
    // Six growing pauses take 6.3 ms, and twenty constant ones take 100 ms.
    clock.advance(seconds(2) - microseconds(106300));

    EXPECT_EQ(26U, pausesUntilRefusal());
}

TEST_F(AddressBook, WaitsAtLeastFiftyMs) {
    clock.advance(hours(1));

    EXPECT_EQ(15U, pausesUntilRefusal());
}

TEST_F(AddressBook, EndsAfterExactlyFiftyMs) {
    clock.advance(hours(1));
    // Fourteen pauses take the remaining time.
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

TEST_F(AddressBook, EndsOnALaterOtherError) {
    refuseBinds(1);
    standIn.after("zmq_bind", [&] { standIn.fail("zmq_bind", EACCES, 1, StandIn::always); });

    EXPECT_EQ("Socket: Failed connecting/binding socket: Permission denied on [Socket server]",
              textThrownBy([&] { bind(); }));

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_F(AddressBook, RemembersALongHeldAddress) {
    bindUnseen();
    letManyOthersComeAndGo();
    server.close();
    refuseBinds(1);

    bind();

    EXPECT_THAT(clock.takePauses(), ElementsAre(microseconds(100)));
}

TEST_P(AddressBookOverlap, IsWaitedFor) {
    StandIn standIn;
    SteadyClock clock;
    Network::listenOn(""); // on the host of each endpoint
    Socket server("server", ClosePolicy::DropPending);
    standIn.answer("zmq_bind", 0);
    standIn.fail("zmq_getsockopt " + std::to_string(ZMQ_LAST_ENDPOINT), EINVAL);
    server.createAndConnect(Protocol::Rep, GetParam().released, 0);
    server.close();

    standIn.fail("zmq_bind", EADDRINUSE);
    standIn.after("zmq_bind", [&] { standIn.answer("zmq_bind", 0); });
    EXPECT_EQ(GetParam().waits ? "" : refusal,
              textIfThrownBy([&] { server.createAndConnect(Protocol::Rep, GetParam().wanted, 0); }));

    EXPECT_EQ(GetParam().waits ? 1U : 0U, clock.takePauses().size());
    Network::listenOn("*");
    server.close();
    clock.advance(seconds(3)); // so that the next bind and close forget both addresses
    standIn.answer("zmq_bind", 0);
    server.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Inproc), 0);
}

TEST_F(AddressBookTakeOver, IgnoresThePreviousHolder) {
    server.close();

    EXPECT_EQ(0U, pausesUntilRefusal());
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
        // Adds one address. Each of the two calls drops two.
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
