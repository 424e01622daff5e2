#include "support/Addresses.h"
#include "support/Report.h"
#include "support/Stopwatch.h"

#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/utils/Log.h>

#include <zmq.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

// How long it takes from a jam to the next exchange that is served.
//
// A request socket jams when it sends twice, a reply socket when it receives twice. The reply socket's next client is a
// new one, that connects as soon as the socket listens again. Beside it stands the cure in use without the library:
// close, sleep 100 ms, bind.
//
// usage: repair CYCLES CURES     how often each jam is repaired, and cured

namespace rk::benchmarks {

namespace {

/// Something that one thread announces and another waits for.
class Signal {
public:
    void give() {
        const std::lock_guard<std::mutex> lock(mutex);
        ++given;
        changed.notify_one();
    }
    void take() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return given > 0; });
        --given;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    int given = 0;
};

/// The log tells when a reply socket listens.
Signal listening;
const std::string listeningLine = "Connected [Socket server]";

constexpr unsigned int patience = 20000;

socket::SocketEndpoint freshEndpoint(const std::string& transport) {
    const std::string address = freshAddress(transport);
    return socket::SocketEndpoint::FromString(transport == "tcp" ? "tcp://127.0.0.1:" + address
                                                                 : transport + "://" + address);
}

void write(const std::string& transport, const std::string& what, double nanoseconds) {
    Sample().text("transport", transport).text("repair", what).number("nanoseconds", nanoseconds).write();
}

void requestOnce(const socket::SocketEndpoint& endpoint) {
    socket::Socket client("client", socket::ClosePolicy::DropPending);
    client.createAndConnect(socket::Protocol::Req, endpoint, patience);
    char block = 'x';
    client.send(&block, 1);
    client.receive(&block, 1);
}

void repairRequestSocket(const std::string& transport, int cycles) {
    const socket::SocketEndpoint endpoint = freshEndpoint(transport);
    std::thread server([&endpoint] {
        socket::Socket replier("server", socket::ClosePolicy::DropPending);
        replier.createAndConnect(socket::Protocol::Rep, endpoint, patience);
        char block = 0;
        do {
            replier.receive(&block, 1);
            replier.send(&block, 1);
        } while (block != 'q');
    });
    listening.take();
    socket::Socket client("client", socket::ClosePolicy::DropPending);
    client.createAndConnect(socket::Protocol::Req, endpoint, patience);
    char block = 'x';
    for (int i = 0; i < cycles; ++i) {
        block = 'x';
        client.send(&block, 1);
        const Stopwatch watch;
        block = 'y';
        client.send(&block, 1);
        client.receive(&block, 1);
        write(transport, "request", watch.nanoseconds());
        if (block != 'y') {
            throw std::runtime_error("the reply is not to the last request");
        }
    }
    block = 'q';
    client.send(&block, 1);
    client.receive(&block, 1);
    server.join();
}

/// Lets a new client make one exchange each time that the server listens again.
class Clients {
public:
    Clients(const socket::SocketEndpoint& where, int count) : thread([this, where, count] { run(where, count); }) {}
    ~Clients() { thread.join(); }
    Clients(const Clients&) = delete;
    Clients& operator=(const Clients&) = delete;

    void waitForReply() { replied.take(); }

private:
    void run(const socket::SocketEndpoint& endpoint, int count) {
        for (int i = 0; i < count; ++i) {
            listening.take();
            requestOnce(endpoint);
            replied.give();
        }
    }

    Signal replied;
    std::thread thread;
};

/// A request that is received and never answered.
void jam(socket::Socket& server, const socket::SocketEndpoint& endpoint, std::optional<socket::Socket>& abandoned) {
    abandoned.emplace("abandoned", socket::ClosePolicy::DropPending);
    abandoned->createAndConnect(socket::Protocol::Req, endpoint, patience);
    char block = 'x';
    abandoned->send(&block, 1);
    server.receive(&block, 1);
}

void repairReplySocket(const std::string& transport, int cycles) {
    const socket::SocketEndpoint endpoint = freshEndpoint(transport);
    socket::Socket server("server", socket::ClosePolicy::DropPending);
    server.createAndConnect(socket::Protocol::Rep, endpoint, patience);
    listening.take();
    std::optional<socket::Socket> abandoned;
    Clients clients(endpoint, cycles);
    for (int i = 0; i < cycles; ++i) {
        jam(server, endpoint, abandoned);
        abandoned.reset();
        char block = 0;
        const Stopwatch watch;
        server.receive(&block, 1);
        server.send(&block, 1);
        clients.waitForReply();
        write(transport, "reply", watch.nanoseconds());
    }
}

/// A native reply socket of the library's own context, so that in-process clients find it.
void* bindByHand(const std::string& url) {
    void* const native = socket::getSocket(socket::Protocol::Rep);
    const int none = 0;
    zmq_setsockopt(native, ZMQ_LINGER, &none, sizeof none);
    if (zmq_bind(native, url.c_str()) != 0) {
        throw std::runtime_error("the cure failed: " + std::string(zmq_strerror(zmq_errno())));
    }
    return native;
}

void cureReplySocket(const std::string& transport, int cycles) {
    const socket::SocketEndpoint endpoint = freshEndpoint(transport);
    const std::string url = endpoint.toString(socket::Protocol::Rep);
    void* native = bindByHand(url);
    Clients clients(endpoint, cycles);
    for (int i = 0; i < cycles; ++i) {
        const Stopwatch watch;
        zmq_close(native);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        native = bindByHand(url);
        listening.give();
        char block = 0;
        zmq_recv(native, &block, 1, 0);
        zmq_send(native, &block, 1, 0);
        clients.waitForReply();
        write(transport, "cure", watch.nanoseconds());
    }
    zmq_close(native);
}

} // namespace

} // namespace rk::benchmarks

namespace rk::utils {

void logDebug(const std::string& text) {
    if (text == benchmarks::listeningLine) {
        benchmarks::listening.give();
    }
}

void logWarning(const std::string&) {}
void logError(const std::string&) {}

} // namespace rk::utils

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: repair CYCLES CURES\n", stderr);
        return 2;
    }
    try {
        for (const char* const transport : {"tcp", "ipc", "inproc"}) {
            rk::benchmarks::repairRequestSocket(transport, std::atoi(argv[1]));
            rk::benchmarks::repairReplySocket(transport, std::atoi(argv[1]));
            rk::benchmarks::cureReplySocket(transport, std::atoi(argv[2]));
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
