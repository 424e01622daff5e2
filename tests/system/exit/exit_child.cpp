// A process that ends in the way its argument names, for Exit_test.cpp to watch.

#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/utils/SocketListener.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

/// ThreadSanitizer's options: threads that nobody joins are what some scenarios are about, and a second at exit is
/// long.
extern "C" const char* __tsan_default_options() {
    return "report_thread_leaks=0:atexit_sleep_ms=0";
}

namespace {

using namespace rk::socket;

const SocketEndpoint endpoint(Transport::Inproc, "exit", 0);

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

void startOn(SilentListener& listener, const std::string& name) {
    std::string error;
    if (!listener.addListenEndpoint("inproc://" + name, error) || !listener.start(error)) {
        std::cerr << error << "\n";
        std::_Exit(3);
    }
}

/// Threads that say when they are about to block, for the main thread to wait for.
class Blockers {
public:
    void start() {
        std::thread([this] { block(); }).detach();
    }
    void awaitAll(int count) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return blocking == count; });
    }

private:
    void block() {
        try {
            Socket socket("blocked", ClosePolicy::DropPending);
            socket.createAndConnect(Protocol::Sub, endpoint, 0);
            {
                const std::lock_guard<std::mutex> lock(mutex);
                ++blocking;
                changed.notify_all();
            }
            char buffer[1];
            socket.receive(buffer, sizeof buffer);
        } catch (const ZmqContextTerminationException&) {
            // What a thread gets whose process ends.
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    int blocking = 0;
};

/// Never destroyed: the threads may still be in it when the process ends.
Blockers& blockers() {
    static auto* const instance = std::make_unique<Blockers>().release();
    return *instance;
}

void useOneSocket() {
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.create(Protocol::Req);
}

/// Never destroyed, like the listeners of an application that does not care.
std::list<SilentListener>& leftListeners() {
    static auto* const instance = std::make_unique<std::list<SilentListener>>().release();
    return *instance;
}

void leaveListenersRunning() {
    for (int number = 0; number < 4; ++number) {
        startOn(leftListeners().emplace_back(Protocol::Rep, "left"), "left-" + std::to_string(number));
    }
}

void leaveThreadsBlocked() {
    for (int number = 0; number < 4; ++number) {
        blockers().start();
    }
    blockers().awaitAll(4);
}

void leaveAStaticListenerRunning() {
    static SilentListener listener(Protocol::Sub, "static");
    startOn(listener, "static");
}

void exitFromAnotherThread() {
    leaveListenersRunning();
    leaveThreadsBlocked();
    std::thread([] { std::exit(0); }).join();
}

/// Made before the context, hence destroyed after it.
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

/// Makes sockets until none is given any more. Made before the context, hence destroyed after it.
class Makers {
public:
    void start() {
        threads.emplace_back([this] { make(); });
    }
    ~Makers() {
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

private:
    void make() const {
        std::string failure;
        while (failure.empty() || failure == textOf("Too many open files")) { // 0MQ may lag behind with closing them.
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

    static std::string textOf(const std::string& reason) {
        return "Socket: Failed creating socket [Socket cmd] of type 4: " + reason + " on [Socket cmd]";
    }

    std::vector<std::thread> threads;
};

void leaveSocketsBeingMade() {
    static Makers makers;
    useOneSocket();
    for (int number = 0; number < 4; ++number) {
        makers.start();
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

/// Connects to inproc names and then binds them, as often as the context lets it.
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
        // The context has ended, or will after this thread has closed its sockets.
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

} // namespace

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
    };
    const auto scenario = scenarios.find(argumentCount == 2 ? arguments[1] : "");
    if (scenario == scenarios.end()) {
        return 2;
    }
    scenario->second();
    return 0;
}
