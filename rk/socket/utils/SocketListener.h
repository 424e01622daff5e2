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

/// Serves a subscribe or reply socket on a thread of its own.
///
/// An application derives from it, says what an empty message is and how a received one is handled, lists the endpoints
/// and calls `start`. The thread waits for input, one second at a time, receives a message of at most 128 KiB, and
/// hands it to the derived class, until `stop` is called. Whatever fails on the thread is logged at error level, with
/// `makeErrorString` in front; only a rebuild logs as `Socket::resetConnections` does. A message that cannot be
/// received, or a handler that throws, does not end the service; a failing poll, a rebuild that fails, a handler that
/// closes the socket, a `createMessage` that throws and the end of the process do, and the socket is then closed.
///
/// A reply listener answers through the socket that its handler is given. When a handler returns or throws without
/// having replied, or a request was too long or did not parse, the request is abandoned: the socket is rebuilt, with a
/// warning logged, so that requests that come later are served. The client of that request gets no reply, nor do those
/// whose requests wait meanwhile, and clients on inproc have to connect again: see `Socket::resetConnections`.
///
/// Threads: `start`, `stop`, `addListenEndpoint` and the destructor are called from one controlling thread at a time,
/// and never from the handlers: that ends the process. `createMessage` and `handleMessage` run on the listener's
/// thread. A derived class stops the listener in its own destructor, so that no handler runs on an object that is half
/// gone. An exception that is not a `std::exception` ends the process. A handler must not call `exit`, which would wait
/// for the handler's own socket for ever.
///
/// Signals: the thread blocks every signal except SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP and SIGSYS, so that crash
/// handlers run for a fault in a handler. `handleMessage` runs with SIGPROF unblocked, so that profilers see it. A
/// handler's call of ZeroMQ can then fail with "Interrupted system call". Threads and processes that a handler starts
/// inherit the mask.
///
/// The operations return whether they succeeded. If not, `error` is the reason, behind `makeErrorString`'s header;
/// these texts are not logged.
class RK_SOCKET_EXPORT SocketListener : public rk::utils::MessageFormatter {
public:
    /// `protocol` is `Sub` or `Rep`, which `start` checks; `name` is the name of the listener's socket.
    SocketListener(Protocol::Protocol protocol, const std::string& name);

    /// Stops the listener, as `stop` does.
    virtual ~SocketListener();

    SocketListener(const SocketListener&) = delete;
    SocketListener& operator=(const SocketListener&) = delete;

    /// Ends the thread, waits for it and closes its socket. Returns true also when nothing was running. Clears `error`
    /// first.
    ///
    /// Blocks at most for the rest of one poll (a second), of the handler at work and of the rebuild that may follow
    /// (two seconds). A peer's frame without ZeroMQ's delimiter blocks the thread in a receive. `stop` then wakes the
    /// thread with a request to one of its addresses, which no handler sees. While the process has no socket or
    /// descriptor left for that, `stop` tries again every 50 milliseconds.
    ///
    /// A thread that cannot be joined ends the process.
    virtual bool stop(std::string& error);

    /// Opens a socket, connects it to every endpoint listed and starts the thread; blocks as `Socket::connect` does.
    /// Clears `error` first.
    ///
    /// An endpoint that cannot be connected does not fail `start`: it is logged at error level, behind
    /// `formatMessage`'s header: "Failed connecting endpoint " + endpoint + ": " + reason; but the socket is then
    /// closed, and the thread ends at its first poll.
    ///
    /// Fails with "Failed starting thread: another thread is already running" (also when the thread has ended by
    /// itself: call `stop` first), "Only Sub and Rep protocols are supported", or "Failed creating socket: " + reason.
    /// \throws std::system_error when no thread can be made; the listener is then stopped
    virtual bool start(std::string& error);

    /// A new, empty message of the type that this listener expects. Called for every message before it is read. Must
    /// not be null: the message would stay unread, and be reported over and over.
    virtual std::shared_ptr<google::protobuf::Message> createMessage() = 0;

    /// Handles `message`, which `createMessage` made and which is filled now. A reply listener sends its reply through
    /// `socket`. It may keep `message` no longer than the call, and must not keep `socket`.
    virtual void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) = 0;

    /// Adds an endpoint, as text (see `SocketEndpoint::FromString`). A running listener is stopped and started again,
    /// on all endpoints, blocking as both do, and the result is that of `start`; otherwise `error` is left alone on
    /// success. Fails with "Invalid endpoint: " + reason; nothing has changed then.
    bool addListenEndpoint(const std::string& endpoint, std::string& error);

    /// Does nothing and returns true, with `error` cleared: endpoints can only be added.
    bool removeListenEndpoint(const std::string& endpoint, std::string& error);

    /// Returns whether the listener's thread serves every endpoint: false before `start`, after `stop`, if an endpoint
    /// could not be connected, and once the thread has ended by itself. Does not block. Any thread may call it.
    bool isServing() const;

    /// Returns the last endpoint of the running listener's socket, with the port that the system chose for port 0, or
    /// `SocketEndpoint()` if the listener does not run. See `Socket::lastEndpoint`.
    /// \throws std::system_error when a mutex cannot be locked
    SocketEndpoint lastEndpoint() const;

    /// "[Socket Listener " + protocol + "] " + `message`.
    std::string makeErrorString(const std::string& message) const;

    /// The body of the listener's thread. Not for applications.
    void threadFunction(std::shared_ptr<Socket> socket);

protected:
    /// Starts the listener as `start` does, but fails when an endpoint cannot be connected: nothing is logged then, and
    /// nothing runs. Call it from an override of `start`.
    ///
    /// Fails with "Failed connecting endpoint " + endpoint + ": " + reason, or as `start` does.
    /// \throws std::system_error when no thread can be made; the listener is then stopped
    bool startOnAll(std::string& error);

    /// Sets the largest size of a message that the listener receives, at first 131072 bytes. Call it before `start`.
    /// \param bytes 1 to 2147483647
    /// \throws std::invalid_argument for any other size; nothing has changed then
    void setMessageBufferSize(std::uint32_t bytes);

    /// Refuses a listener without a handler.
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
