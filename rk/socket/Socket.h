#pragma once
#pragma GCC system_header // users are not warned that the destructor is not virtual

#include <rk/Export.h>
#include <rk/socket/ClosePolicy.h>
#include <rk/socket/PollResult.h>
#include <rk/socket/Protocol.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/utils/MessageFormatter.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace google::protobuf {
class Message;
}

namespace rk::socket {

namespace detail {
class Attachment;
class BoundAddresses;
} // namespace detail

class PollSet;

namespace utils {
class Requester;
class SocketListener;
} // namespace utils

/// A messaging socket of one pattern: publish, subscribe, request or reply.
///
/// Construct it, open it with `createAndConnect`, then send and receive messages. Call `connect` for each further
/// endpoint. `Pub` and `Rep` sockets bind, `Sub` and `Req` sockets connect. `close` or the destructor closes it.
///
/// Repair: a `Req` that sends before it has received the reply to its last request is rebuilt, and so is a `Rep` that
/// receives before it has replied. The socket remembers its endpoints for this purpose. It logs a warning, connects
/// again and retries the call once. See `resetConnections` for what a rebuild loses.
///
/// Threads: one thread at a time uses a socket. Sending, receiving and polling take no lock. Different sockets are
/// independent of each other. Do not use a socket on both sides of a `fork`.
///
/// Failures: "the socket is closed" means that it is as constructed, without endpoints. If a lock failed, the next
/// `close` or `create` forgets the endpoints. Any operation may throw `std::bad_alloc`. In that case, an operation that
/// opens the socket leaves it closed. The guide "Troubleshooting by error message" explains each message.
///
/// Process exit: it waits for every open socket. Threads that are blocked in one get a `ZmqContextTerminationException`
/// and must close it. A `Socket` that is a static object, or on the stack of a thread that calls `exit`, prevents the
/// process from ending.
class RK_SOCKET_EXPORT Socket : public rk::utils::MessageFormatter {
public:
    /// Constructs a closed socket.
    /// \param name appears in every message about this socket
    /// \param closePolicy how long unsent messages are kept after the socket is closed
    Socket(const std::string& name, ClosePolicy::ClosePolicy closePolicy);

    /// Closes the socket. Ends the process if a lock fails.
    ~Socket();

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Opens a new native socket of the pattern, without endpoints. Closes the old one, if any.
    ///
    /// Does not block. On failure the socket is closed. Statistics and rate limit keep their settings. The queue size
    /// returns to that of `Network::setQueueSize`.
    ///
    /// \throws std::runtime_error if the pattern is unknown, sockets or file descriptors are used up, process exit has
    ///         begun, or ZeroMQ could not start, which is permanent
    /// \throws std::system_error if a lock fails
    void create(Protocol::Protocol protocol);

    /// Closes the native socket, if any, and forgets every endpoint. May be called at any time.
    ///
    /// Does not block: ZeroMQ sends queued messages in the background, as long as the close policy allows.
    /// \throws std::system_error if a lock fails. The native socket is closed even then.
    void close();

    /// Returns "[Socket " + name + "]".
    std::string debugString() const;

    /// Returns whether the socket is open: created, and not closed since by a call or a failure. Does not block.
    bool isOpen() const noexcept { return zmqSocket != nullptr; }

    /// Returns the endpoint to which the socket was last bound or connected, or `SocketEndpoint()` if it has none.
    ///
    /// For TCP port 0 and the IPC path "*" it holds the port or path that the system chose. A rebuild chooses another.
    /// Any thread may call it. It blocks only while another thread records a connection.
    /// \throws std::system_error if a lock fails
    SocketEndpoint lastEndpoint() const;

