#include "LinkPeer.h"

#include <rk/socket/Socket.h>

#include <memory>

namespace rk::benchmarks {

namespace {

socket::Protocol::Protocol protocolOf(const Cell& cell, Side side) {
    if (cell.pattern == Pattern::RequestReply) {
        return side == Side::Client ? socket::Protocol::Req : socket::Protocol::Rep;
    }
    return side == Side::Client ? socket::Protocol::Sub : socket::Protocol::Pub;
}

std::string endpointText(const Cell& cell, const std::string& address) {
    return cell.transport == "tcp" ? "tcp://127.0.0.1:" + address : cell.transport + "://" + address;
}

class RkLink {
public:
    RkLink(const Cell& cell, Side side, const std::string& address)
        : content(cell.content), size(static_cast<unsigned int>(bufferSize(cell))), buffer(new char[size]) {
        socket.create(protocolOf(cell, side));
        if (cell.pattern == Pattern::PublishSubscribe) {
            socket.setInternalFifoSize(0);
        }
        socket.connect(socket::SocketEndpoint::FromString(endpointText(cell, address)), 0);
    }

    void send(Payload& payload) {
        if (content == Content::Raw) {
            socket.send(payload.raw.data(), payload.raw.size());
        } else {
            socket.sendProtoBuf(&payload.message);
        }
    }

    std::size_t receive() {
        if (content == Content::Raw) {
            return static_cast<std::size_t>(socket.receive(buffer.get(), size));
        }
        socket.receiveProtoBuf(&received, size);
        return received.payload().size();
    }

private:
    const Content content;
    const unsigned int size;
    const std::unique_ptr<char[]> buffer;
    socket::Socket socket{"benchmark", socket::ClosePolicy::DropPending};
    Reading received;
};

} // namespace

std::unique_ptr<Peer> makeRkSocket() {
    return std::make_unique<LinkPeer<RkLink>>("rk::socket", RK_VERSION);
}

} // namespace rk::benchmarks
