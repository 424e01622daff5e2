#include <rk/socket/Transport.h>

namespace rk::socket::Transport {

std::string ToString(Transport transport) {
    switch (transport) {
    case Inproc:
        return "inproc";
    case Ipc:
        return "ipc";
    case Tcp:
        return "tcp";
    case Undef:
        break;
    }
    return "undef";
}

Transport FromString(const std::string& text) {
    for (const Transport transport : {Inproc, Ipc, Tcp}) {
        if (text == ToString(transport)) {
            return transport;
        }
    }
    return Undef;
}

} // namespace rk::socket::Transport
