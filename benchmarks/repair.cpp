#include "Commands.h"
#include "Measuring.h"

#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/utils/Log.h>

#include <zmq.h>

#include <chrono>
#include <future>
#include <memory>
#include <semaphore.h>
#include <thread>

// Measures the time from a jam to the next complete exchange.
//
// A request socket jams when it sends twice, and a reply socket when it receives twice. After the repair of a reply
// socket, a new client connects as soon as the socket listens again. The comparison is the usual workaround without the
// library: close, sleep 100 ms, bind.

namespace rk::benchmarks {

namespace {

/// An event that one thread sets and another waits for.
class Signal {
public:
    Signal() { ::sem_init(&semaphore, 0, 0); }
    void give() { ::sem_post(&semaphore); }
    void take() {
        while (::sem_wait(&semaphore) != 0) {
        }
    }

private:
    sem_t semaphore{};
};

/// Set by the log line of a reply socket that listens.
Signal listening;
const std::string listeningLine = "Connected [Socket server]";

constexpr unsigned int patience = 20000;

void report(const std::string& transport, const std::string& what, const Stopwatch& watch) {
    const double nanoseconds = watch.nanoseconds();
    write({{"transport", transport}, {"repair", what}}, {{"nanoseconds", nanoseconds}});
}

/// A socket at `url` that exchanges blocks of one byte, and drops unsent ones when closed.
class End {
public:
    End(const std::string& name, socket::Protocol::Protocol protocol, const std::string& url)
        : socket(name, socket::ClosePolicy::DropPending) {
        socket.createAndConnect(protocol, socket::SocketEndpoint::FromString(url), patience);
    }

    void send(char block) { socket.send(&block, 1); }

    char receive() {
        char block = 0;
        socket.receive(&block, 1);
        return block;
    }

private:
    socket::Socket socket;
};

void repairRequestSocket(const std::string& transport, int cycles) {
    const std::string url = freshUrl(transport);
    std::thread server([&url] {
        End replier("server", socket::Protocol::Rep, url);
        char block = 0;
        do {
            block = replier.receive();
            replier.send(block);
        } while (block != 'q');
    });
    listening.take();
    End client("client", socket::Protocol::Req, url);
    for (int i = 0; i < cycles; ++i) {
        client.send('x');
        const Stopwatch watch;
        client.send('y');
        const char reply = client.receive();
        report(transport, "request", watch);
        require(reply == 'y', "the repair, which got the reply to another request,");
    }
    client.send('q');
    client.receive();
    server.join();
}

/// Performs one exchange as a new client, once a server listens.
std::future<void> exchangeOnceItListens(const std::string& url) {
    return std::async(std::launch::async, [url] {
        listening.take();
        End client("client", socket::Protocol::Req, url);
        client.send('x');
        client.receive();
    });
}

void repairReplySocket(const std::string& transport, int cycles) {
    const std::string url = freshUrl(transport);
    End server("server", socket::Protocol::Rep, url);
    listening.take();
    for (int i = 0; i < cycles; ++i) {
        {
            End abandoned("abandoned", socket::Protocol::Req, url);
            abandoned.send('x');
            server.receive();
        }
        std::future<void> exchange = exchangeOnceItListens(url);
        const Stopwatch watch;
        server.send(server.receive());
        exchange.get();
        report(transport, "reply", watch);
    }
}

/// Returns a native reply socket in the library's context, so that inproc clients can connect.
void* bindByHand(const std::string& url) {
    void* const native = socket::getSocket(socket::Protocol::Rep);
    const int none = 0;
    zmq_setsockopt(native, ZMQ_LINGER, &none, sizeof none);
    require(zmq_bind(native, url.c_str()) == 0, "binding by hand");
    return native;
}

void cureReplySocket(const std::string& transport, int cycles) {
    const std::string url = freshUrl(transport);
    void* native = bindByHand(url);
    for (int i = 0; i < cycles; ++i) {
        std::future<void> exchange = exchangeOnceItListens(url);
        const Stopwatch watch;
        zmq_close(native);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        native = bindByHand(url);
        listening.give();
        char block = 0;
        zmq_recv(native, &block, 1, 0);
        zmq_send(native, &block, 1, 0);
        exchange.get();
        report(transport, "cure", watch);
    }
    zmq_close(native);
}

} // namespace

void addRepair(CLI::App& program) {
    struct Options {
        int cycles = 0;
        int cures = 0;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        program.add_subcommand("repair", "Measure the time from a jam to the next exchange that is served");
    command->add_option("CYCLES", options->cycles, "how often each jam is repaired")->required();
    command->add_option("CURES", options->cures, "how often a jam is cured by hand")->required();
    command->callback([options] {
        for (const char* const transport : {"tcp", "ipc", "inproc"}) {
            repairRequestSocket(transport, options->cycles);
            repairReplySocket(transport, options->cycles);
            cureReplySocket(transport, options->cures);
        }
    });
}

} // namespace rk::benchmarks

// Standard error and output contain only figures.
namespace rk::utils {

void logDebug(const std::string& text) {
    if (text == benchmarks::listeningLine) {
        benchmarks::listening.give();
    }
}

void logWarning(const std::string&) {}
void logError(const std::string&) {}

} // namespace rk::utils
