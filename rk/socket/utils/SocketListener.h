#pragma once
#pragma GCC system_header // users are not warned that the base's destructor is not virtual

#include <rk/Export.h>
#include <rk/socket/Protocol.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/utils/MessageFormatter.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <list>
#include <memory>
#include <string>
#include <thread>

namespace google::protobuf {
class Message;
}

namespace rk::socket {
class Socket;
}

namespace rk::socket::detail {
class SilenceWatch;
class WakeUpCall;
} // namespace rk::socket::detail

namespace rk::socket::utils {

/// Serves a subscribe or reply socket on its own thread.
///
/// `Subscriber` and `Replier` are easier to use. For more control, derive from this class:
/// 1. `createMessage` returns an empty message, and `handleMessage` handles a received one.
/// 2. The destructor of the derived class calls `stop`, so that no handler runs on a partly destroyed object.
/// 3. The application calls `addListenEndpoint` for each endpoint, then `start`.
///
/// The thread polls for one second at a time, receives messages of at most 128 KiB (see `setMessageBufferSize`) and
/// calls `handleMessage` with each, until `stop` is called.
///
/// A reply listener replies through the socket that `handleMessage` gets. If the handler returns or throws without
/// having replied, or the request is too long or does not parse, the socket is rebuilt and a warning logged. Neither
/// the client of this request nor clients with queued requests get a reply, and clients on inproc have to connect
/// again. See `Socket::resetConnections`.
///
/// Failures on the thread are logged as errors, with the prefix of `makeErrorString`. A rebuild logs as
/// `Socket::resetConnections` does. A failed receive or a handler that throws does not end the thread. It ends, and
/// closes the socket, if a poll or a rebuild fails, a handler closes the socket, `createMessage` throws, or the process
/// exits.
///
/// Threads: one thread at a time calls `start`, `stop`, `addListenEndpoint` and the destructor. Handlers must not call
/// them: `stop` in a handler ends the process. `createMessage` and `handleMessage` run on the listener's thread. An
/// exception that is not a `std::exception` ends the process. A handler must not call `exit`, which would wait forever
/// for its socket.
///
/// Signals: the thread blocks every signal except SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP and SIGSYS, so that crash
/// handlers run for a fault in a handler. SIGPROF is unblocked in `handleMessage`, so that profilers see it. It can
/// interrupt a send in the handler, which then throws. Threads and processes that a handler starts inherit the mask.
///
/// Results: operations with an `error` return whether they succeeded. If not, `error` is the reason with the prefix of
/// `makeErrorString`. It is not logged.
class RK_SOCKET_EXPORT SocketListener : public rk::utils::MessageFormatter {
public:
    /// Constructs a listener without endpoints.
    /// \param protocol `Sub` or `Rep`, which `start` checks
    /// \param name the name of the listener's socket
    SocketListener(Protocol::Protocol protocol, const std::string& name);

    /// Stops the listener as `stop` does.
    virtual ~SocketListener();

    SocketListener(const SocketListener&) = delete;
    SocketListener& operator=(const SocketListener&) = delete;

    /// Ends the thread, waits for it and closes its socket. Returns true, even if nothing was running. Clears `error`
    /// first.
    ///
    /// Blocks for the rest of a poll (at most one second), of a running handler, and of a rebuild that may follow (at
    /// most two seconds). A peer's request without ZeroMQ's delimiter blocks the thread in a receive. `stop` then wakes
    /// it, and retries every 50 milliseconds while the process has no socket or descriptor left for that.
    ///
    /// A thread that cannot be joined ends the process.
    virtual bool stop(std::string& error);

    /// Opens a socket, connects it to every endpoint and starts the thread. Clears `error` first.
    ///
    /// Blocks as `Socket::connect` does. Fails if the thread already runs, the protocol is neither `Sub` nor `Rep`, or
    /// no socket can be created. A thread that has ended by itself counts as running until `stop` is called.
    ///
    /// If an endpoint cannot be connected, `start` returns true and logs an error. The socket is then closed, and the
    /// thread ends at its first poll. `startOnAll` fails instead.
    /// \throws std::system_error if no thread can be created. The listener is then stopped.
    virtual bool start(std::string& error);

