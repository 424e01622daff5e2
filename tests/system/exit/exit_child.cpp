// A child process of Exit_test.cpp that ends in the way its argument names.

#include "support/BlockedStandardError.h"
#include "support/Endpoints.h"
#include "support/Immortal.h"
#include "support/SecuredProcess.h"
#include "support/ZmqHandle.h"
#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/utils/SocketListener.h>
#include <rk/utils/Log.h>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/// ThreadSanitizer's options: some scenarios leave threads unjoined on purpose, and the default delay at exit is long.
extern "C" const char* __tsan_default_options() {
    return "report_thread_leaks=0:atexit_sleep_ms=0";
}

namespace {

using namespace rk::socket;
using rk::tests::immortal;

const SocketEndpoint endpoint(Transport::Inproc, "exit", 0);
constexpr int none = -1; ///< no descriptor, no port
std::atomic<bool> blocksWarnings{false};

class SilentListener : public utils::SocketListener {
public:
    using SocketListener::SocketListener;
    ~SilentListener() override {
        std::string error;
        stop(error);
    }
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<rk::tests::Text>(); }
    void handleMessage(google::protobuf::Message* /*message*/, std::shared_ptr<Socket> /*socket*/) override {}
};

void startOn(SilentListener& listener, const std::string& address) {
    std::string error;
    if (!listener.addListenEndpoint(address, error) || !listener.start(error)) {
        std::cerr << error << "\n";
        std::_Exit(3);
    }
}

/// Blocks in a receive until process exit ends the call.
void block(std::promise<void> aboutToBlock) {
    try {
        Socket socket("blocked", ClosePolicy::DropPending);
        socket.createAndConnect(Protocol::Sub, endpoint, 0);
        aboutToBlock.set_value();
        char buffer[1];
        socket.receive(buffer, sizeof buffer);
    } catch (const ZmqContextTerminationException&) {
        // The thread ends with the process.
    }
}

void useOneSocket() {
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.create(Protocol::Req);
}

/// Never destroys the listeners, like an application that does not stop them.
void leaveListenersRunning() {
    for (int number = 0; number < 4; ++number) {
        startOn(immortal<std::list<SilentListener>>().emplace_back(Protocol::Rep, "left"),
                "inproc://left-" + std::to_string(number));
    }
}

void leaveThreadsBlocked() {
    std::vector<std::future<void>> blocking;
    for (int number = 0; number < 4; ++number) {
        std::promise<void> aboutToBlock;
        blocking.push_back(aboutToBlock.get_future());
        std::thread(block, std::move(aboutToBlock)).detach();
    }
    for (const std::future<void>& each : blocking) {
        each.wait();
    }
}

void leaveAStaticListenerRunning() {
    static SilentListener listener(Protocol::Sub, "static");
    startOn(listener, "inproc://static");
}

void exitFromAnotherThread() {
    leaveListenersRunning();
    leaveThreadsBlocked();
    std::thread([] { std::exit(0); }).join();
}

/// Created before the context, so that it is destroyed later.
class LateComer {
public:
    ~LateComer() {
        try {
            Socket socket("late", ClosePolicy::DropPending);
            socket.create(Protocol::Req);
        } catch (const std::runtime_error& failure) {
            std::cerr << failure.what() << "\n";
        }
    }
};

void createAfterTheContext() {
    static const LateComer late;
    useOneSocket();
}

/// Creates sockets until this fails.
void makeSockets() noexcept {
    const auto textOf = [](const std::string& reason) {
        return "Socket: Failed creating socket [Socket cmd] of type 4: " + reason + " on [Socket cmd]";
    };
    std::string failure;
    while (failure.empty() || failure == textOf("Too many open files")) { // ZeroMQ closes sockets slowly
        try {
            failure.clear();
            useOneSocket();
        } catch (const std::runtime_error& thrown) {
            failure = thrown.what();
        }
    }
    if (failure != textOf("Context was terminated")) {
        std::cerr << failure << "\n";
        std::_Exit(4);
    }
}

void leaveSocketsBeingMade() {
    static std::vector<std::future<void>> makers; // created before the context, so that it is destroyed later
    useOneSocket();
    for (int number = 0; number < 4; ++number) {
        makers.push_back(std::async(std::launch::async, makeSockets));
    }
}

