#include "Commands.h"
#include "Measuring.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/SocketListener.h>

#include <zmq.h>

#include <fstream>
#include <map>
#include <memory>
#include <messages.pb.h>
#include <sys/resource.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>

// Measures one point of a curve that shows how a time grows with a number. The driver starts a process for each point.

namespace rk::benchmarks {

namespace {

using namespace socket::Protocol;

/// A socket of the library, with the same interface as `PlainSocket`.
class LibrarySocket final : public socket::Socket {
public:
    using Address = socket::SocketEndpoint;
    static Address addressOf(const std::string& url) { return Address::FromString(url); }

    explicit LibrarySocket(Protocol pattern) : Socket("growth", socket::ClosePolicy::DropPending) { create(pattern); }

    void attach(const Address& address) { connect(address, 20000); }
};

/// A socket of ZeroMQ's C interface.
class PlainSocket {
public:
    using Address = std::string;
    static Address addressOf(const std::string& url) { return url; }

    explicit PlainSocket(Protocol protocol)
        : binds(protocol == Pub || protocol == Rep),
          native(zmq_socket(context(), socket::Protocol::ToNativeProtocol(protocol))) {}
    ~PlainSocket() { close(); }
    PlainSocket(const PlainSocket&) = delete;
    PlainSocket& operator=(const PlainSocket&) = delete;

    void attach(const Address& url) {
        require((binds ? zmq_bind(native, url.c_str()) : zmq_connect(native, url.c_str())) == 0, "attaching");
    }
    void send(void* block, std::size_t size) { zmq_send(native, block, size, 0); }
    void receive(void* buffer, std::size_t size) { zmq_recv(native, buffer, size, 0); }
    void close() { zmq_close(std::exchange(native, nullptr)); }

private:
    static void* context() {
        static void* const instance = zmq_ctx_new();
        return instance;
    }

    const bool binds;
    void* native;
};

double residentKilobytes() {
    std::ifstream file("/proc/self/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024.0;
}

double peakKilobytes() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return static_cast<double>(used.ru_maxrss);
}

void report(const std::string& measure, double value) {
    write({{"measure", measure}}, {{"value", value}});
}

template <class Work>
double timeOf(const Work& work) {
    const Stopwatch watch;
    work();
    return watch.nanoseconds();
}

/// Returns the median time of several runs, in nanoseconds.
template <class Work>
double medianTimeOf(int runs, const Work& work) {
    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        times.push_back(timeOf(work));
    }
    return medianOf(times);
}

template <class Send>
void reportSends(const Send& send) {
    constexpr int sends = 2000;
    const double taken = medianTimeOf(9, [&send] {
        for (int i = 0; i < sends; ++i) {
            send();
        }
    });
    report("send", taken / sends);
}

template <class Way>
void endpoints(int number) {
    std::vector<typename Way::Address> all;
    for (int i = 0; i < number; ++i) {
        all.push_back(Way::addressOf("inproc://endpoint-" + std::to_string(i)));
    }
    Way publisher(Pub);
    const double before = residentKilobytes();
    report("connect all", timeOf([&] {
               for (const auto& address : all) {
                   publisher.attach(address);
               }
           }));
    report("memory", residentKilobytes() - before);
    char block[16] = {};
    reportSends([&] { publisher.send(block, sizeof block); });
    if constexpr (std::is_same_v<Way, LibrarySocket>) {
        report("rebuild", timeOf([&] { publisher.resetConnections(); }));
    }
    report("close", timeOf([&] { publisher.close(); }));
}

template <class Way>
void sockets(int number) {
    static_cast<void>(Way(Pub));
    std::vector<std::unique_ptr<Way>> all;
    const double before = residentKilobytes();
    report("open all", timeOf([&] {
               for (int i = 0; i < number; ++i) {
                   all.push_back(std::make_unique<Way>(Pub));
                   all.back()->attach(Way::addressOf("inproc://socket-" + std::to_string(i)));
               }
           }));
    report("memory", residentKilobytes() - before);
    char block[16] = {};
    std::size_t turn = 0;
    reportSends([&] { all[turn++ % all.size()]->send(block, sizeof block); });
    report("close all", timeOf([&] { all.clear(); }));
}

template <class Way>
void size(int number) {
    const auto length = static_cast<std::size_t>(number);
    const int exchanges = number > (1 << 22) ? 5 : 51;
    const auto address = Way::addressOf(freshUrl("tcp"));
    Way replier(Rep);
    replier.attach(address);
    std::thread server([&] {
        std::vector<char> buffer(length + 1);
        for (int i = 0; i < exchanges; ++i) {
            replier.receive(buffer.data(), buffer.size());
            replier.send(buffer.data(), 1);
        }
    });
    Way client(Req);
    client.attach(address);
    const double before = residentKilobytes();
    std::vector<char> block(length + 1);
    report("request and short reply", medianTimeOf(exchanges, [&] {
               client.send(block.data(), length);
               client.receive(block.data(), 1);
           }));
    report("memory", peakKilobytes() - before);
    server.join();
}

/// Returns a publisher or subscriber with unlimited queues.
std::unique_ptr<LibrarySocket> openBoundless(Protocol protocol, const socket::SocketEndpoint& endpoint) {
    auto opened = std::make_unique<LibrarySocket>(protocol);
    opened->setInternalFifoSize(0);
    opened->attach(endpoint);
    return opened;
}

void subscribers(int number) {
    constexpr int blocks = 500;
    const auto endpoint = LibrarySocket::addressOf(freshUrl("tcp"));
    const auto publisher = openBoundless(Pub, endpoint);
    const double before = residentKilobytes();
    std::vector<std::unique_ptr<LibrarySocket>> all;
    char block[256] = {};
    std::string error;
    for (int i = 0; i < number; ++i) {
        all.push_back(openBoundless(Sub, endpoint));
        do {
            publisher->send(block, 1);
        } while (all.back()->poll(1, error) != socket::PollResult::Input);
    }
    report("memory", residentKilobytes() - before);
    const double taken = medianTimeOf(9, [&] {
        for (int i = 0; i < blocks; ++i) {
            publisher->send(block, sizeof block);
        }
        for (const auto& subscriber : all) {
            int left = blocks;
            while (left > 0) {
                left -= subscriber->receive(block, sizeof block) == sizeof block ? 1 : 0;
            }
        }
    });
    report("publish and receive", taken / blocks);
}

class EchoListener final : public socket::utils::SocketListener {
public:
    explicit EchoListener(const std::string& url) : SocketListener(socket::Protocol::Rep, "growth") {
        std::string error;
        require(addListenEndpoint(url, error) && start(error), "listening");
    }
    ~EchoListener() override {
        std::string ignored;
        stop(ignored);
    }
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Reading>(); }
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> replier) override {
        replier->sendProtoBuf(message);
    }
};

