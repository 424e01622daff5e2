#include "zmq_stub.h"

#include <rk/socket/Socket.h>
#include <rk/utils/Log.h>

#include <zmq.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <messages.pb.h>
#include <string>

// Repeats one operation, either through the library or by hand on ZeroMQ's C interface, and prints the number of
// allocations. Cost_test.cpp runs it under callgrind with two numbers of repetitions, and takes the difference.
//
// usage: cost_child WORK PAYLOAD TIMES     PAYLOAD is the size of the bytes in the protobuf messages

namespace rk::utils {

// Log lines are not measured.
void logDebug(const std::string&) {}
void logWarning(const std::string&) {}
void logError(const std::string&) {}

} // namespace rk::utils

namespace {

using rk::cost::Reading;
using rk::socket::Socket;

constexpr unsigned int bufferSize = 65536;

/// The arguments for the library and for the work by hand.
struct Bench {
    explicit Bench(std::size_t payload) {
        blob.set_payload(std::string(payload, 'x'));
        message.set_sequence(1);
        message.set_time(1.5);
        message.set_source("front");
        message.set_payload(std::string(payload, 'x'));
        rk::cost::letBeReceived(message.SerializeAsString());
        socket.createAndConnect(rk::socket::Protocol::Req, rk::socket::SocketEndpoint::FromString("inproc://cost"), 0);
    }

    Socket socket{"cost", rk::socket::ClosePolicy::DropPending};
    void* native = zmq_socket(zmq_ctx_new(), ZMQ_REQ);
    std::unique_ptr<char[]> buffer{new char[bufferSize]};
    rk::cost::Blob blob;
    Reading message;
    Reading received;
};

/// Not inlined, so that the loop is the same for all work.
template <class Work>
[[gnu::noinline]] void repeat(long times, Work work) {
    for (long i = 0; i < times; ++i) {
        work(i);
    }
}

/// Sends `times` blocks. Restarts the statistics after 49 blocks, so that no line is logged.
void sendInShortPeriods(Bench& bench, long times, bool statistics) {
    repeat(times, [&bench, statistics](long block) {
        if (block % 49 == 0) {
            bench.socket.activateStatistics(statistics);
        }
        bench.socket.send(bench.buffer.get(), 64);
    });
}

void receiveInShortPeriods(Bench& bench, long times, bool statistics) {
    repeat(times, [&bench, statistics](long block) {
        if (block % 49 == 0) {
            bench.socket.activateStatistics(statistics);
        }
        bench.socket.receive(bench.buffer.get(), bufferSize);
    });
}

void sendByHand(void* native, const void* data, std::size_t size) {
    if (zmq_send(native, data, size, 0) < 0) {
        std::abort();
    }
}

int receiveByHand(void* native, void* buffer, std::size_t size) {
    const int length = zmq_recv(native, buffer, size, 0);
    if (length < 0) {
        std::abort();
    }
    return length;
}

template <class Message>
void sendProtoBufByHand(void* native, const Message& message) {
    if (!message.IsInitialized()) {
        std::abort();
    }
    const std::size_t size = message.ByteSizeLong();
    char* const buffer = static_cast<char*>(std::malloc(size));
    static_cast<void>(message.SerializeToArray(buffer, static_cast<int>(size)));
    sendByHand(native, buffer, size);
    std::free(buffer);
}

void receiveProtoBufByHand(void* native, Reading& message, char* buffer) {
    const int length = receiveByHand(native, buffer, bufferSize);
    if (!message.ParseFromArray(buffer, length)) {
        std::abort();
    }
}

using Works = std::map<std::string, std::function<void(Bench&, long)>>;

const Works works = {
    {"send by hand",
     [](Bench& b, long times) { repeat(times, [&b](long) { sendByHand(b.native, b.buffer.get(), 64); }); }},
    {"send", [](Bench& b, long times) { repeat(times, [&b](long) { b.socket.send(b.buffer.get(), 64); }); }},
    {"send without statistics", [](Bench& b, long times) { sendInShortPeriods(b, times, false); }},
    {"send with statistics", [](Bench& b, long times) { sendInShortPeriods(b, times, true); }},
    {"send with the rate line",
     [](Bench& b, long times) {
         b.socket.activateStatistics(true);
         repeat(times, [&b](long) { b.socket.send(b.buffer.get(), 64); });
     }},
    {"send with a cap of 0",
     [](Bench& b, long times) {
         b.socket.setTargetBitRate(1);
         b.socket.setTargetBitRate(0);
         repeat(times, [&b](long) { b.socket.send(b.buffer.get(), 64); });
     }},
    {"receive by hand",
     [](Bench& b, long times) { repeat(times, [&b](long) { receiveByHand(b.native, b.buffer.get(), bufferSize); }); }},
    {"receive",
     [](Bench& b, long times) { repeat(times, [&b](long) { b.socket.receive(b.buffer.get(), bufferSize); }); }},
    {"receive without statistics", [](Bench& b, long times) { receiveInShortPeriods(b, times, false); }},
    {"receive with statistics", [](Bench& b, long times) { receiveInShortPeriods(b, times, true); }},
    {"sendProtoBuf by hand",
     [](Bench& b, long times) { repeat(times, [&b](long) { sendProtoBufByHand(b.native, b.message); }); }},
    {"sendProtoBuf", [](Bench& b, long times) { repeat(times, [&b](long) { b.socket.sendProtoBuf(&b.message); }); }},
    {"sendProtoBuf of a blob by hand",
     [](Bench& b, long times) { repeat(times, [&b](long) { sendProtoBufByHand(b.native, b.blob); }); }},
    {"sendProtoBuf of a blob",
     [](Bench& b, long times) { repeat(times, [&b](long) { b.socket.sendProtoBuf(&b.blob); }); }},
    {"receiveProtoBuf by hand",
     [](Bench& b, long times) {
         repeat(times, [&b](long) { receiveProtoBufByHand(b.native, b.received, b.buffer.get()); });
     }},
    {"receiveProtoBuf",
     [](Bench& b, long times) { repeat(times, [&b](long) { b.socket.receiveProtoBuf(&b.received, bufferSize); }); }},
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    Bench bench(std::strtoul(argv[2], nullptr, 10));
    const auto& work = works.at(argv[1]);
    // Excludes one-time costs, such as the receive buffer.
    work(bench, 50);
    const unsigned long before = rk::cost::allocations();
    work(bench, std::strtol(argv[3], nullptr, 10));
    const unsigned long made = rk::cost::allocations() - before;
    std::fprintf(stderr, "allocations: %lu\n", made);
    return 0;
}