void createFromFourThreadsAtOnce() {
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back(useOneSocket);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Connects to inproc names and then binds them, until the context ends.
void meetOnInproc(const std::string& prefix, std::atomic<int>& steps) {
    constexpr int names = 60;
    std::list<Socket> sockets;
    try {
        for (int step = 0; step < 2 * names; ++step, ++steps) {
            const SocketEndpoint name(Transport::Inproc, prefix + std::to_string(step % names), 0);
            sockets.emplace_back("racer", ClosePolicy::DropPending)
                .createAndConnect(step < names ? Protocol::Req : Protocol::Rep, name, 0);
        }
    } catch (const std::runtime_error&) {
        // The context is ending. It waits until this thread has closed its sockets.
    }
}

void exitWhileInprocNamesMeet() {
    static std::atomic<int> steps{0};
    std::thread(meetOnInproc, "one-", std::ref(steps)).detach();
    std::thread(meetOnInproc, "other-", std::ref(steps)).detach();
    const int enough = 60 + getpid() % 60;
    while (steps < enough) {
        std::this_thread::yield();
    }
}

void encrypt() {
    const rk::tests::SecuredProcess process;
}

/// Leaves a server with a running authenticator, and a client that it refuses.
void leaveAnAuthenticatorRunning() {
    encrypt();
    auto& listener = immortal<std::list<SilentListener>>().emplace_back(Protocol::Rep, "encrypted");
    const SocketEndpoint address = rk::tests::freshEndpoint(Transport::Tcp);
    startOn(listener, address.toString(Protocol::Req));
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, address, 0);
    client.send("question");
}

/// The library's first warning sets `warned`, and then waits for `released`.
struct FirstWarning {
    std::promise<void> warned;
    std::promise<void> released;
};

/// Sends the authenticator a request for a client without a key, as ZeroMQ does, and waits for the reply.
void askFor(const std::string& address, void* asker) {
    for (const std::string& frame : {std::string("1.0"), std::string("id"), std::string("domain")}) {
        zmq_send(asker, frame.data(), frame.size(), ZMQ_SNDMORE);
    }
    zmq_send(asker, address.data(), address.size(), 0);
    do {
        zmq_recv(asker, nullptr, 0, 0);
    } while (rk::tests::optionOf(asker, ZMQ_RCVMORE) != 0);
}

/// Without a listener, which could wait for the logger as well.
void startAuthenticator() {
    encrypt();
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, rk::tests::freshEndpoint(Transport::Tcp), 0);
}

/// Exits while the first of three refusals is being logged, like with a blocked standard error.
void exitWhileTheLoggerIsBlocked() {
    blocksWarnings = true;
    startAuthenticator();
    const rk::tests::ZmqHandle asker(getSocket(Protocol::Req));
    zmq_connect(asker.get(), "inproc://zeromq.zap.01");
    for (const char* const address : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
        askFor(address, asker.get());
    }
    immortal<FirstWarning>().warned.get_future().wait();
}

/// Returns the number of threads of the process.
std::ptrdiff_t threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator());
}

/// Lets the first warning end after the context has, and waits for the end of the library's threads.
class SlowLogger {
public:
    /// Starts a thread first, because sanitizers start another one then.
    SlowLogger() {
        std::thread([] {}).join();
        threadsBefore = threads();
    }
    ~SlowLogger() {
        immortal<FirstWarning>().released.set_value();
        while (threads() > threadsBefore) {
            std::this_thread::yield();
        }
    }

private:
    std::ptrdiff_t threadsBefore = 0;
};

void exitWhileTheLoggerIsSlow() {
    static const SlowLogger logger; // created before the context, so that it is destroyed later
    exitWhileTheLoggerIsBlocked();
}

/// Leaves a refused client whose log line cannot be written.
void exitWhileStandardErrorIsBlocked() {
    spdlog::stderr_logger_mt("rk")->set_level(spdlog::level::warn);
    // Never destroyed, and not a leak, which LeakSanitizer would report to the blocked standard error.
    immortal<rk::tests::BlockedStandardError>();
    startAuthenticator();
    const rk::tests::ZmqHandle asker(getSocket(Protocol::Req));
    zmq_connect(asker.get(), "inproc://zeromq.zap.01");
    askFor("10.0.0.1", asker.get());
}

/// Runs `action` in a child, which then exits.
void forkAnd(void (*action)()) {
    const pid_t child = fork();
    if (child == 0) {
        action();
        std::exit(0);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        std::_Exit(4);
    }
}

/// Forks a child that exits while the parent's authenticator runs.
void forkBesideAnAuthenticator() {
    leaveAnAuthenticatorRunning();
    forkAnd([] {});
}

/// Enables encryption before a fork, and creates sockets after it.
void encryptInAChild() {
    encrypt();
    forkAnd(leaveAnAuthenticatorRunning);
}