void exchangeWithAll(const std::vector<std::unique_ptr<LibrarySocket>>& clients) {
    Reading reading;
    reading.set_payload("x");
    for (const auto& client : clients) {
        client->sendProtoBuf(&reading);
    }
    for (const auto& client : clients) {
        client->receiveProtoBuf(&reading, 1024);
    }
}

void listeners(int number) {
    std::vector<std::unique_ptr<EchoListener>> all;
    std::vector<std::unique_ptr<LibrarySocket>> clients;
    const double before = residentKilobytes();
    report("start all", timeOf([&] {
               for (int i = 0; i < number; ++i) {
                   const std::string url = freshUrl("tcp");
                   all.push_back(std::make_unique<EchoListener>(url));
                   clients.push_back(std::make_unique<LibrarySocket>(Req));
                   clients.back()->attach(LibrarySocket::addressOf(url));
               }
           }));
    exchangeWithAll(clients);
    report("a request to each", medianTimeOf(101, [&] { exchangeWithAll(clients); }));
    report("memory", residentKilobytes() - before);
    // In parallel, because each takes up to a second to stop.
    std::vector<std::thread> stoppers;
    for (auto& listener : all) {
        stoppers.emplace_back([&listener] { listener.reset(); });
    }
    for (std::thread& stopper : stoppers) {
        stopper.join();
    }
}

struct Curve {
    void (*measure)(int);
    void (*measureByHand)(int);
};

const std::map<std::string, Curve> curves = {{"endpoints", {endpoints<LibrarySocket>, endpoints<PlainSocket>}},
                                             {"sockets", {sockets<LibrarySocket>, sockets<PlainSocket>}},
                                             {"size", {size<LibrarySocket>, size<PlainSocket>}},
                                             {"subscribers", {subscribers, nullptr}},
                                             {"listeners", {listeners, nullptr}}};

void measure(const std::string& name, int number, bool byHand) {
    const Curve& curve = curves.at(name);
    require(!byHand || curve.measureByHand != nullptr, "that curve by hand");
    (byHand ? curve.measureByHand : curve.measure)(number);
}

} // namespace

void addGrowth(CLI::App& program) {
    struct Options {
        std::string curve;
        int number = 0;
        bool byHand = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command = program.add_subcommand("growth", "Measure one point of a curve");
    command->add_option("CURVE", options->curve)->required()->check(CLI::IsMember(curves));
    command->add_option("NUMBER", options->number, "of what the curve is about")->required();
    command->add_flag("--by-hand", options->byHand, "use ZeroMQ's C interface instead of the library");
    command->callback([options] { measure(options->curve, options->number, options->byHand); });
}

} // namespace rk::benchmarks
