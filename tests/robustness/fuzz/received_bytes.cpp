#include "robustness/fuzz/Bytes.h"
#include "robustness/fuzz/Require.h"
#include "support/Errors.h"
#include "support/ZmqHandle.h"
#include "support/messages.pb.h"
#include "tools/messages/Protobuf.h"

#include <rk/socket/Socket.h>

#include <zmq.h>

#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

/// Sends any bytes and receives them as a protobuf message. All inputs share the sockets. Compares the result with
/// protobuf's own.

namespace rk::tests {

namespace {

using google::protobuf::Message;
using socket::Socket;
namespace Protocol = socket::Protocol;

/// A subscriber with a receive buffer of fixed size, and the ZeroMQ socket that sends to it.
class Line {
public:
    explicit Line(unsigned int size) : bufferSize(size) {
        const socket::SocketEndpoint endpoint(socket::Transport::Inproc, "line-" + std::to_string(size), 0);
        require(zmq_bind(source.get(), endpoint.toString(Protocol::Pub).c_str()) == 0, "the source is not bound");
        subscriber.createAndConnect(Protocol::Sub, endpoint, patienceMs);
        optionOf(source.get(), ZMQ_EVENTS); // makes ZeroMQ handle the subscription
    }

    void check(const std::string& payload, const Message& kind) {
        const int sent = zmq_send(source.get(), payload.data(), payload.size(), ZMQ_DONTWAIT);
        require(sent == static_cast<int>(payload.size()), "the payload is not sent");
        const std::unique_ptr<Message> received(kind.New());
        const std::unique_ptr<Message> expected(kind.New());
        const std::string text = textIfThrownBy([&] { subscriber.receiveProtoBuf(received.get(), bufferSize); });
        requireEqual(refusalOf(payload, *expected), text, "received otherwise");
        requireEqual(expected->SerializePartialAsString(), received->SerializePartialAsString(),
                     "the message is another");
    }

private:
    /// Fills `message` unless the payload is rejected before it is parsed.
    std::string refusalOf(const std::string& payload, Message& message) const {
        if (payload.size() > bufferSize) {
            return "[Socket line]: Receive buffer size too small: Required: " + std::to_string(payload.size()) +
                   ", Actual: " + std::to_string(bufferSize);
        }
        const bool parses = message.ParseFromArray(payload.data(), static_cast<int>(payload.size()));
        return parses ? "" : "[Socket line]: Failed deserializing message";
    }

    static constexpr unsigned int patienceMs = 20000;

    const unsigned int bufferSize;
    const ZmqHandle source{socket::getSocket(Protocol::Pub)};
    Socket subscriber{"line", socket::ClosePolicy::DropPending};
};

const Message& kindOf(unsigned int choice) {
    switch (choice % 3) {
    case 0:
        return Text::default_instance();
    case 1:
        return Header::default_instance();
    default:
        return Command::default_instance();
    }
}

/// Created once, and destroyed before the context of the process.
Line& lineOf(unsigned int choice) {
    static Line lines[] = {Line(1), Line(8), Line(16), Line(64), Line(4096)};
    return lines[choice % std::size(lines)];
}

/// Protobuf would log every message that lacks required fields.
const bool isSilent = (tools::silenceProtobuf(), true);

} // namespace

} // namespace rk::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    rk::tests::Bytes bytes(data, size);
    rk::tests::Line& line = rk::tests::lineOf(bytes.byte());
    const google::protobuf::Message& kind = rk::tests::kindOf(bytes.byte());
    line.check(bytes.rest(), kind);
    return 0;
}
