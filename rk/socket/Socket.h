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
/// The story of a socket: it is built closed; `create` opens it for a pattern; `connect` binds it (publish, reply) or
/// connects it (subscribe, request) to an endpoint, any number of times; messages are sent and received; `close`, or
/// the destructor, ends it. A socket remembers its endpoints, so that it can be rebuilt: when 0MQ refuses a request
/// that is sent before the last one was answered, or a receive before the last request was answered, the socket is
/// rebuilt, connected again, and the call made once more. See `resetConnections` for what a rebuild loses.
///
/// Threads: a socket is used by one thread at a time, and takes no lock to send, receive or poll. Different sockets are
/// independent of each other. Do not use one on both sides of a `fork`.
///
/// Failures are thrown as `std::runtime_error`. Texts that end with the 0MQ error are written here as E, which stands
/// for the text of the 0MQ error + " on " + `debugString()`. "The socket is closed" below means that it is as it was
/// built, and that every endpoint is forgotten; but when it was a mutex that could not be locked, these are forgotten
/// by the next `close` or `create`. Where there is no memory, any operation may throw `std::bad_alloc`; of those that
/// open the socket, it is then closed.
///
/// Process exit waits for every open socket. Threads that are blocked in one get `ZmqContextTerminationException`, and
/// must close it. A `Socket` that is a static object, or one on the stack of a thread that calls `exit`, keeps the
/// process from ending.
class RK_SOCKET_EXPORT Socket : public rk::utils::MessageFormatter {
public:
    /// Builds the object, closed. `name` stands in every text about this socket; `closePolicy` chooses how long
    /// messages that are not yet sent are kept after a close.
    Socket(const std::string& name, ClosePolicy::ClosePolicy closePolicy);

    /// Closes the socket. Ends the process when a mutex cannot be locked.
    ~Socket();

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Closes whatever is open and opens a new native socket of the given pattern, which is connected nowhere. The
    /// settings of statistics and capping stay; the queue size starts again at 0MQ's default. Does not block.
    ///
    /// \throws std::runtime_error "Socket: Failed creating socket " + `debugString()` + " of type " + number + ": " +
    ///         E, where E is "Invalid argument" for a value that is no pattern, "Too many open files" when 0MQ's
    ///         1,023 sockets or the process's descriptors are used up, "Context was terminated" once the process's exit
    ///         has begun, "Bad address", for good, if 0MQ could not be started
    /// \throws std::system_error when a mutex cannot be locked
    ///         After these, the socket is closed.
    void create(Protocol::Protocol protocol);

    /// Closes the native socket, if any, and forgets every endpoint. Allowed at any time, any number of times. Does not
    /// block: 0MQ goes on in the background, for as long as the close policy lets it.
    /// \throws std::system_error when the mutex cannot be locked; the native socket is then closed
    void close();

    /// "[Socket " + name + "]".
    std::string debugString() const;

    /// Returns whether the socket has been created, and neither closed since nor left closed by a failure. Does not
    /// block.
    bool isOpen() const noexcept { return zmqSocket != nullptr; }

    /// Returns the endpoint to which the socket was bound or connected last, or `SocketEndpoint()` if it has none. TCP
    /// port 0 and the IPC path "*" let the system choose: the endpoint then holds its choice, and a rebuild chooses
    /// again. Any thread may call it. It blocks only while another thread records a connection.
    /// \throws std::system_error when the mutex cannot be locked
    SocketEndpoint lastEndpoint() const;

