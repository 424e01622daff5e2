#include "KeyFiles.h"
#include "Link.h"

#include <rk/socket/Security.h>
#include <rk/socket/Socket.h>

namespace rk::benchmarks {

namespace {

class RkLink {
public:
    explicit RkLink(const End& end)
        : raw(end.cell.raw()), size(static_cast<unsigned int>(bufferSize(end.cell))), buffer(new char[size]) {
        if (end.cell.encrypted()) {
            socket::Security::enable(keyFile, trustedKeysFile);
        }
        using namespace socket::Protocol;
        socket.create(end.choose(Req, Rep, Sub, Pub));
        if (!end.cell.requests()) {
            socket.setInternalFifoSize(0);
        }
        socket.connect(socket::SocketEndpoint::FromString(end.url), 0);
    }

    void send(Payload& payload) {
        if (raw) {
            socket.send(payload.raw.data(), payload.raw.size());
        } else {
            socket.sendProtoBuf(&payload.message);
        }
    }

    std::size_t receive() {
        if (raw) {
            return static_cast<std::size_t>(socket.receive(buffer.get(), size));
        }
        socket.receiveProtoBuf(&message, size);
        return message.payload().size();
    }

private:
    const bool raw;
    const unsigned int size;
    const std::unique_ptr<char[]> buffer;
    socket::Socket socket{"benchmark", socket::ClosePolicy::DropPending};
    Reading message;
};

const bool added = addLinkPeer<RkLink>("rk::socket", RK_VERSION, {"inproc", "ipc", "tcp", "encrypted"});

} // namespace

} // namespace rk::benchmarks
