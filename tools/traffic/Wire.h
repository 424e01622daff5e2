#pragma once

#include "traffic/Connection.h"
#include "traffic/Keys.h"
#include "traffic/Pattern.h"

#include <rk/socket/ClosePolicy.h>
#include <rk/socket/SocketEndpoint.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

class Complaints;
class Context;
class Frames;
class StopSignals;

using Parts = std::vector<std::string>; ///< of a message that is sent

/// The options of a socket.
struct SocketSettings {
    std::vector<std::string> endpoints;
    std::vector<std::string> topics;            ///< of a subscriber. All messages if there is none.
    std::optional<bool> binds;                  ///< instead of what the pattern does.
    std::optional<std::uint64_t> subscriptions; ///< that a publisher waits for.
    rk::socket::detail::NetworkSettings network;
    KeyFiles keys;
    std::optional<unsigned int> rate;                                ///< in Mbit/s.
    std::optional<int> fifo;                                         ///< messages in the queue of each peer.
    std::optional<rk::socket::ClosePolicy::ClosePolicy> closePolicy; ///< instead of what the subcommand does
    std::size_t maxSize = 64UL * 1024 * 1024;                        ///< of a received message, in bytes
};

/// A ZeroMQ socket with one endpoint. A signal ends each wait.
class Wire {
public:
    using Clock = std::chrono::steady_clock;
    using ClosePolicy = rk::socket::ClosePolicy::ClosePolicy;

    Wire(Context& context, const Pattern& pattern, const std::string& endpoint, const SocketSettings& settings,
         const StopSignals& stop, const Complaints& complaints);
    ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    /// Binds or connects, and waits for the subscriptions. Throws std::runtime_error with the reason.
    void open();

    /// Closes the socket. `policy` decides on unsent messages.
    void close(ClosePolicy policy);

    /// Replaces the socket. ZeroMQ does not reconnect after a protocol error.
    void reconnect();

    /// Sends a message. Returns false if there is no room in the queue until `deadline`, or after a signal.
    bool send(const Parts& message, Clock::time_point deadline = Clock::time_point::max());

    /// Sends to each peer that has room in its queue. Returns false if one has none.
    bool sendWithoutWaiting(const Parts& message);

    /// Receives a message without waiting. Returns false if there is none.
    bool receive(Frames& frames);

    void* native() const { return socket; }
    const std::string& endpoint() const { return address; }
    std::size_t maxSize() const { return settings.maxSize; }

    /// Null if this side binds.
    Connection* connection() const { return peer.get(); }

    /// Why a side that connects cannot talk to the other one, or nothing if it can.
    std::optional<std::string> trouble() const;

    /// Remarks on clients that have been refused.
    void reportRefusals() const;

private:
    bool binds() const;
    void create();
    void subscribe();
    void bind();
    void connect();
    void attachTo(const rk::socket::SocketEndpoint& place);
    bool sendParts(const Parts& message, int flags, Clock::time_point deadline);
    void takeSubscriptions();
    void awaitSubscriptions();
    void removeFile();
    void set(int option, int value);
    void refuse(const std::string& action) const;

    Context& context;
    const Pattern& pattern;
    std::string address;
    rk::socket::SocketEndpoint target;
    const SocketSettings& settings;
    rk::socket::detail::NetworkSettings network;
    const StopSignals& stop;
    const Complaints& complaints;
    void* socket = nullptr;
    std::unique_ptr<Connection> peer;
    std::optional<std::uint64_t> file; ///< the inode of our socket file
    std::uint64_t subscriptions = 0;
};

} // namespace rk::tools
