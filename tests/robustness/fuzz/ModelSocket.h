#pragma once

#include "robustness/fuzz/Boundary.h"
#include "robustness/fuzz/Require.h"

#include <rk/socket/Protocol.h>
#include <rk/socket/SocketEndpoint.h>

#include <google/protobuf/message.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace rk::tests {

/// The calls and log lines of one operation, which the model checks in order.
class Script {
public:
    void begin(std::vector<Event> events, std::chrono::steady_clock::duration duration) {
        all = std::move(events);
        next = 0;
        took = duration;
    }

    /// Returns the next event, and requires it to be `line`.
    const Event& take(const std::string& line) {
        requireEqual(line, next < all.size() ? all[next].line : "nothing", "the library did something else");
        return all[next++];
    }

    bool goesOnWith(const std::string& line) const { return next < all.size() && all[next].line == line; }

    void requireEnd() const {
        requireEqual("nothing", next < all.size() ? all[next].line : "nothing", "the library did more");
    }

    std::chrono::steady_clock::duration duration() const { return took; }

private:
    std::vector<Event> all;
    std::size_t next = 0;
    std::chrono::steady_clock::duration took{};
};

/// Maps each address to the native socket of the process that holds it, or to 0 after the release. Lives as long as the
/// library's own record.
using Addresses = std::map<std::string, int>;

/// A second implementation of `Socket` as a model: its states, turns, counters and the order of its calls.
///
/// It has the operations of the library's socket with the required results. It makes no calls itself. It checks the
/// script of the library's calls, and takes ZeroMQ's results from there.
class ModelSocket {
public:
    ModelSocket(const std::string& name, int closePolicy, Script& script, Addresses& addresses);

    void create(socket::Protocol::Protocol pattern);
    void close();
    void connect(const socket::SocketEndpoint& endpoint, unsigned int receiveTimeout);
    void createAndConnect(socket::Protocol::Protocol pattern, const socket::SocketEndpoint& endpoint,
                          unsigned int receiveTimeout);
    void resetConnections();
    void send(void* data, unsigned long size);
    void sendProtoBuf(google::protobuf::Message* message);
    int receive(void* buffer, unsigned long size);
    void receiveProtoBuf(google::protobuf::Message* message, unsigned int size);
    int poll(unsigned int timeout, std::string& error);
    void flushIncomingMessages();
    void setInternalFifoSize(int size);
    void activateStatistics(bool active);
    void setTargetBitRate(unsigned int rate) { bitRate = rate; }
    void addBlockToStatistics(unsigned int size);
    void handleBitRateCapping(unsigned int size);
    std::string debugString() const { return "[Socket " + name + "]"; }

private:
    enum class Turn {
        Either, ///< of a publisher or subscriber, which do not alternate
        Send,
        Receive
    };

    struct Connection {
        socket::SocketEndpoint endpoint;
        unsigned int receiveTimeout;
    };

    const Event& call(const std::string& text) { return script.take("#" + std::to_string(native) + " " + text); }
    bool is(socket::Protocol::Protocol pattern) const { return protocol == pattern; }
    bool binds() const { return is(socket::Protocol::Pub) || is(socket::Protocol::Rep); }
    std::string textOf(const socket::SocketEndpoint& endpoint) const;
    std::string connectionPhrase() const;
    std::string reason(int error) const;

    void closeNative();
    void attach(const socket::SocketEndpoint& endpoint, unsigned int receiveTimeout);
    int bind(const std::string& address);
    void setOptions(unsigned int receiveTimeout);
    void setLinger();
    int set(int option, const std::string& value);
    void repair();
    Event sendOnce(const std::string& message);
    Event receiveOnce(unsigned long size);
    Event receiveWithRepair(unsigned long size);
    [[noreturn]] void failTransfer(const char* operation, const char* prefix, int error) const;
    double readClock();

    const std::string name;
    int closePolicy;
    Script& script;
    Addresses& addresses;
    int native = 0;
    socket::Protocol::Protocol protocol = socket::Protocol::Undef;
    std::vector<Connection> connections;
    Turn turn = Turn::Either;
    bool countsBlocks = false;
    std::uint32_t blocks = 0;
    std::uint32_t bytes = 0;
    double periodBegan = 0.0;
    std::uint32_t bitRate = 0;
    double lastSend = 0.0;
    std::uint32_t bufferSize = 0;
};

} // namespace rk::tests
