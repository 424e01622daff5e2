#include <rk/socket/Protocol.h>

#include <zmq.h>

namespace rk::socket::Protocol {

std::string ToString(Protocol protocol) {
    switch (protocol) {
    case Pub:
        return "pub";
    case Sub:
        return "sub";
    case Rep:
        return "rep";
    case Req:
        return "req";
    case Undef:
        break;
    }
    return "undef";
}

Protocol FromString(const std::string& text) {
    for (const Protocol protocol : {Pub, Sub, Req, Rep}) {
        if (text == ToString(protocol)) {
            return protocol;
        }
    }
    return Undef;
}

int ToNativeProtocol(Protocol protocol) {
    switch (protocol) {
    case Pub:
        return ZMQ_PUB;
    case Sub:
        return ZMQ_SUB;
    case Rep:
        return ZMQ_REP;
    case Req:
        return ZMQ_REQ;
    case Undef:
        break;
    }
    return -1;
}

} // namespace rk::socket::Protocol