    /// Returns a new, empty message of the expected type. Called before each message is received. Must not return null:
    /// the message would stay unread, and an error would be logged again and again.
    virtual std::shared_ptr<google::protobuf::Message> createMessage() = 0;

    /// Handles a received message. A reply listener sends exactly one reply through `socket`.
    /// \param message the filled message of `createMessage`. Do not keep it after the call.
    /// \param socket the listener's socket. Do not keep it after the call, nor use it in a subscribe listener.
    virtual void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) = 0;

    /// Adds an endpoint, in the string form of `SocketEndpoint::FromString`. Stops a running listener and starts it
    /// again on all endpoints.
    ///
    /// On a running listener it blocks as `stop` and `start` do and returns the result of `start`. Otherwise it fails
    /// only if the endpoint does not parse, and success leaves `error` untouched. An endpoint that does not parse
    /// changes nothing.
    bool addListenEndpoint(const std::string& endpoint, std::string& error);

    /// Does nothing, because endpoints can only be added. Clears `error` and returns true.
    bool removeListenEndpoint(const std::string& endpoint, std::string& error);

    /// Returns whether the thread runs and serves every endpoint. Returns false before `start`, after `stop`, if an
    /// endpoint could not be connected, and once the thread has ended by itself. Does not block. Any thread may call
    /// it.
    bool isServing() const;

    /// Returns `Socket::lastEndpoint` of the running listener's socket, with the port that the system chose for port 0.
    /// Returns `SocketEndpoint()` if the listener does not run. Handlers may call it. Other threads must not call it
    /// during `start`.
    /// \throws std::system_error if a lock fails
    SocketEndpoint lastEndpoint() const;

    /// Returns "[Socket Listener " + protocol + "] " + `message`.
    std::string makeErrorString(const std::string& message) const;

    /// Runs the listener's thread. Not for applications.
    void threadFunction(std::shared_ptr<Socket> socket);

protected:
    /// Starts the listener as `start` does, but fails if an endpoint cannot be connected. Nothing runs then, and
    /// nothing is logged. Call it from an override of `start`.
    /// \throws std::system_error if no thread can be created. The listener is then stopped.
    bool startOnAll(std::string& error);

    /// Sets the size of the largest message that the listener receives. The default is 131072. Call it before `start`.
    /// \param bytes 1 to 2147483647
    /// \throws std::invalid_argument for any other size. Nothing has changed then.
    void setMessageBufferSize(std::uint32_t bytes);

    /// Checks that the listener has a handler.
    /// \throws std::invalid_argument if `hasHandler` is false
    void requireHandler(bool hasHandler) const;

private:
    RK_SOCKET_NO_EXPORT void logFailure(const char* what, const char* reason = "",
                                        const char* consequence = "") const noexcept;
    RK_SOCKET_NO_EXPORT std::shared_ptr<Socket> open(std::string& error) const;
    RK_SOCKET_NO_EXPORT std::list<std::string> connectAll(Socket& socket) const;
    RK_SOCKET_NO_EXPORT void startThread(const std::shared_ptr<Socket>& socket);
    RK_SOCKET_NO_EXPORT void serveUntilStopped(const std::shared_ptr<Socket>& socket);
    RK_SOCKET_NO_EXPORT void endSilence(Socket& socket, const detail::SilenceWatch& silence);
    RK_SOCKET_NO_EXPORT bool serve(const std::shared_ptr<Socket>& socket);
    RK_SOCKET_NO_EXPORT void receive(Socket& socket, google::protobuf::Message* message);
    RK_SOCKET_NO_EXPORT void awaitEnd();
    RK_SOCKET_NO_EXPORT void wake(detail::WakeUpCall& call);

    Protocol::Protocol protocol;
    std::list<SocketEndpoint> endpoints;
    std::string name;
    std::uint32_t pollTimeoutMs = 1000;
    std::uint32_t messageBufferSize = 131072;
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> serving{false};
    std::shared_ptr<std::thread> thread;
    std::weak_ptr<Socket> threadSocket;
    std::promise<void> threadEnd;
    std::future<void> threadEnded;
    std::atomic<std::uint32_t> receiveSteps{0}; ///< odd while the thread is in a receive
};

} // namespace rk::socket::utils