    /// Binds (`Pub`, `Rep`) or connects (`Sub`, `Req`) the open socket to one more endpoint; one that the socket
    /// already has is passed over without a log line, and its `receiveTimeout` with it. A `Sub` socket subscribes to
    /// everything, and its close policy becomes `DropPending`. The socket file of an IPC endpoint that is bound gets
    /// mode 0777. Logs a debug line before and after.
    ///
    /// Connecting does not wait for the other side. On inproc, one of 0MQ's 1,023 sockets is used up for good when a
    /// socket connects to a name and is closed before anybody has bound that name.
    ///
    /// Binding does not block, unless 0MQ is still releasing an address that this process has itself given up: that is
    /// waited for, until two seconds after, or for 50 ms. An address that somebody else holds is refused at once, if
    /// this process has not given it up before; but 0MQ takes over an IPC path from whoever holds it.
    ///
    /// \param endpoint where to; on TCP, `Pub` and `Rep` listen on all interfaces, or where `Network::listenOn` says
    /// \param receiveTimeout how long `receive` waits for a message, in milliseconds, for the whole socket; 0 leaves it
    ///        as it is, at first without limit, and so is 4294967295; other values above 2147483647 are refused by 0MQ
    /// \throws std::runtime_error "Socket: Cannot connect a NULL socket"; nothing has changed
    /// \throws std::runtime_error "Socket: Socket type not handled"
    /// \throws std::runtime_error "Socket: Failed connecting/binding socket: " + E
    /// \throws std::runtime_error "Socket: Cannot listen on " + host + ": " + reason + " on " + `debugString()`
    /// \throws std::runtime_error "Socket: Error setting " + option + " " + E, for an option that `Network` needs
    /// \throws std::runtime_error "Socket: Error setting ZMQ_RCVTIMEO " + E
    /// \throws std::runtime_error "Socket: Error setting ZMQ_SUBSCRIBE " + E
    /// \throws std::system_error when a mutex cannot be locked
    ///         After all but the first of these, the socket is closed.
    void connect(const SocketEndpoint& endpoint, unsigned int receiveTimeout);

    /// `create`, then `connect`, with the exceptions of both.
    void createAndConnect(Protocol::Protocol protocol, const SocketEndpoint& endpoint, unsigned int receiveTimeout);

    /// Replaces the native socket by a fresh one of the same pattern, connected to the same endpoints in the same
    /// order. Does nothing on a closed socket. Blocks as `connect` does, hardly more than two seconds in all. When the
    /// socket cannot be rebuilt, logs `debugString()` + ": Error resetting socket: " + reason at error level; the
    /// socket is then closed.
    ///
    /// Requests that wait in a reply socket are dropped, and so is what a close policy does not keep; a request that is
    /// sent again may be served twice. Peers on TCP and IPC connect again by themselves, peers on inproc do not. The
    /// queue size starts again at 0MQ's default. The replaced native socket counts among 0MQ's 1,023 until what it has
    /// to send is delivered or its close policy gives it up, so a rebuild needs one free socket. Against a dead server,
    /// either use `DropPending`, or do not send a request again but receive again. On inproc, the replaced socket stays
    /// in use until the process ends if no socket has bound the name yet, and 0MQ aborts the process at its exit when
    /// there are more than about 500 of these.
    void resetConnections() noexcept;

    /// Sends the `size` bytes at `data` as one message; they are copied, and `size` may be 0. A `Req` socket blocks,
    /// without limit, while it is connected nowhere. The others do not block: `Pub` drops the message for a subscriber
    /// whose queue is full, `Rep` the reply to a client that is gone or whose queue is full. Then pauses as
    /// `setTargetBitRate` asks.
    ///
    /// A `Req` socket that has not received the reply to its last request is rebuilt, with a warning logged, and sends
    /// this request on the fresh connection.
    ///
    /// \throws std::runtime_error "Socket: Cannot send on a NULL socket"
    /// \throws ZmqContextTerminationException "Context terminated in send() for socket " + `debugString()`
    /// \throws std::runtime_error "Send error: " + E, for instance when a `Rep` socket owes nobody a reply, or a signal
    ///         interrupts the call. The socket is as before, or closed if it could not be rebuilt.
    void send(void* data, unsigned long size);

