#include "Steps.h"

#include <rk/socket/SocketContext.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

namespace rk::tests {

namespace {

const char* const longName = "a name that is longer than a short text";

Step parse(const std::string& text) {
    return call("SocketEndpoint::FromString", nullptr,
                [=] { require(SocketEndpoint::FromString(text).toString(Protocol::Req) == text, "another text"); });
}

Step failToParse(const std::string& text, const std::string& reason) {
    return throwing(call("SocketEndpoint::FromString", nullptr, [=] { SocketEndpoint::FromString(text); }),
                    "Failed deserializing " + text + ": " + reason);
}

std::vector<Step> endpoints() {
    const std::string name = longName;
    return {parse("inproc://" + name),
            parse("ipc:///tmp/" + name),
            parse("tcp://" + name + ":12345"),
            failToParse(name, "cannot extract transport"),
            failToParse("tcp://" + name, "cannot extract port"),
            call("SocketEndpoint::toString", nullptr,
                 [=] {
                     const SocketEndpoint endpoint(Transport::Tcp, name, 12345);
                     require(endpoint.toString(Protocol::Pub) == "tcp://*:12345", "another text");
                     require(endpoint.toString(Protocol::Req) == "tcp://" + name + ":12345", "another text");
                 }),
            call("SocketEndpoint::toString", nullptr,
                 [=] {
                     const SocketEndpoint nowhere(static_cast<Transport::Transport>(-1234567890), name, 0);
                     require(nowhere.toString(Protocol::Pub) == "Invalid -1234567890", "another text");
                 }),
            call("SocketEndpoint::formatMessage", nullptr, [=] {
                const SocketEndpoint endpoint(Transport::Ipc, name, 0);
                require(endpoint.formatMessage("text") == "SocketEndpoint ipc://" + name + ": text", "another");
            })};
}

std::vector<Step> enumerations() {
    return {
        call("Protocol::ToString", nullptr,
             [] { require(Protocol::FromString(Protocol::ToString(Protocol::Rep)) == Protocol::Rep, "another"); }),
        call("Transport::ToString", nullptr,
             [] { require(Transport::FromString(Transport::ToString(Transport::Tcp)) == Transport::Tcp, "another"); }),
        call("ZmqContextTerminationException", nullptr, [] {
            const socket::ZmqContextTerminationException exception(longName);
            require(std::string(exception.what()) == longName, "another text");
        })};
}

void* orReported(void* handle) {
    if (handle == nullptr) {
        throw Reported{zmq_strerror(zmq_errno())};
    }
    return handle;
}

/// A context of the application, and the context of the process.
std::vector<Step> contexts() {
    Step own = call("SocketContext", nullptr, [] {
        socket::SocketContext context;
        zmq_close(orReported(context.createSocket(Protocol::Pub)));
    });
    for (const char* const text : {"Terminating 0MQ context", "Terminating 0MQ context Done", "Destroying 0MQ context",
                                   "Destroying 0MQ context Done"}) {
        own.debug.push_back(std::string("debug: [SocketContext]: ") + text);
    }
    return {own, call("getSocket", nullptr, [] { zmq_close(orReported(socket::getSocket(Protocol::Pub))); })};
}

Step format(const std::string& name) {
    return call("MessageFormatter::formatMessage", nullptr, [=] {
        const rk::utils::MessageFormatter formatter(name);
        require(formatter.formatMessage(longName) == "[" + name + "]: " + longName, "another text");
    });
}

std::vector<Step> formatters() {
    return {format("short"), format(longName)};
}

} // namespace

std::vector<Scenario> valueScenarios() {
    return {
        {"endpoints", endpoints, true},
        {"enumerations", enumerations, true},
        {"formatters", formatters, true},
        {"contexts", contexts, true},
    };
}

} // namespace rk::tests
