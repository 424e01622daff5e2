#include "LinkPeer.h"
#include "ZmqAddress.h"

#include <zmq.hpp>

#include <memory>
#include <stdexcept>

namespace rk::benchmarks {

namespace {

zmq::context_t& context() {
    static zmq::context_t* const instance = std::make_unique<zmq::context_t>().release();
    return *instance;
}

zmq::socket_type typeOf(const Cell& cell, Side side) {
    if (cell.pattern == Pattern::RequestReply) {
        return side == Side::Client ? zmq::socket_type::req : zmq::socket_type::rep;
    }
    return side == Side::Client ? zmq::socket_type::sub : zmq::socket_type::pub;
}

class CppzmqLink {
public:
    CppzmqLink(const Cell& cell, Side side, const std::string& address)
        : content(cell.content), size(bufferSize(cell)), buffer(new char[size]), socket(context(), typeOf(cell, side)) {
        socket.set(zmq::sockopt::linger, 0);
        if (cell.pattern == Pattern::PublishSubscribe) {
            socket.set(zmq::sockopt::sndhwm, 0);
            socket.set(zmq::sockopt::rcvhwm, 0);
        }
        if (side == Side::Server) {
            socket.bind(urlOf(cell, address));
            return;
        }
        socket.connect(urlOf(cell, address));
        if (cell.pattern == Pattern::PublishSubscribe) {
            socket.set(zmq::sockopt::subscribe, "");
        }
    }

    void send(Payload& payload) {
        if (content == Content::Raw) {
            socket.send(zmq::buffer(payload.raw), zmq::send_flags::none);
            return;
        }
        zmq::message_t block(payload.message.ByteSizeLong());
        if (!payload.message.SerializeToArray(block.data(), static_cast<int>(block.size()))) {
            throw std::runtime_error("not serialised");
        }
        socket.send(block, zmq::send_flags::none);
    }

    std::size_t receive() {
        if (content == Content::Raw) {
            return socket.recv(zmq::mutable_buffer(buffer.get(), size)).value().size;
        }
        zmq::message_t block;
        if (!socket.recv(block) || !received.ParseFromArray(block.data(), static_cast<int>(block.size()))) {
            throw std::runtime_error("not parsed");
        }
        return received.payload().size();
    }

private:
    const Content content;
    const std::size_t size;
    const std::unique_ptr<char[]> buffer;
    zmq::socket_t socket;
    Reading received;
};

std::string cppzmqVersion() {
    return std::to_string(CPPZMQ_VERSION_MAJOR) + "." + std::to_string(CPPZMQ_VERSION_MINOR) + "." +
           std::to_string(CPPZMQ_VERSION_PATCH);
}

} // namespace

std::unique_ptr<Peer> makeCppzmq() {
    return std::make_unique<LinkPeer<CppzmqLink>>("cppzmq", cppzmqVersion());
}

} // namespace rk::benchmarks
