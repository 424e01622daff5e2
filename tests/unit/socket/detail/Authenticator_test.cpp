#include "support/Caller.h"
#include "support/RemoteSocket.h"
#include "support/SecuredProcess.h"
#include "support/SteadyClock.h"
#include "support/Test.h"
#include "support/ThreadFaults.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <future>
#include <iterator>
#include <list>
#include <optional>
#include <poll.h>
#include <system_error>
#include <thread>

namespace rk::tests {

namespace {

using socket::Security::generateKeyPair;
using socket::Security::KeyPair;

const SocketEndpoint authenticator(Transport::Inproc, "zeromq.zap.01", 0);
const std::string rcvMore = "zmq_getsockopt " + std::to_string(ZMQ_RCVMORE);
const std::string refused = "warning: Security: Refused ";

std::string bytesOf(const std::string& key) {
    std::array<std::uint8_t, 32> bytes{};
    EXPECT_NE(nullptr, zmq_z85_decode(bytes.data(), key.c_str()));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::atomic<int> fullPolls{0}; ///< how often the library still finds standard error full

/// Sends requests to the authenticator as ZeroMQ does.
class Authenticator : public testing::Test {
protected:
    Authenticator() {
        server.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Tcp), patienceMs);
        asker.connect(authenticator);
        standIn.journal().clear();
    }

    void SetUp() override {
        SteadyClock().advance(std::chrono::minutes(1)); // because each address is logged once a minute
    }

    Frames ask(const Frames& frames) {
        asker.sendFrames(frames);
        return asker.receiveFrames();
    }

    static Frames requestOf(const std::string& clientKey, const std::string& address) {
        return {"1.0", "id", "rk-socket", address, "", "CURVE", clientKey};
    }

    /// Returns the status for a client with this key at this address.
    std::string statusOf(const std::string& clientKey, const std::string& address = "10.0.0.1") {
        return ask(requestOf(clientKey, address)).at(2);
    }

    /// Waits for `count` lines and returns them in order.
    Frames waitForLines(std::size_t count) {
        EXPECT_TRUE(standIn.journal().waitFor(refused, count));
        return standIn.journal().linesWith(refused);
    }

    static std::string lineOf(const KeyPair& keys, const std::string& address) {
        return refused + "the untrusted key " + keys.publicKey + " of " + address;
    }

    static Frames refusal(const std::string& id = "id") { return {"1.0", id, "300", "", "", ""}; }

    StandIn standIn;
    SecuredProcess process;
    Socket server{"server", ClosePolicy::DropPending};
    NativeSocket asker{Protocol::Req};
    const KeyPair untrusted = generateKeyPair();
    const std::string key = bytesOf(untrusted.publicKey);
};

/// Starts after the lines of earlier tests have been written. The clock is stopped.
class AuthenticatorLog : public Authenticator {
protected:
    void SetUp() override {
        Authenticator::SetUp();
        for (const std::string address : {"before", "and after a total"}) {
            statusOf(key, address);
            EXPECT_TRUE(standIn.journal().waitFor(lineOf(untrusted, address)));
        }
        standIn.journal().clear();
        clock.emplace();
    }

    void refuse(const KeyPair& keys, const std::string& address) {
        EXPECT_EQ("300", statusOf(bytesOf(keys.publicKey), address));
    }

    /// Waits until `count` refusals are logged or counted, which reads the clock once. Lets a minute pass then.
    void passAMinuteAfter(unsigned int count) {
        clock->awaitReadings(count);
        clock->advance(std::chrono::seconds(60));
    }

    std::optional<SteadyClock> clock;

    /// Returns when the log has found standard error full `times` times.
    void refuseWhileFull(int times, const std::string& address) {
        fullPolls = times;
        refuse(untrusted, address);
        while (fullPolls > 0) {
            std::this_thread::yield();
        }
    }
};

/// Returns whether `server` does not admit a trusted client.
bool admitsNobody(const SecuredProcess& process, Socket& server, const SocketEndpoint& endpoint) {
    RemoteSocket peer(ZMQ_REQ);
    RemoteSocket::Monitor end(peer, ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                                        ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH);
    peer.trustServer(process.own.publicKey, process.own).connect(endpoint).send("question");
    std::string error;
    return end.waitForEvent() && server.poll(0, error) == PollResult::Timeout;
}

bool admitsNobodyWithoutAuthenticator() {
    StandIn standIn;
    const SecuredProcess process;
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Socket server("server", ClosePolicy::DropPending);
    standIn.answer("zmq_bind", 0); // of the authenticator's name
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    return admitsNobody(process, server, endpoint);
}

std::ptrdiff_t threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator());
}