    /// Binds (`Pub`, `Rep`) or connects (`Sub`, `Req`) to one more endpoint. An endpoint that the socket already has is
    /// ignored, and so is its receive timeout.
    ///
    /// Does not wait for the peer, but for two other things. If this process has released the address, binding retries
    /// until two seconds after the release, and for at least 50 ms. A host name to listen on (see `Network::listenOn`)
    /// is resolved. On failure the socket is closed, unless it was not open to begin with.
    ///
    /// A `Sub` subscribes to everything, and its close policy becomes `DropPending`. A bound IPC socket file gets mode
    /// 0777, and binding takes the path over from another socket. On inproc, bind first. Logs a debug line before and
    /// after.
    ///
    /// \param endpoint where to bind or connect. On TCP, `Pub` and `Rep` listen on all interfaces or where
    ///        `Network::listenOn` says.
    /// \param receiveTimeout how long `receive` waits, in milliseconds, for all endpoints. 0 keeps the current timeout,
    ///        which is initially infinite. 4294967295 makes it infinite. Other values above 2147483647 are rejected.
    /// \throws std::runtime_error if the socket is not open, the host to listen on is not one of this machine, or
    ///         ZeroMQ rejects the address or an option
    /// \throws std::system_error if a lock fails, or the thread that checks the keys of clients cannot start
    void connect(const SocketEndpoint& endpoint, unsigned int receiveTimeout);

    /// Calls `create`, then `connect`. Throws what they throw, and leaves the socket closed on failure.
    void createAndConnect(Protocol::Protocol protocol, const SocketEndpoint& endpoint, unsigned int receiveTimeout);

    /// Replaces the native socket by a new one with the same pattern and the same endpoints, in the same order. Does
    /// nothing on a closed socket.
    ///
    /// Blocks as `connect` does, about two seconds at most in all. Needs one free ZeroMQ socket. On failure it logs an
    /// error, and the socket is closed.
    ///
    /// A rebuild has these effects:
    /// - Requests that are queued in a `Rep` are dropped. Unsent messages are kept only as the close policy says.
    /// - A request that is then sent again may be served twice.
    /// - Peers on TCP and IPC reconnect by themselves, peers on inproc do not.
    /// - The queue size returns to that of `Network::setQueueSize`.
    /// - The old native socket counts as open until its messages are delivered or dropped. See the guide "Resource
    ///   limits" before you retry against a server that is down, or on inproc.
    void resetConnections() noexcept;

    /// Sends the `size` bytes at `data` as one message. Copies them. `size` may be 0.
    ///
    /// A `Req` without a connection blocks without limit. Nothing else blocks: a `Pub` drops the message for a
    /// subscriber whose queue is full, a `Rep` drops the reply to a client that has disconnected or whose queue is
    /// full. Then pauses as `setTargetBitRate` says. On failure the socket is unchanged, rebuilt, or closed if the
    /// rebuild failed.
    ///
    /// A `Req` that has not received the reply to its last request is rebuilt first, and a warning logged.
    ///
    /// \throws std::runtime_error if the socket is closed, a `Rep` has no request to reply to, the pattern cannot send,
    ///         or a signal interrupts the call
    /// \throws ZmqContextTerminationException once process exit has begun
    void send(void* data, unsigned long size);

    /// Sends constant bytes: those at a `const T*`, where `T` is `void` or trivially copyable.
    template <class T,
              std::enable_if_t<std::conjunction_v<std::is_const<T>, std::negation<std::is_volatile<T>>,
                                                  std::disjunction<std::is_void<T>, std::is_trivially_copyable<T>>>,
                               int> = 0>
    void send(T* data, unsigned long size) {
        send(const_cast<void*>(static_cast<const void*>(data)), size);
    }

    /// Sends the characters of a string as one message, without a terminating zero.
    void send(std::string_view message) { send(message.data(), message.size()); }

    /// Deleted, because a null pointer is not a string.
    void send(std::nullptr_t) = delete;

    /// Deleted, because a buffer needs a size: it may have no terminating zero.
    template <std::size_t N>
    void send(char (&)[N]) = delete;

    /// Serialises `message` and sends it. Blocks and throws as `send` does. No other thread may write to the message
    /// during the call.
    ///
    /// \throws std::runtime_error if `message` is null, lacks a required field, takes more than 2147483647 bytes, or
    ///         was changed by another thread. Nothing has been sent then.
    /// \throws google::protobuf::FatalException if protobuf itself detects such a change. Since protobuf 22 it ends the
    ///         process instead.
    void sendProtoBuf(google::protobuf::Message* message);