int portOf(int descriptor) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    const int result = getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return result == 0 && address.sin_family == AF_INET ? ntohs(address.sin_port) : none;
}

/// Delays the ZeroMQ thread that closes a connection until another descriptor has been closed. Never destroyed, because
/// ZeroMQ closes descriptors while the process ends.
class LostConnection {
public:
    /// \param localPort the local port of the connection
    void stopAt(unsigned short localPort) { port = localPort; }
    void awaitStop() { stopped.get_future().wait(); }
    void resumeAfter(int descriptor) { last = descriptor; }

    void beforeClose(int descriptor) {
        int expected = portOf(descriptor);
        if (expected != none && port.compare_exchange_strong(expected, none)) {
            stopped.set_value();
            resumed.get_future().wait();
        }
    }

    void afterClose(int descriptor) {
        if (descriptor != none && last.compare_exchange_strong(descriptor, none)) {
            resumed.set_value();
        }
    }

private:
    std::atomic<int> port{none};
    std::atomic<int> last{none};
    std::promise<void> stopped;
    std::promise<void> resumed;
};

/// Closes the publisher while ZeroMQ is dropping a connection whose subscriber has left messages unread.
void loseASubscriber(ClosePolicy::ClosePolicy policy) {
    const SocketEndpoint feed = rk::tests::freshEndpoint(Transport::Tcp);
    Socket publisher("source", policy);
    publisher.createAndConnect(Protocol::Pub, feed, 0);
    Socket subscriber("feed", ClosePolicy::DropPending);
    subscriber.create(Protocol::Sub);
    subscriber.setInternalFifoSize(1);
    subscriber.connect(feed, 0);
    std::string block(64 << 10, 'x');
    std::string error;
    do {
        publisher.send(block.data(), block.size());
    } while (subscriber.poll(1, error) != PollResult::Input);
    for (int number = 0; number < 500; ++number) { // more than TCP buffers
        publisher.send(block.data(), block.size());
    }

    immortal<LostConnection>().stopAt(feed.port);
    subscriber.close();
    immortal<LostConnection>().awaitStop();
    publisher.close();
    // ZeroMQ closes sockets in the order of the calls.
    const rk::tests::ZmqHandle last(getSocket(Protocol::Pub));
    immortal<LostConnection>().resumeAfter(rk::tests::optionOf(last.get(), ZMQ_FD));
}

} // namespace

/// Replaces the library's function.
void rk::utils::logWarning(const std::string& text) {
    if (blocksWarnings.exchange(false)) {
        immortal<FirstWarning>().warned.set_value();
        immortal<FirstWarning>().released.get_future().wait();
    }
    std::cerr << text << "\n";
}

int close(int descriptor) {
    static auto* const real = reinterpret_cast<decltype(&close)>(dlsym(RTLD_NEXT, "close"));
    immortal<LostConnection>().beforeClose(descriptor);
    const int result = real(descriptor);
    immortal<LostConnection>().afterClose(descriptor);
    return result;
}

int main(int argumentCount, char** arguments) {
    const std::map<std::string, void (*)()> scenarios{
        {"nothing", [] {}},
        {"one-socket", useOneSocket},
        {"listeners-running", leaveListenersRunning},
        {"threads-blocked", leaveThreadsBlocked},
        {"static-listener", leaveAStaticListenerRunning},
        {"exit-from-another-thread", exitFromAnotherThread},
        {"late-create", createAfterTheContext},
        {"inproc-names-meet", exitWhileInprocNamesMeet},
        {"sockets-being-made", leaveSocketsBeingMade},
        {"first-sockets-at-once", createFromFourThreadsAtOnce},
        {"authenticator-running", leaveAnAuthenticatorRunning},
        {"logger-blocked", exitWhileTheLoggerIsBlocked},
        {"logger-slow", exitWhileTheLoggerIsSlow},
        {"standard-error-blocked", exitWhileStandardErrorIsBlocked},
        {"forked", forkBesideAnAuthenticator},
        {"encrypted-in-a-child", encryptInAChild},
        {"lost-subscriber", [] { loseASubscriber(ClosePolicy::DropPending); }},
        {"lost-subscriber-lingering", [] { loseASubscriber(ClosePolicy::LingerTwoSeconds); }},
    };
    const auto scenario = scenarios.find(argumentCount == 2 ? arguments[1] : "");
    if (scenario == scenarios.end()) {
        return 2;
    }
    scenario->second();
    return 0;
}
