#include "support/RemoteSocket.h"
#include "support/SecuredProcess.h"
#include "support/Test.h"
#include "support/ThreadFaults.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace rk::tests {

namespace {

/// Starts the authenticator in a new process. The first `connect` fails and the second succeeds.
template <class Fault>
void startAfter(const Fault& fault) {
    StandIn standIn;
    const SecuredProcess process;
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    Socket server("server", ClosePolicy::DropPending);
    server.create(Protocol::Rep);
    std::cerr << textThrownBy([&] { fault(standIn, [&] { server.connect(endpoint, 0); }); });
    server.createAndConnect(Protocol::Rep, endpoint, 0);
    RemoteSocket peer(ZMQ_REQ);
    peer.trustServer(process.own.publicKey, process.own).connect(endpoint).send("question");
    std::cerr << ", then " << receiveText(server) << "\n";
}

bool startsOnceForTwoServers() {
    StandIn standIn;
    const SecuredProcess process;
    Socket first("first", ClosePolicy::DropPending);
    Socket second("second", ClosePolicy::DropPending);
    first.create(Protocol::Rep);
    second.create(Protocol::Rep);
    std::future<void> other;
    standIn.after("zmq_socket", [&] { // of the authenticator
        standIn.after("zmq_socket", nullptr);
        other = std::async(std::launch::async, [&] { second.connect(freshEndpoint(Transport::Tcp), patienceMs); });
        // Without its lock the second start would finish here. With the lock there is no event to wait for.
        other.wait_for(std::chrono::milliseconds(200));
    });
    first.connect(freshEndpoint(Transport::Tcp), patienceMs);
    other.get();
    return first.isOpen() && second.isOpen();
}

std::uint64_t blockedSignalsOf(const std::filesystem::path& thread) {
    const std::string title = "SigBlk:";
    std::ifstream file(thread / "status");
    std::string line;
    while (line.rfind(title, 0) != 0 && std::getline(file, line)) {
    }
    return std::stoull(line.substr(title.size()), nullptr, 16);
}

/// Returns the number of threads that block signals but no faults. ZeroMQ's threads block both.
std::ptrdiff_t threadsForFaultsOnly() {
    const auto bit = [](int signal) { return std::uint64_t{1} << (signal - 1); };
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::count_if(begin(tasks), end(tasks), [&](const std::filesystem::directory_entry& task) {
        const std::uint64_t both = bit(SIGTERM) | bit(SIGSEGV);
        return (blockedSignalsOf(task.path()) & both) == bit(SIGTERM);
    });
}

/// Returns whether the two threads begin with their own mask and not with the caller's.
bool leavesSignalsToTheApplication() {
    sigset_t faults;
    sigemptyset(&faults);
    sigaddset(&faults, SIGSEGV);
    pthread_sigmask(SIG_SETMASK, &faults, nullptr);
    const SecuredProcess process;
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Tcp), patienceMs);
    // A new thread blocks everything until it has its mask.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (threadsForFaultsOnly() < 2 && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    return threadsForFaultsOnly() == 2;
}

/// Creates the first socket without permission to open the root folder. Only this executable replaces `open`.
void startInAClosedRoot() {
    StandIn standIn;
    standIn.fail("open", EACCES, 1, StandIn::always);
    Socket server("server", ClosePolicy::DropPending);
    EXPECT_NO_THROW(server.create(Protocol::Rep));
}

void failToStartThread(int nth) {
    const SecuredProcess process;
    Socket server("server", ClosePolicy::DropPending);
    server.create(Protocol::Rep);
    const ThreadFault fault(EAGAIN, nth);
    EXPECT_THROW(server.connect(freshEndpoint(Transport::Tcp), 0), std::system_error);
}

/// Each test needs a process in which the authenticator has not started.
class AuthenticatorStartDeathTest : public testing::Test {
protected:
    AuthenticatorStartDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

} // namespace

TEST_F(AuthenticatorStartDeathTest, RetriesForName) {
    const auto start = [] {
        Socket former("former", ClosePolicy::DropPending);
        former.createAndConnect(Protocol::Rep, {Transport::Inproc, "zeromq.zap.01", 0}, 0);
        startAfter([&](StandIn&, const auto& connect) {
            try {
                connect();
            } catch (...) {
                former.close();
                throw;
            }
        });
    };
    EXPECT_EXIT((start(), std::exit(0)), testing::ExitedWithCode(0),
                "Socket: Cannot authenticate clients: Address already in use on \\[Socket server\\], then question");
}

TEST_F(AuthenticatorStartDeathTest, RetriesForSocket) {
    const auto start = [] {
        startAfter([](StandIn& standIn, const auto& connect) {
            standIn.fail("zmq_socket", EMFILE);
            connect();
        });
    };
    EXPECT_EXIT((start(), std::exit(0)), testing::ExitedWithCode(0),
                "Socket: Cannot authenticate clients: Too many open files on \\[Socket server\\], then question");
}

TEST_F(AuthenticatorStartDeathTest, RetriesForThread) {
    const auto start = [] {
        startAfter([](StandIn&, const auto& connect) {
            const ThreadFault fault(EAGAIN);
            try {
                connect();
            } catch (const std::system_error& failure) {
                throw std::runtime_error(failure.what());
            }
        });
    };
    EXPECT_EXIT((start(), std::exit(0)), testing::ExitedWithCode(0), "Resource temporarily unavailable, then question");
}

TEST_F(AuthenticatorStartDeathTest, StartsOnceForTwo) {
    EXPECT_EXIT(std::exit(startsOnceForTwoServers() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(AuthenticatorStartDeathTest, BlocksSignals) {
    EXPECT_EXIT(std::exit(leavesSignalsToTheApplication() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(AuthenticatorStartDeathTest, RunsInClosedRoot) {
    EXPECT_EXIT((startInAClosedRoot(), std::exit(HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

TEST_F(AuthenticatorStartDeathTest, ExitsIfItFails) {
    for (const int nth : {1, 2}) {
        EXPECT_EXIT((failToStartThread(nth), std::exit(0)), testing::ExitedWithCode(0), "");
    }
}

} // namespace rk::tests
