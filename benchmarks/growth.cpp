#include "support/Addresses.h"
#include "support/Report.h"
#include "support/Stopwatch.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/SocketListener.h>

#include <zmq.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <messages.pb.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

// Measures one point of one curve: how a cost grows with a number. Each point is measured in a process of its own.
//
// usage: growth CURVE NUMBER

namespace rk::benchmarks {

namespace {

using socket::Socket;
using socket::SocketEndpoint;

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

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

SocketEndpoint inproc(const std::string& name) {
    return {socket::Transport::Inproc, name, 0};
}

SocketEndpoint freshTcp() {
    return SocketEndpoint::FromString("tcp://127.0.0.1:" + freshAddress("tcp"));
}

void report(const std::string& curve, int number, const std::string& measure, double value) {
    Sample().text("curve", curve).number("number", number).text("measure", measure).number("value", value).write();
}

/// What one send takes, in nanoseconds: the median of some runs.
double timeOfSends(const std::function<void()>& send) {
    constexpr int runs = 9;
    constexpr int sends = 2000;
    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        const Stopwatch watch;
        for (int i = 0; i < sends; ++i) {
            send();
        }
        times.push_back(watch.nanoseconds() / sends);
    }
    return medianOf(times);
}

void endpoints(const std::string& curve, int number) {
    std::vector<SocketEndpoint> all;
    for (int i = 0; i < number; ++i) {
        all.push_back(inproc("endpoint-" + std::to_string(i)));
    }
    Socket publisher("growth", socket::ClosePolicy::DropPending);
    publisher.create(socket::Protocol::Pub);
    const double before = residentKilobytes();
    const Stopwatch connecting;
    for (const SocketEndpoint& endpoint : all) {
        publisher.connect(endpoint, 0);
    }
    report(curve, number, "connect all", connecting.nanoseconds());
    report(curve, number, "memory", residentKilobytes() - before);
    char block[16] = {};
    report(curve, number, "send", timeOfSends([&] { publisher.send(block, sizeof block); }));
    const Stopwatch rebuilding;
    publisher.resetConnections();
    report(curve, number, "rebuild", rebuilding.nanoseconds());
    const Stopwatch closing;
    publisher.close();
    report(curve, number, "close", closing.nanoseconds());
}

void endpointsByHand(const std::string& curve, int number) {
    void* const context = zmq_ctx_new();
    void* const native = zmq_socket(context, ZMQ_PUB);
    const double before = residentKilobytes();
    const Stopwatch connecting;
    for (int i = 0; i < number; ++i) {
        zmq_bind(native, ("inproc://endpoint-" + std::to_string(i)).c_str());
    }
    report(curve, number, "connect all", connecting.nanoseconds());
    report(curve, number, "memory", residentKilobytes() - before);
    char block[16] = {};
    report(curve, number, "send", timeOfSends([&] { zmq_send(native, block, sizeof block, 0); }));
    zmq_close(native);
    zmq_ctx_term(context);
}

void sockets(const std::string& curve, int number) {
    { Socket("first", socket::ClosePolicy::DropPending).create(socket::Protocol::Pub); }
    std::vector<std::unique_ptr<Socket>> all;
    const double before = residentKilobytes();
    const Stopwatch opening;
    for (int i = 0; i < number; ++i) {
        all.push_back(std::make_unique<Socket>("growth", socket::ClosePolicy::DropPending));
        all.back()->createAndConnect(socket::Protocol::Pub, inproc("socket-" + std::to_string(i)), 0);
    }
    report(curve, number, "open all", opening.nanoseconds());
    report(curve, number, "memory", residentKilobytes() - before);
    char block[16] = {};
    std::size_t turn = 0;
    report(curve, number, "send", timeOfSends([&] { all[turn++ % all.size()]->send(block, sizeof block); }));
    const Stopwatch closing;
    all.clear();
    report(curve, number, "close all", closing.nanoseconds());
}

void socketsByHand(const std::string& curve, int number) {
    void* const context = zmq_ctx_new();
    zmq_close(zmq_socket(context, ZMQ_PUB));
    std::vector<void*> all;
    const double before = residentKilobytes();
    const Stopwatch opening;
    for (int i = 0; i < number; ++i) {
        all.push_back(zmq_socket(context, ZMQ_PUB));
        zmq_bind(all.back(), ("inproc://socket-" + std::to_string(i)).c_str());
    }
    report(curve, number, "open all", opening.nanoseconds());
    report(curve, number, "memory", residentKilobytes() - before);
    char block[16] = {};
    std::size_t turn = 0;
    report(curve, number, "send", timeOfSends([&] { zmq_send(all[turn++ % all.size()], block, sizeof block, 0); }));
    const Stopwatch closing;
    for (void* const native : all) {
        zmq_close(native);
    }
    report(curve, number, "close all", closing.nanoseconds());
    zmq_ctx_term(context);
}

void subscribers(const std::string& curve, int number) {
    constexpr int blocks = 500;
    const SocketEndpoint endpoint = freshTcp();
    Socket publisher("growth", socket::ClosePolicy::DropPending);
    publisher.create(socket::Protocol::Pub);
    publisher.setInternalFifoSize(0);
    publisher.connect(endpoint, 0);
    const double before = residentKilobytes();
    std::vector<std::unique_ptr<Socket>> all;
    char block[256] = {};
    std::string error;
    for (int i = 0; i < number; ++i) {
        all.push_back(std::make_unique<Socket>("growth", socket::ClosePolicy::DropPending));
        all.back()->create(socket::Protocol::Sub);
        all.back()->setInternalFifoSize(0);
        all.back()->connect(endpoint, 0);
        do {
            publisher.send(block, 1);
        } while (all.back()->poll(1, error) != socket::PollResult::Input);
    }
    report(curve, number, "memory", residentKilobytes() - before);
    std::vector<double> times;
    for (int run = 0; run < 9; ++run) {
        const Stopwatch watch;
        for (int i = 0; i < blocks; ++i) {
            publisher.send(block, sizeof block);
        }
        for (const auto& subscriber : all) {
            int left = blocks;
            while (left > 0) {
                left -= subscriber->receive(block, sizeof block) == sizeof block ? 1 : 0;
            }
        }
        times.push_back(watch.nanoseconds() / blocks);
    }
    report(curve, number, "publish and receive", medianOf(times));
}

int exchangesOf(int size) {
    return size > (1 << 22) ? 5 : 51;
}

void reportExchanges(const std::string& curve, int size, const std::function<void()>& exchange) {
    std::vector<double> times;
    for (int i = 0; i < exchangesOf(size); ++i) {
        const Stopwatch watch;
        exchange();
        times.push_back(watch.nanoseconds());
    }
    report(curve, size, "request and short reply", medianOf(times));
    report(curve, size, "memory", peakKilobytes());
}

void size(const std::string& curve, int number) {
    const auto length = static_cast<std::size_t>(number);
    const SocketEndpoint endpoint = freshTcp();
    Socket replier("server", socket::ClosePolicy::DropPending);
    replier.createAndConnect(socket::Protocol::Rep, endpoint, 0);
    std::thread server([&replier, length, number] {
        std::vector<char> buffer(length + 1);
        for (int i = 0; i < exchangesOf(number); ++i) {
            replier.receive(buffer.data(), buffer.size());
            replier.send(buffer.data(), 1);
        }
    });
    Socket client("client", socket::ClosePolicy::DropPending);
    client.createAndConnect(socket::Protocol::Req, endpoint, 0);
    std::vector<char> block(length + 1);
    reportExchanges(curve, number, [&] {
        client.send(block.data(), length);
        client.receive(block.data(), 1);
    });
    server.join();
}

void sizeByHand(const std::string& curve, int number) {
    const auto length = static_cast<std::size_t>(number);
    const std::string url = "tcp://127.0.0.1:" + freshAddress("tcp");
    void* const context = zmq_ctx_new();
    void* const replier = zmq_socket(context, ZMQ_REP);
    zmq_bind(replier, url.c_str());
    std::thread server([replier, length, number] {
        std::vector<char> buffer(length + 1);
        for (int i = 0; i < exchangesOf(number); ++i) {
            zmq_recv(replier, buffer.data(), buffer.size(), 0);
            zmq_send(replier, buffer.data(), 1, 0);
        }
    });
    void* const client = zmq_socket(context, ZMQ_REQ);
    zmq_connect(client, url.c_str());
    std::vector<char> block(length + 1);
    reportExchanges(curve, number, [&] {
        zmq_send(client, block.data(), length, 0);
        zmq_recv(client, block.data(), 1, 0);
    });
    server.join();
    zmq_close(client);
    zmq_close(replier);
    zmq_ctx_term(context);
}

class EchoListener final : public socket::utils::SocketListener {
public:
    EchoListener() : SocketListener(socket::Protocol::Rep, "growth") {}
    ~EchoListener() override {
        std::string ignored;
        stop(ignored);
    }
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Reading>(); }
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> replier) override {
        replier->sendProtoBuf(message);
    }
};