    /// Sends constant bytes: what `const T*` points to, where `T` is `void` or trivially copyable.
    template <class T,
              std::enable_if_t<std::conjunction_v<std::is_const<T>, std::negation<std::is_volatile<T>>,
                                                  std::disjunction<std::is_void<T>, std::is_trivially_copyable<T>>>,
                               int> = 0>
    void send(T* data, unsigned long size) {
        send(const_cast<void*>(static_cast<const void*>(data)), size);
    }

    /// Sends the characters of a string as one message, without a terminating zero.
    void send(std::string_view message) { send(message.data(), message.size()); }

    /// Refused, because a null pointer is no string.
    void send(std::nullptr_t) = delete;

    /// Refused, because a buffer needs a size: it may hold no terminating zero.
    template <std::size_t N>
    void send(char (&)[N]) = delete;

    /// Serialises `message` and sends it as `send` does, with its exceptions.
    /// \throws std::runtime_error "Socket: Cannot send NULL message"
    /// \throws std::runtime_error `debugString()` + ": Cannot send message: not initialized: " + "[" + field + "]" for
    ///         every required field that is missing
    /// \throws std::runtime_error `debugString()` + ": Cannot send message: " + size + " bytes serialized, at most
    ///         2147483647 possible"
    /// \throws std::runtime_error `debugString()` + ": Cannot send message: changed while being serialized", when it is
    ///         seen that another thread has written to the message, which none may. Where protobuf is built to check
    ///         for that itself, it throws `google::protobuf::FatalException` before; since release 22 it ends the
    ///         process. After these, nothing has been sent.
    void sendProtoBuf(google::protobuf::Message* message);

    /// Serialises `message` and sends it, as above.
    void sendProtoBuf(const google::protobuf::Message& message) {
        sendProtoBuf(const_cast<google::protobuf::Message*>(std::addressof(message)));
    }

    /// Receives one message into the `size` bytes at `buffer` and returns its length in bytes. A longer message is cut
    /// to `size` bytes, and its full length returned, or 2147483647 if it is longer than that. Blocks until a message is
    /// there, at most for the receive timeout of `connect`; a rebuild before blocks as `resetConnections` does.
    ///
    /// A `Rep` socket that has not replied to its last request is rebuilt, with a warning logged; that request is
    /// abandoned, and a new one waited for.
    ///
    /// The library sends messages of one part. Of a message of several, which only other 0MQ programs send, each call
    /// returns one part; a `Rep` socket can reply once it has received the last.
    ///
    /// \throws std::runtime_error "Socket: Cannot receive on a NULL socket"
    /// \throws ZmqContextTerminationException "Context terminated in recv() for socket " + `debugString()`
    /// \throws TimeoutException "Receive error: " + E: "Resource temporarily unavailable" when the time ran out
    /// \throws std::runtime_error "Receive error: " + E, for other reasons: a `Req` socket has sent no request, or a
    ///         signal interrupts the call. The socket is as before, or closed if it could not be rebuilt.
    int receive(void* buffer, unsigned long size);

    /// Receives one message as `receive` does, with its exceptions, and parses it into `message`. The socket keeps a
    /// receive buffer, which grows to the largest `size` ever asked for and is used whole.
    /// \param message what to parse into; after a failed parse it may hold parts
    /// \param size the least size of the receive buffer, in bytes; from 2147483648 on every message is refused, and so
    ///        are all that follow, as the buffer never shrinks
    /// \throws std::runtime_error "Socket: Cannot receive on a NULL message"
    /// \throws std::runtime_error `debugString()` + ": Wrong receive buffer size", when `size` is 0
    /// \throws std::runtime_error `debugString()` + ": Receive buffer size too small: Required: " + length +
    ///         ", Actual: " + size of the receive buffer
    /// \throws std::runtime_error `debugString()` + ": Failed deserializing message"
    ///         After the last two, the message is consumed; a `Rep` socket then owes its reply like after any request.
    void receiveProtoBuf(google::protobuf::Message* message, unsigned int size);

    /// Receives one message and parses it into `message`, as above.
    void receiveProtoBuf(google::protobuf::Message& message, unsigned int size) {
        receiveProtoBuf(std::addressof(message), size);
    }

