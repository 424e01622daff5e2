#include "Link.h"

#include <zmq.hpp>

namespace rk::benchmarks {

namespace {

class CppzmqLink {
public:
    explicit CppzmqLink(const End& end)
        : raw(end.cell.raw()),
          size(bufferSize(end.cell)),
          buffer(new char[size]),
          socket(context(), end.choose(zmq::socket_type::req, zmq::socket_type::rep, zmq::socket_type::sub,
                                       zmq::socket_type::pub)) {
        socket.set(zmq::sockopt::linger, 0);
        if (!end.cell.requests()) {
            socket.set(zmq::sockopt::sndhwm, 0);
            socket.set(zmq::sockopt::rcvhwm, 0);
        }
        if (!end.isClient) {
            socket.bind(end.url);
            return;
        }
        socket.connect(end.url);
        if (!end.cell.requests()) {
            socket.set(zmq::sockopt::subscribe, "");
        }
    }

    void send(Payload& payload) {
        if (raw) {
            socket.send(zmq::buffer(payload.raw), zmq::send_flags::none);
            return;
        }
        zmq::message_t block(payload.message.ByteSizeLong());
        serialise(payload.message, block.data(), block.size());
        socket.send(block, zmq::send_flags::none);
    }

    std::size_t receive() {
        if (raw) {
            return socket.recv(zmq::mutable_buffer(buffer.get(), size)).value().size;
        }
        zmq::message_t block;
        require(socket.recv(block).has_value(), "cppzmq");
        return parse(message, block.data(), block.size());
    }

private:
    static zmq::context_t& context() {
        // Never destroyed, because it would wait for sockets at process exit.
        static zmq::context_t* const instance = std::make_unique<zmq::context_t>().release();
        return *instance;
    }

    const bool raw;
    const std::size_t size;
    const std::unique_ptr<char[]> buffer;
    zmq::socket_t socket;
    Reading message;
};

const bool added = addLinkPeer<CppzmqLink>("cppzmq", std::to_string(CPPZMQ_VERSION_MAJOR) + "." +
                                                         std::to_string(CPPZMQ_VERSION_MINOR) + "." +
                                                         std::to_string(CPPZMQ_VERSION_PATCH));

} // namespace

} // namespace rk::benchmarks