/// The authenticator of a new process, which may fail.
class NewAuthenticator : public Authenticator {
public:
    bool logsFirstRefusalsAlone() {
        for (const std::string address : {"first", "second", "third"}) {
            SteadyClock().advance(std::chrono::minutes(1));
            statusOf(key, address);
            EXPECT_TRUE(standIn.journal().waitFor(lineOf(untrusted, address)));
        }
        return standIn.journal().linesWith(refused).size() == 3;
    }

    bool admitsNobodyAfterAFailureOf(const char* function) {
        fail(function);
        return standIn.journal().waitFor(lastLine) && admitsNobody(process, server, server.lastEndpoint());
    }

    bool dropsTheLastLineForAFullStandardError() {
        fullPolls = 1;
        fail("zmq_send");
        awaitEndOfThreads(2);
        return standIn.journal().count("warning: ") == 0 && fullPolls == 0;
    }

    bool logsPendingLinesAtItsEnd() {
        blockLogger();
        statusOf(key, "first");
        waitForLines(1);
        statusOf(key, "second");
        std::optional<BeforeJoin> hook;
        std::promise<void> logged;
        standIn.after(rcvMore, [&] {
            hook.emplace([&] { // before it waits for the lines
                released.set_value();
                standIn.journal().waitFor(lastLine);
                logged.set_value();
            });
        });
        fail("zmq_send");
        awaitEndOfThreads(1);
        if (standIn.journal().count(lineOf(untrusted, "second")) == 0) {
            return false;
        }
        logged.get_future().wait();
        awaitEndOfThreads(2);
        return true;
    }

    bool endsBesideABlockedLogger() {
        blockLogger();
        fail("zmq_send");
        awaitEndOfThreads(1);
        released.set_value();
        awaitEndOfThreads(2);
        return standIn.journal().count(lastLine) == 1;
    }

private:
    void TestBody() override {}

    void fail(const std::string& function) {
        standIn.fail(function, ENOTSOCK);
        asker.send("request");
    }

    void blockLogger() {
        standIn.after("warning", [once = released.get_future().share()] { once.wait(); });
    }

    void awaitEndOfThreads(std::ptrdiff_t count) const {
        while (threads() > threadsBefore - count) {
            std::this_thread::yield();
        }
    }

    const std::ptrdiff_t threadsBefore = threads();
    const std::string lastLine =
        "warning: Security: Cannot authenticate clients any more: Socket operation on non-socket";
    std::promise<void> released;
};

/// Returns an exit status.
template <class... Arguments>
int resultOf(bool (NewAuthenticator::*test)(Arguments...), Arguments... arguments) {
    return (NewAuthenticator().*test)(arguments...) ? 0 : 1;
}

class AuthenticatorDeathTest : public testing::Test {
protected:
    AuthenticatorDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

} // namespace

/// Replaces the system's function.
extern "C" int poll(pollfd* items, nfds_t count, int timeout) {
    static auto* const real = reinterpret_cast<decltype(&poll)>(dlsym(RTLD_NEXT, "poll"));
    if (fullPolls > 0 && isInLibrary(__builtin_return_address(0))) {
        --fullPolls;
        return 0;
    }
    return real(items, count, timeout);
}

TEST_F(Authenticator, AdmitsTrustedClients) {
    EXPECT_EQ((Frames{"1.0", "id", "200", "", "", ""}), ask(requestOf(bytesOf(process.own.publicKey), "10.0.0.1")));
}

TEST_F(Authenticator, RefusesOtherClients) {
    EXPECT_EQ(refusal(), ask(requestOf(key, "10.0.0.1")));
    EXPECT_THAT(waitForLines(1), ElementsAre(lineOf(untrusted, "10.0.0.1")));
}

