#include "robustness/fuzz/Bytes.h"
#include "robustness/fuzz/Require.h"
#include "support/Errors.h"

#include <rk/socket/SocketEndpoint.h>

#include <climits>
#include <stdexcept>
#include <string>
#include <string_view>

/// Parses any string, prints the result and parses it again. Prints and parses any endpoint. Computes the expected
/// results independently.

namespace rk::tests {

namespace {

using socket::SocketEndpoint;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr Protocol::Protocol everyPattern[] = {Protocol::Undef, Protocol::Pub, Protocol::Sub, Protocol::Rep,
                                               Protocol::Req};

/// Returns the low 16 bits of the decimal number at the start of a C string. Saturates at the limits of `long`.
unsigned short portOf(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool isNegative = !text.empty() && text.front() == '-';
    if (isNegative || (!text.empty() && text.front() == '+')) {
        text.remove_prefix(1);
    }
    const unsigned long limit = static_cast<unsigned long>(LONG_MAX) + (isNegative ? 1 : 0);
    unsigned long value = 0;
    for (const char character : text.substr(0, text.find_first_not_of("0123456789"))) {
        const auto digit = static_cast<unsigned long>(character - '0');
        value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
    }
    return static_cast<unsigned short>(isNegative ? 0 - value : value);
}

bool skip(std::string_view& text, std::string_view prefix) {
    const bool found = text.substr(0, prefix.size()) == prefix;
    text.remove_prefix(found ? prefix.size() : 0);
    return found;
}

void requireValues(const SocketEndpoint& endpoint, Transport::Transport transport, std::string_view address,
                   unsigned short port) {
    require(endpoint.transport == transport, "the transport is another");
    requireEqual(std::string(address), endpoint.address, "the address is another");
    require(endpoint.port == port, "the port is another");
}

void requirePrints(const SocketEndpoint& endpoint) {
    const std::string port = std::to_string(endpoint.port);
    const bool isTcp = endpoint.transport == Transport::Tcp;
    const std::string connects =
        Transport::ToString(endpoint.transport) + "://" + endpoint.address + (isTcp ? ":" + port : "");
    for (const Protocol::Protocol pattern : everyPattern) {
        const bool binds = pattern == Protocol::Pub || pattern == Protocol::Rep;
        requireEqual(isTcp && binds ? "tcp://*:" + port : connects, endpoint.toString(pattern), "printed otherwise");
    }
    requireEqual("SocketEndpoint " + connects, endpoint.messageHeader(), "the header is another");
}

/// Requires that parsing the printed `endpoint` returns it.
void requireSurvivesPrinting(const SocketEndpoint& endpoint) {
    const std::string printed = endpoint.toString(Protocol::Undef);
    const SocketEndpoint again = SocketEndpoint::FromString(printed);
    require(again == endpoint && !(again != endpoint), "printed and parsed again it is another");
    requireValues(again, endpoint.transport, endpoint.address, endpoint.port);
    requireEqual(printed, again.toString(Protocol::Undef), "printed again it is another text");
}

/// Requires the message up to the first zero byte of `text`, where a C string ends.
void requireRefused(const std::string& text, const std::string& reason) {
    const std::string expected = "Failed deserializing " + text + ": " + reason;
    requireEqual(expected.c_str(), textIfThrownBy([&] { SocketEndpoint::FromString(text); }),
                 "not refused as it should");
}

void parse(const std::string& text) {
    std::string_view left = text;
    if (skip(left, "tcp://") && !left.empty()) {
        const std::string_view::size_type colon = left.rfind(':');
        if (colon == std::string_view::npos) {
            return requireRefused(text, "cannot extract port");
        }
        requireValues(SocketEndpoint::FromString(text), Transport::Tcp, left.substr(0, colon),
                      portOf(left.substr(colon + 1)));
    } else if (skip(left, "ipc://") && !left.empty()) {
        requireValues(SocketEndpoint::FromString(text), Transport::Ipc, left, 0);
    } else if (skip(left, "inproc://") && !left.empty()) {
        requireValues(SocketEndpoint::FromString(text), Transport::Inproc, left, 0);
    } else {
        return requireRefused(text, "cannot extract transport");
    }
    const SocketEndpoint parsed = SocketEndpoint::FromString(text);
    requirePrints(parsed);
    requireSurvivesPrinting(parsed);
}

void print(Bytes bytes) {
    const auto transport = static_cast<Transport::Transport>(bytes.below(6));
    const auto port = static_cast<unsigned short>(bytes.number());
    const SocketEndpoint endpoint(transport, bytes.rest(), port);
    requireValues(endpoint, endpoint.transport, endpoint.address, endpoint.port);
    const bool isKnown = transport >= Transport::Inproc && transport <= Transport::Tcp;
    if (!isKnown) {
        return requireEqual("Invalid " + std::to_string(transport), endpoint.toString(Protocol::Pub),
                            "printed otherwise");
    }
    requirePrints(endpoint);
    const SocketEndpoint elsewhere(transport, endpoint.address, static_cast<unsigned short>(port + 1));
    require((elsewhere == endpoint) == (transport != Transport::Tcp), "the port counts for TCP alone");
    require(endpoint != SocketEndpoint(transport, endpoint.address + "x", port), "the address does not count");
    if (transport == Transport::Tcp) {
        requireSurvivesPrinting(endpoint);
    } else if (!endpoint.address.empty()) {
        requireSurvivesPrinting({transport, endpoint.address, 0});
    }
}

} // namespace

} // namespace rk::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    rk::tests::parse(std::string(data, data + size));
    rk::tests::print(rk::tests::Bytes(data, size));
    return 0;
}