void listeners(const std::string& curve, int number) {
    std::vector<std::unique_ptr<EchoListener>> all;
    std::vector<std::unique_ptr<Socket>> clients;
    std::string error;
    const double before = residentKilobytes();
    const Stopwatch starting;
    for (int i = 0; i < number; ++i) {
        const SocketEndpoint endpoint = freshTcp();
        all.push_back(std::make_unique<EchoListener>());
        if (!all.back()->addListenEndpoint(endpoint.toString(socket::Protocol::Rep), error) ||
            !all.back()->start(error)) {
            throw std::runtime_error(error);
        }
        clients.push_back(std::make_unique<Socket>("growth", socket::ClosePolicy::DropPending));
        clients.back()->createAndConnect(socket::Protocol::Req, endpoint, 20000);
    }
    report(curve, number, "start all", starting.nanoseconds());
    Reading reading;
    reading.set_payload("x");
    const auto exchangeWithAll = [&] {
        for (const auto& client : clients) {
            client->sendProtoBuf(&reading);
        }
        for (const auto& client : clients) {
            client->receiveProtoBuf(&reading, 1024);
        }
    };
    exchangeWithAll();
    std::vector<double> times;
    for (int i = 0; i < 101; ++i) {
        const Stopwatch watch;
        exchangeWithAll();
        times.push_back(watch.nanoseconds());
    }
    report(curve, number, "a request to each", medianOf(times));
    report(curve, number, "memory", residentKilobytes() - before);
    // Each takes up to a second to stop: all at once.
    std::vector<std::thread> stoppers;
    for (const auto& listener : all) {
        stoppers.emplace_back([&listener] {
            std::string ignored;
            listener->stop(ignored);
        });
    }
    for (std::thread& stopper : stoppers) {
        stopper.join();
    }
}

using Curve = void (*)(const std::string&, int);
const std::map<std::string, Curve> curves = {{"endpoints", endpoints},     {"endpoints by hand", endpointsByHand},
                                             {"sockets", sockets},         {"sockets by hand", socketsByHand},
                                             {"subscribers", subscribers}, {"size", size},
                                             {"size by hand", sizeByHand}, {"listeners", listeners}};

} // namespace

} // namespace rk::benchmarks

int main(int argc, char** argv) {
    if (argc != 3 || rk::benchmarks::curves.count(argv[1]) == 0) {
        std::fputs("usage: growth CURVE NUMBER\n", stderr);
        return 2;
    }
    try {
        rk::benchmarks::curves.at(argv[1])(argv[1], std::atoi(argv[2]));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