TEST_F(Authenticator, RefusesInvalidKeys) {
    const std::string trusted = bytesOf(process.own.publicKey);
    EXPECT_EQ("300", statusOf(""));
    EXPECT_EQ("300", statusOf(trusted.substr(1)));
    EXPECT_EQ("300", statusOf(trusted + "x"));
    EXPECT_EQ("300", statusOf(std::string(300, 'x')));
}

TEST_F(Authenticator, RefusesOtherMechanisms) {
    const std::string trusted = bytesOf(process.own.publicKey);
    EXPECT_EQ(refusal(), ask({"1.0", "id", "rk-socket", "10.0.0.1", "", "PLAIN", trusted}));
    EXPECT_EQ(refusal(), ask({"1.0", "id", "rk-socket", "10.0.0.1", "", "NULL"}));
    EXPECT_EQ("200", ask({"1.0", "id", "rk-socket-plain", "localhost", "", "NULL"}).at(2));
}

TEST_F(Authenticator, RefusesIncompleteRequests) {
    EXPECT_EQ(refusal(""), ask({""}));
    EXPECT_EQ(refusal("x"), ask({"1.0", "x"}));
    EXPECT_EQ("200", statusOf(bytesOf(process.own.publicKey)));
    EXPECT_EQ(refusal(), ask({"1.0", "id", "rk-socket", "10.0.0.1", "", "CURVE"})); // without the last request's key
}

TEST_F(Authenticator, TruncatesLongRequests) {
    Frames request = requestOf(bytesOf(process.own.publicKey), "10.0.0.1");
    request[1] = std::string(300, 'i');
    request.resize(20, std::string(300, 'x'));
    EXPECT_EQ((Frames{"1.0", std::string(256, 'i'), "200", "", "", ""}), ask(request));
}

TEST_F(Authenticator, ContinuesWhenInterrupted) {
    for (const std::string& function : {std::string("zmq_recv"), std::string("zmq_send"), rcvMore}) {
        standIn.fail(function, EINTR);
        EXPECT_EQ("200", statusOf(bytesOf(process.own.publicKey))) << function;
    }
}

TEST_F(Authenticator, DoesNotWaitForTheLogger) {
    std::promise<void> released;
    standIn.after("warning", [&, once = released.get_future().share()] { once.wait(); });
    ASSERT_EQ("300", statusOf(key));
    waitForLines(1);
    EXPECT_EQ("300", statusOf(key));
    EXPECT_EQ("200", statusOf(bytesOf(process.own.publicKey)));
    released.set_value();
}

TEST_F(Authenticator, RefusesWithoutALock) {
    std::list<MutexFault> faults;
    standIn.after(rcvMore, [&] { faults.emplace_back(EINVAL); });
    EXPECT_EQ("300", statusOf(bytesOf(process.own.publicKey)));
    standIn.after(rcvMore, nullptr);
    EXPECT_EQ("200", statusOf(bytesOf(process.own.publicKey)));
}

TEST_F(Authenticator, IsStartedUnderALock) {
    Socket other("other", ClosePolicy::DropPending);
    other.create(Protocol::Rep);
    // The fifth lock is the record's, after those of the settings, the credentials, the authenticator and the address
    // book.
    const MutexFault fault(EINVAL, 5);
    EXPECT_THROW(other.connect(freshEndpoint(Transport::Tcp), 0), std::system_error);
}

TEST_F(AuthenticatorLog, LogsOncePerAddressAndMinute) {
    const KeyPair other = generateKeyPair();
    refuse(untrusted, "10.0.0.1");
    refuse(other, "10.0.0.1");
    refuse(untrusted, "10.0.0.2");
    EXPECT_THAT(waitForLines(2), ElementsAre(lineOf(untrusted, "10.0.0.1"), lineOf(untrusted, "10.0.0.2")));
    passAMinuteAfter(3);
    refuse(other, "10.0.0.1");
    EXPECT_EQ(lineOf(other, "10.0.0.1"), waitForLines(3).at(2));
    EXPECT_EQ(refused + "1 more connections", waitForLines(4).at(3));
}

