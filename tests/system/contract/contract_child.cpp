// A child process of Contract_test.cpp. Depending on its argument, it calls the library after the context has ended or
// on both sides of a fork. It prints the result of each call.

#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/utils/SocketListener.h>
#include <rk/utils/Log.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace rk;
using namespace rk::socket;

const SocketEndpoint endpoint(Transport::Inproc, "contract", 0);

class Listener : public socket::utils::SocketListener {
public:
    using SocketListener::SocketListener;
    ~Listener() override {
        std::string error;
        stop(error);
    }
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<tests::Text>(); }
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) override {
        socket->sendProtoBuf(message);
    }
};

void say(const std::string& text) {
    std::cerr << text << std::endl;
}

/// Prints the message of the exception that the call throws, if any.
void attempt(const std::string& name, const std::function<void()>& call) {
    try {
        call();
        say(name + ": done");
    } catch (const std::exception& failure) {
        say(name + ": " + failure.what());
    }
}

void sayValues() {
    say(Protocol::ToString(Protocol::FromString("rep")) + " " +
        std::to_string(Protocol::ToNativeProtocol(Protocol::Req)));
    say(Transport::ToString(Transport::FromString("ipc")));
    const SocketEndpoint read = SocketEndpoint::FromString("tcp://node:1");
    say(read.toString(Protocol::Pub) + " " + read.formatMessage("here"));
    say(read == SocketEndpoint(Transport::Tcp, "node", 1) && read != endpoint ? "equal" : "not equal");
    say(rk::utils::MessageFormatter("name").formatMessage("text"));
    say(ZmqContextTerminationException("the end").what());
}

void sayLogLines() {
    rk::utils::logDebug("a debug line");
    rk::utils::logWarning("a warning");
    rk::utils::logError("an error");
}

void callSocket() {
    Socket socket("late", ClosePolicy::WaitForDelivery);
    char byte = 'x';
    tests::Text text;
    std::string error;
    attempt("getSocket", [] { say(getSocket(Protocol::Pub) == nullptr && errno != 0 ? "null" : "a socket"); });
    attempt("create", [&] { socket.create(Protocol::Pub); });
    attempt("createAndConnect", [&] { socket.createAndConnect(Protocol::Pub, endpoint, 0); });
    attempt("connect", [&] { socket.connect(endpoint, 0); });
    attempt("resetConnections", [&] { socket.resetConnections(); });
    attempt("send", [&] { socket.send(&byte, 1); });
    attempt("sendProtoBuf", [&] { socket.sendProtoBuf(&text); });
    attempt("receive", [&] { socket.receive(&byte, 1); });
    attempt("receiveProtoBuf", [&] { socket.receiveProtoBuf(&text, 1); });
    attempt("poll", [&] { socket.poll(1000, error); });
    attempt("flushIncomingMessages", [&] { socket.flushIncomingMessages(); });
    attempt("setInternalFifoSize", [&] { socket.setInternalFifoSize(1); });
    attempt("activateStatistics", [&] { socket.activateStatistics(true); });
    attempt("addBlockToStatistics", [&] { socket.addBlockToStatistics(1); });
    attempt("setTargetBitRate", [&] { socket.setTargetBitRate(1); });
    attempt("handleBitRateCapping", [&] { socket.handleBitRateCapping(1); });
    attempt("close", [&] { socket.close(); });
    say(socket.debugString());
}

void callListener() {
    Listener listener(Protocol::Rep, "late");
    std::string error;
    say(listener.addListenEndpoint("inproc://late", error) ? "added" : error);
    say(listener.removeListenEndpoint("inproc://late", error) ? "removed" : error);
    say(listener.start(error) ? "started" : error);
    say(listener.stop(error) ? "stopped" : error);
    listener.threadFunction(nullptr);
    say(listener.makeErrorString("text"));
}

/// Created before the context, so that it is destroyed later.
class LateComer {
public:
    explicit LateComer(void (*lateCalls)()) : calls(lateCalls) {}
    ~LateComer() { calls(); }
    LateComer(const LateComer&) = delete;
    LateComer& operator=(const LateComer&) = delete;

private:
    void (*calls)();
};

template <void (*calls)()>
void callAfterTheContext() {
    static const LateComer late(calls);
    Socket("early", ClosePolicy::DropPending).create(Protocol::Pub);
}

/// Prints the exit status of the child, or the negative number of the signal that killed it.
void sayEndOf(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    say("the child ended with " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status)));
}

/// Runs `action` in a child and waits for the child.
void inChild(const std::function<void()>& action) {
    const pid_t child = fork();
    if (child == 0) {
        action();
        _exit(0);
    }
    sayEndOf(child);
}

/// A request and its reply, between two sockets of this process.
struct Exchange {
    Exchange() {
        server.createAndConnect(Protocol::Rep, endpoint, 20000);
        client.createAndConnect(Protocol::Req, endpoint, 20000);
    }
    void run() {
        char byte = 'x';
        client.send(&byte, 1);
        server.receive(&byte, 1);
        server.send(&byte, 1);
        client.receive(&byte, 1);
        say("answered");
    }
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
};

void askListener() {
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, SocketEndpoint(Transport::Inproc, "service", 0), 20000);
    tests::Text text;
    client.sendProtoBuf(&text);
    client.receiveProtoBuf(&text, 100);
    say("answered");
}

/// Lets children exit normally, and kills them if they hang.
void exitOrdinarily() {
    alarm(20);
    std::exit(7);
}

template <void (*end)()>
void forkWithSockets() {
    Exchange exchange;
    exchange.run();
    inChild(end);
    exchange.run();
}

/// The child closes its copies of the sockets, and returns from `main`.
void forkAndReturn() {
    Exchange exchange;
    exchange.run();
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        return;
    }
    sayEndOf(child);
    exchange.run();
}

void doNothing() {}

void forkWithAListener() {
    Listener listener(Protocol::Rep, "service");
    std::string error;
    listener.addListenEndpoint("inproc://service", error);
    listener.start(error);
    askListener();
    inChild(doNothing);
    askListener();
}

void forkBeforeTheFirstSocket() {
    inChild([] { Exchange().run(); });
    Exchange().run();
}

void forkAndUseValues() {
    Exchange exchange;
    inChild([] {
        sayValues();
        sayLogLines();
    });
}

/// Executes a program in a child that prints how many descriptors it has inherited.
void execInChild() {
    inChild([] { execl("/bin/sh", "sh", "-c", "ls -1 /proc/self/fd | wc -l >&2", nullptr); });
}

void forkAndExec() {
    execInChild();
    Exchange exchange;
    execInChild();
}

} // namespace

int main(int argumentCount, char** arguments) {
    const std::map<std::string, void (*)()> scenarios{
        {"late-values", callAfterTheContext<sayValues>},
        {"late-log-lines", callAfterTheContext<sayLogLines>},
        {"late-socket", callAfterTheContext<callSocket>},
        {"late-listener", callAfterTheContext<callListener>},
        {"fork-with-sockets", forkWithSockets<doNothing>},
        {"fork-and-exit", forkWithSockets<exitOrdinarily>},
        {"fork-and-return", forkAndReturn},
        {"fork-with-a-listener", forkWithAListener},
        {"fork-before-the-first-socket", forkBeforeTheFirstSocket},
        {"fork-and-use-values", forkAndUseValues},
        {"fork-and-exec", forkAndExec},
    };
    const auto scenario = scenarios.find(argumentCount == 2 ? arguments[1] : "");
    if (scenario == scenarios.end()) {
        return 2;
    }
    scenario->second();
    return 0;
}