    /// Waits until a message can be read, at most `timeout` milliseconds; 0 returns at once. A `Rep` socket that owes a
    /// reply has no input until it has sent the reply, or `receive` has given it up.
    /// \param timeout milliseconds
    /// \param error replaced by the reason when the result is `Failure` (also when a signal interrupts the call), else
    ///        untouched
    /// \throws std::runtime_error "Socket: Cannot poll a NULL socket"
    /// \throws ZmqContextTerminationException "Context terminated in poll() for socket " + `debugString()`
    PollResult::PollResult poll(unsigned int timeout, std::string& error);

    /// Discards every message that a `Sub` socket has already received; does nothing for other patterns or on a closed
    /// socket. Does not wait, but goes on as long as messages are there. A poll that fails, for instance by a signal,
    /// ends it without a word.
    /// \throws ZmqContextTerminationException as `poll`, or "Context terminated in recv() for socket " +
    ///         `debugString()`
    /// \throws std::runtime_error "Receive error in flushIncomingMessages: " + E
    void flushIncomingMessages();

    /// Sets the length of 0MQ's queue, in messages for each peer: of the outgoing queue of `Pub` and `Req`, of the
    /// incoming queue of `Sub` and `Rep`; 0 means no limit. Does nothing on a closed socket. A failure, for instance by
    /// a negative size, is logged at error level, behind `formatMessage`'s header: "Failed setting emission buffer
    /// size: " or "Failed setting reception buffer size: ", + E. Nothing is thrown.
    ///
    /// With the size of a message, which `Network::setMaxMessageSize` limits, it bounds the memory that peers can make this process fill.
    /// The outgoing queue of a `Rep` keeps its 1,000 replies for each peer.
    ///
    /// Call it between `create` and `connect`: the size holds for connections made later, and libzmq 4.3.4 may crash if
    /// it is changed while a peer disconnects.
    void setInternalFifoSize(int size);

    /// Switches the statistics on or off, and starts their period anew. While they are on, every 50 blocks that are
    /// sent, even in vain, or received log a debug line behind `formatMessage`'s header: "Rate is " + megabytes +
    /// " Mbytes/s = " + megabits + " Mbits/s, " + blocks + " Blocks/s". A mega is 1,048,576 here. The bytes of a period
    /// are counted modulo 2^32, and its time is that of the wall clock.
    void activateStatistics(bool active);

    /// Caps the rate at which blocks are sent, by pausing in `send` after a block that was sent too early. The first
    /// capped send never pauses. No pause is longer than its block takes at this rate, also when the wall clock is set
    /// back. A signal ends a pause early.
    /// \param rate megabits (1,048,576 bits) per second; 0 for no cap
    void setTargetBitRate(unsigned int rate);

    /// Counts one block of `size` bytes, whether statistics are on or not. Called by `send` and `receive`.
    void addBlockToStatistics(unsigned int size) noexcept;

    /// Pauses until a block of `size` bytes, sent just now, is due to have passed at the target bit rate, as
    /// `setTargetBitRate` says; not at all when there is none. Called by `send`.
    void handleBitRateCapping(unsigned int size);

private:
    friend class PollSet;
    friend class utils::Requester;
    friend class utils::SocketListener;

    /// The endpoints of the socket, in the order of the calls to `connect`, each with its receive timeout. An index of
    /// them finds the thousandth as fast as the first.
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

    /// Counts blocks, and logs their rate at the end of each period. A period begins with the first block after the
    /// last period, or after `activate`.
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

    /// Spaces blocks so that they keep to a bit rate. The time of the last block outlives changes of the rate.
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
    std::unique_ptr<detail::BoundAddresses> boundAddresses; ///< of a listener's socket; `connectionMutex` guards them
    Statistics statistics;
    RateCap rateCap;
    std::unique_ptr<char[]> receiveBuffer;
    std::uint32_t receiveBufferSize = 0;
};

} // namespace rk::socket
