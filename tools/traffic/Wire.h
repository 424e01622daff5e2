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

/// What a socket is made like.
struct SocketSettings {
    std::vector<std::string> endpoints;
    std::vector<std::string> topics;                 ///< of a subscriber; none means all
    std::optional<bool> binds;                       ///< without it, as the pattern does
    std::string listenOn = "*";                      ///< what a host that binds is replaced by
    std::optional<std::int64_t> maxMessageSize;      ///< of a peer that connects, in bytes
    std::optional<std::chrono::seconds> peerTimeout; ///< after which a machine has vanished
    bool ipv6 = false;
    KeyFiles keys;
    std::optional<unsigned int> rate; ///< in Mbit/s
    std::optional<int> fifo;
    std::optional<rk::socket::ClosePolicy::ClosePolicy> closePolicy; ///< without it, as the subcommand does
    std::size_t maxSize = 64UL * 1024 * 1024;                        ///< of a message that is received, in bytes
};

/// A ZeroMQ socket with one endpoint. It waits for nothing that a signal cannot interrupt.
class Wire {
public:
    using ClosePolicy = rk::socket::ClosePolicy::ClosePolicy;

    enum class Subscriptions {
        Ignored,
        Counted
    };

    Wire(Context& context, Pattern pattern, const std::string& endpoint, const SocketSettings& settings,
         const StopSignals& stop, const Complaints& complaints);
    ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    /// Binds or connects. Throws std::runtime_error with the reason.
    void open(Subscriptions subscriptions = Subscriptions::Ignored);

    /// Closes the socket. `policy` says what becomes of messages that are not yet sent.
    void close(ClosePolicy policy);

    /// Connects again, after ZeroMQ has given the connection up.
    void reconnect();

    /// Sends a message. Waits for room until `deadline`. False if there was none, or when told to stop.
    bool send(const Parts& message, Connection::Clock::time_point deadline);

    /// Sends to each subscriber that has room, without waiting. False if one of them has none.
    bool sendWithoutWaiting(const Parts& message);

    /// Takes the next message without waiting. False if there is none.
    bool receive(Frames& frames);

    /// Waits until so many subscriptions have come. False when told to stop.
    bool awaitSubscriptions(std::uint64_t number);

    void* native() const { return socket; }
    Pattern pattern() const { return role; }
    const std::string& endpoint() const { return address; }
    bool binds() const;

    /// "[Socket ENDPOINT]".
    std::string debugString() const;

    /// Null if this side binds.
    Connection* connection() const { return peer.get(); }

    /// Why the other side and this one cannot talk, for people. Nothing if they can, or if this side binds.
    std::optional<std::string> trouble() const;

    /// Remarks on clients that have been refused.
    void reportRefusals() const;

private:
    void create(Subscriptions subscriptions);
    void attach();
    void bind();
    std::string listenAddress() const;
    void setNetwork();
    bool sendParts(const Parts& message, int flags, Connection::Clock::time_point deadline);
    void takeSubscriptions();
    void removeFile();
    void set(int option, int value);
    void refuse(const std::string& action) const;

    Context& context;
    Pattern role;
    std::string address;
    rk::socket::SocketEndpoint target;
    const SocketSettings& settings;
    const StopSignals& stop;
    const Complaints& complaints;
    void* socket = nullptr;
    std::unique_ptr<Connection> peer;
    std::optional<std::uint64_t> file; ///< the number of the socket file that was made
    bool counts = false;
    std::uint64_t subscriptions = 0;
};

} // namespace rk::tools