    /// Serialises `message` and sends it, like the overload for a pointer.
    void sendProtoBuf(const google::protobuf::Message& message) {
        sendProtoBuf(const_cast<google::protobuf::Message*>(std::addressof(message)));
    }

    /// Receives one message into the `size` bytes at `buffer` and returns its length in bytes.
    ///
    /// Truncates a longer message to `size` bytes and returns its full length, or 2147483647 if that is smaller. Of a
    /// multipart message, which only other ZeroMQ programs send, each call returns one part. A `Rep` can reply after
    /// the last.
    ///
    /// Blocks until a message arrives, at most for the receive timeout of `connect`, and for a rebuild as
    /// `resetConnections` does. On failure the socket is unchanged, rebuilt, or closed if the rebuild failed.
    ///
    /// A `Rep` that has not replied to its last request drops it, is rebuilt with a warning logged, and waits for a new
    /// one.
    ///
    /// \throws TimeoutException if the receive timeout expires
    /// \throws std::runtime_error if the socket is closed, a `Req` has sent no request, the pattern cannot receive, or
    ///         a signal interrupts the call
    /// \throws ZmqContextTerminationException once process exit has begun
    int receive(void* buffer, unsigned long size);

    /// Receives one message and parses it into `message`. Blocks and throws as `receive` does.
    ///
    /// The socket keeps its receive buffer, which grows to the largest `size` and never shrinks. A message that does
    /// not fit or parse is consumed, and a `Rep` then owes its reply as after any request.
    ///
    /// \param message the result. It may be partly filled after a failed parse.
    /// \param size the minimum size of the receive buffer, in bytes. From 2147483648 on, this and every later message
    ///        is rejected.
    /// \throws std::runtime_error if `message` is null, `size` is 0, or the message is larger than the buffer or does
    ///         not parse
    void receiveProtoBuf(google::protobuf::Message* message, unsigned int size);

    /// Receives one message and parses it into `message`, like the overload for a pointer.
    void receiveProtoBuf(google::protobuf::Message& message, unsigned int size) {
        receiveProtoBuf(std::addressof(message), size);
    }

    /// Waits until a message can be received. A `Rep` that owes a reply has no input until it sends the reply, or
    /// `receive` drops the request.
    ///
    /// Blocks for at most `timeout`. The socket is unchanged.
    /// \param timeout in milliseconds. 0 returns at once.
    /// \param error the reason if the result is `Failure`, for example because of a signal. Otherwise untouched.
    /// \throws std::runtime_error if the socket is closed
    /// \throws ZmqContextTerminationException once process exit has begun
    PollResult::PollResult poll(unsigned int timeout, std::string& error);

    /// Discards every message that a `Sub` has already received. Does nothing for other patterns or on a closed socket.
    ///
    /// Does not wait, but continues as long as messages are available. A failed poll, for example because of a signal,
    /// ends it without an error.
    /// \throws std::runtime_error if an available message cannot be received
    /// \throws ZmqContextTerminationException once process exit has begun
    void flushIncomingMessages();

    /// Sets the length of ZeroMQ's queue for each peer: the outgoing queue of `Pub` and `Req`, the incoming queue of
    /// `Sub` and `Rep`. Does nothing on a closed socket. A failure is only logged, as an error.
    ///
    /// Call it between `create` and `connect`: it applies to later connections, and libzmq 4.3.4 may crash if the size
    /// changes while a peer disconnects. `create` and each rebuild reset it. The other queue of the socket keeps the
    /// size of `Network::setQueueSize`.
    /// \param size in messages. 0 means no limit. Negative sizes fail.
    void setInternalFifoSize(int size);

    /// Switches statistics on or off, and starts a new period.
    ///
    /// While they are on, every 50 blocks log their rate as a debug line. A block is a message that was received or
    /// passed to `send`, even if the send failed. See the guide "Diagnosing a live system".
    void activateStatistics(bool active);

    /// Limits the rate at which messages are sent. `send` pauses after a message that was sent too early.
    ///
    /// The first limited send never pauses. No pause is longer than its message takes at this rate, even if the wall
    /// clock is set back. A signal ends a pause early.
    /// \param rate megabits (1,048,576 bits) per second. 0 switches the limit off.
    void setTargetBitRate(unsigned int rate);

