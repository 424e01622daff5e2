#include "traffic/Handshake.h"

#include "traffic/Keys.h"
#include "traffic/Line.h"

#include <zmq.h>

#include <memory>
#include <poll.h>
#include <string>

namespace rk::tools {

namespace {

// The server sends a greeting, and commands, each with a head.
constexpr std::size_t headSize = 2;
constexpr std::size_t welcomeSize = 168;
constexpr std::size_t packetSize = 4096;

/// Relays the bytes of both sides, and reads the names of their commands. A server with the expected key answers HELLO with
/// WELCOME. If it trusts the client, it answers INITIATE with READY.
Handshake relay(Line& server, Line& client) {
    std::string said;
    const auto says = [&said](std::size_t place, const std::string& name) {
        const std::size_t found = said.find(name, place);
        return found != std::string::npos && found < place + 9; // the head of a long command has nine bytes
    };
    const std::size_t answer = greetingSize + headSize + welcomeSize;
    while (!says(answer, "\5READY") && !says(answer, "\5ERROR") && !server.isClosed() && !client.isClosed() &&
           server.await(POLLIN, &client)) {
        const std::string piece = server.readSome(packetSize);
        said += piece;
        client.write(piece);
        server.write(client.readSome(packetSize));
    }
    if (!says(greetingSize, "\7WELCOME")) {
        return server.isClosed() ? Handshake::WrongKey : Handshake::Unanswered;
    }
    if (says(answer, "\5READY")) {
        return Handshake::Done;
    }
    // ZeroMQ closes the connection at once, or is silent for a while.
    return server.isClosed() ? Handshake::Refused : Handshake::Untrusted;
}

} // namespace

Handshake shakeHands(Line& server, const rk::socket::SocketEndpoint& endpoint, const Keys& keys, int socketType) {
    Line client = server.another();
    const std::string name = client.listen();
    const std::unique_ptr<void, decltype(&zmq_ctx_term)> context(zmq_ctx_new(), zmq_ctx_term);
    const std::unique_ptr<void, decltype(&zmq_close)> socket(zmq_socket(context.get(), socketType), zmq_close);
    const int linger = 0;
    zmq_setsockopt(socket.get(), ZMQ_LINGER, &linger, sizeof linger);
    setOptions(socket.get(), false, endpoint, {}, &keys);
    zmq_connect(socket.get(), name.c_str());
    client.accept();
    return relay(server, client);
}

} // namespace rk::tools
