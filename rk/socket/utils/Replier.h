#pragma once
#pragma GCC system_header // users are not warned that a base's destructor is not virtual

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/utils/SocketListener.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace rk::socket::utils {

/// A reply listener that answers each `Request` with the `Reply` that a function fills in.
///
/// Construct it with the function, add endpoints, then call `start`. The functions run on the listener's thread, one
/// request at a time, by the rules of `SocketListener`. Everything that a lambda captures by reference must outlive the
/// replier.
///
/// Each handled request gets exactly one reply. If the handler throws a `std::exception`, or its reply cannot be
/// serialised or sent, the error handler fills in the reply instead, and the requests of other clients stay queued. The
/// error handler does not run during process exit. Without an
/// error handler, or if it fails too, the client gets no reply and the socket is rebuilt: see `SocketListener`.
///
/// A client may repeat a request whose reply was late or lost. The handler should therefore be idempotent.
///
/// `Request` and `Reply` are message classes that protoc has generated. Include their header.
template <class Request, class Reply>
class Replier final : public SocketListener {
public:
    /// Fills in the reply to a request.
    using Handler = std::function<void(const Request& request, Reply& reply)>;
    /// Fills in the reply to a request after the handler has failed.
    using ErrorHandler = std::function<void(const Request& request, const std::exception& failure, Reply& reply)>;

    /// \param socketName the name of the replier's socket
    /// \param requestHandler the function that fills in the reply to each request
    /// \param failureHandler the function that fills in the reply if the first fails. It gets an empty reply.
    /// \throws std::invalid_argument if `requestHandler` is empty
    Replier(const std::string& socketName, Handler requestHandler, ErrorHandler failureHandler = nullptr)
        : SocketListener(Protocol::Rep, socketName),
          handler(std::move(requestHandler)),
          onError(std::move(failureHandler)) {
        requireHandler(static_cast<bool>(handler));
    }

    /// Stops the replier as `stop` does.
    ~Replier() override {
        std::string ignored;
        stop(ignored);
    }

    /// Starts the replier as `SocketListener::start` does, but fails if an endpoint cannot be connected. Returns false
    /// then, with the reason in `error`.
    bool start(std::string& error) override { return startOnAll(error); }

    using SocketListener::setMessageBufferSize;

private:
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Request>(); }

    void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) override {
        const auto& request = static_cast<const Request&>(*message);
        try {
            Reply reply;
            handler(request, reply);
            socket->sendProtoBuf(reply);
        } catch (const ZmqContextTerminationException&) {
            throw; // the objects that the error handler uses may have been destroyed
        } catch (const std::exception& failure) {
            if (!onError) {
                throw;
            }
            Reply reply;
            onError(request, failure, reply);
            socket->sendProtoBuf(reply);
        }
    }

    const Handler handler;
    const ErrorHandler onError;
};

} // namespace rk::socket::utils