    /// Counts one block of `size` bytes, even if statistics are off. `send` and `receive` call it.
    void addBlockToStatistics(unsigned int size) noexcept;

    /// Pauses until a block of `size` bytes that was just sent is due, as `setTargetBitRate` says. Does not pause
    /// without a limit. `send` calls it.
    void handleBitRateCapping(unsigned int size);

private:
    friend class PollSet;
    friend class utils::Requester;
    friend class utils::SocketListener;

    /// The endpoints of the socket, in the order of the calls to `connect`, each with its receive timeout. Lookup takes
    /// constant time.
    class RK_SOCKET_NO_EXPORT Connections {
    public:
        bool contains(const SocketEndpoint& target) const;
        void add(const SocketEndpoint& target, unsigned int receiveTimeout);
        void clear();

        auto begin() const { return list.begin(); }
        auto end() const { return list.end(); }

    private:
        std::list<std::pair<SocketEndpoint, unsigned int>> list;
        std::unordered_set<std::string> keys;
    };

    /// Counts blocks and logs their rate at the end of each period. A period begins with the first block after the
    /// previous period or after `activate`.
    class RK_SOCKET_NO_EXPORT Statistics {
    public:
        void activate(bool active);
        bool areActive() const { return active; }
        void add(unsigned int size, const IMessageFormatter& socket) noexcept;

    private:
        void startOver();
        void beginPeriod() noexcept;
        void endPeriod(const IMessageFormatter& socket) noexcept;

        bool active = false;
        std::uint32_t sampleCount = 0;
        std::uint32_t byteCount = 0;
        std::uint32_t blockCount = 0;
        double startTime = 0.0;
    };

    /// Spaces blocks to keep a bit rate. Remembers the time of the last block when the rate changes.
    class RK_SOCKET_NO_EXPORT RateCap {
    public:
        void set(unsigned int rate) { targetBitRate = rate; }
        bool isSet() const { return targetBitRate != 0; }
        void pauseAfter(unsigned int size);

    private:
        std::uint32_t targetBitRate = 0;
        double lastSendTime = 0.0;
    };

    RK_SOCKET_NO_EXPORT void attach(const SocketEndpoint& target, unsigned int receiveTimeout);
    RK_SOCKET_NO_EXPORT void bindOrConnect(detail::Attachment& attachment);
    RK_SOCKET_NO_EXPORT void setOptions(unsigned int receiveTimeout);
    RK_SOCKET_NO_EXPORT void remember(const SocketEndpoint& target, unsigned int receiveTimeout,
                                      const detail::Attachment& attachment);
    RK_SOCKET_NO_EXPORT void closeNativeSocket() noexcept;

    RK_SOCKET_NO_EXPORT void rebuild();
    RK_SOCKET_NO_EXPORT void reconnect();
    RK_SOCKET_NO_EXPORT void repairJam();
    RK_SOCKET_NO_EXPORT bool abandonUnansweredRequest(std::string& error);
    RK_SOCKET_NO_EXPORT void sendBytes(const void* data, std::size_t size);
    RK_SOCKET_NO_EXPORT void sendAfterFailure(const void* data, std::size_t size);
    RK_SOCKET_NO_EXPORT int receiveAfterFailure(void* buffer, std::size_t size);
    RK_SOCKET_NO_EXPORT void setQueueSize(int option, int size, const char* failurePrefix);

    void* zmqSocket = nullptr;
    Protocol::Protocol protocol = Protocol::Undef;
    std::string name;
    ClosePolicy::ClosePolicy closePolicy;
    Connections connections;
    SocketEndpoint endpoint;
    std::string receiveTimeoutText = "undef";
    std::string header;
    mutable std::mutex connectionMutex;
    std::unique_ptr<detail::BoundAddresses> boundAddresses; ///< of a listener's socket, guarded by `connectionMutex`
    Statistics statistics;
    RateCap rateCap;
    std::unique_ptr<char[]> receiveBuffer;
    std::uint32_t receiveBufferSize = 0;
};

} // namespace rk::socket