TEST_F(AuthenticatorLog, CountsUnloggedRefusals) {
    for (int address = 0; address < 70; ++address) {
        refuse(untrusted, std::to_string(address));
    }
    passAMinuteAfter(70);
    EXPECT_EQ(lineOf(untrusted, "61"), waitForLines(62).at(61));
    refuse(untrusted, "70");
    EXPECT_EQ(lineOf(untrusted, "70"), waitForLines(63).at(62));
    EXPECT_EQ(refused + "8 more connections", waitForLines(64).at(63));
    EXPECT_EQ(64U, standIn.journal().count("warning: "));
}

TEST_F(AuthenticatorLog, CountsForASlowLogger) {
    std::promise<void> released;
    standIn.after("warning", [&, once = released.get_future().share()] {
        once.wait();
        clock->advance(std::chrono::seconds(60)); // so that every line that was queued is logged
    });
    refuse(untrusted, "the first");
    waitForLines(1);
    for (int address = 0; address < 100; ++address) {
        refuse(untrusted, std::to_string(address));
    }
    EXPECT_EQ("200", statusOf(bytesOf(process.own.publicKey))); // after the last refusal was handed over
    released.set_value();
    EXPECT_EQ(refused + "36 more connections", waitForLines(4).at(3));
    EXPECT_EQ(lineOf(untrusted, "63"), waitForLines(66).at(65));
    refuse(untrusted, "the last");
    EXPECT_EQ(lineOf(untrusted, "the last"), waitForLines(67).at(66));
}

TEST_F(AuthenticatorLog, CountsForAFullStandardError) {
    refuseWhileFull(1, "unseen");
    clock->advance(std::chrono::seconds(60));
    refuseWhileFull(2, "without a total"); // asks twice
    refuse(untrusted, "seen");
    EXPECT_THAT(waitForLines(2), ElementsAre(lineOf(untrusted, "seen"), refused + "2 more connections"));
}

TEST_F(AuthenticatorLog, SurvivesALoggersException) {
    standIn.after("warning", [] { throw std::runtime_error("no logger"); });
    refuse(untrusted, "10.0.0.1");
    waitForLines(1);
    standIn.after("warning", nullptr);
    refuse(untrusted, "10.0.0.2");
    EXPECT_EQ(lineOf(untrusted, "10.0.0.2"), waitForLines(2).at(1));
}

TEST_F(AuthenticatorLog, LosesALineWithoutALock) {
    std::list<MutexFault> faults;
    standIn.after(rcvMore, [&] { faults.emplace_back(EINVAL, 2); });
    refuse(untrusted, "10.0.0.1");
    standIn.after(rcvMore, nullptr);
    refuse(untrusted, "10.0.0.2");
    EXPECT_THAT(waitForLines(1), ElementsAre(lineOf(untrusted, "10.0.0.2")));
}

TEST_F(AuthenticatorDeathTest, LogsNoTotalAtFirst) {
    EXPECT_EXIT(std::exit(resultOf(&NewAuthenticator::logsFirstRefusalsAlone)), testing::ExitedWithCode(0), "");
}

TEST_F(AuthenticatorDeathTest, AdmitsNoneIfMissing) {
    EXPECT_EXIT(std::exit(admitsNobodyWithoutAuthenticator() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(AuthenticatorDeathTest, AdmitsNoneOnceDead) {
    for (const char* const function : {"zmq_send", rcvMore.c_str()}) {
        EXPECT_EXIT(std::exit(resultOf(&NewAuthenticator::admitsNobodyAfterAFailureOf, function)),
                    testing::ExitedWithCode(0), "");
    }
}

TEST_F(AuthenticatorDeathTest, DropsLastLineIfBlocked) {
    EXPECT_EXIT(std::exit(resultOf(&NewAuthenticator::dropsTheLastLineForAFullStandardError)),
                testing::ExitedWithCode(0), "");
}

TEST_F(AuthenticatorDeathTest, LogsPendingLinesAtEnd) {
    EXPECT_EXIT(std::exit(resultOf(&NewAuthenticator::logsPendingLinesAtItsEnd)), testing::ExitedWithCode(0), "");
}

TEST_F(AuthenticatorDeathTest, EndsIfTheLoggerBlocks) {
    EXPECT_EXIT(std::exit(resultOf(&NewAuthenticator::endsBesideABlockedLogger)), testing::ExitedWithCode(0), "");
}

} // namespace rk::tests
