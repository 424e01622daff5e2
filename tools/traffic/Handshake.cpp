#include "traffic/Handshake.h"

#include "traffic/Keys.h"
#include "traffic/Line.h"

#include <zmq.h>

#include <memory>
#include <string>

namespace rk::tools {

namespace {

// What the server says: a greeting, and commands with a head each.
constexpr std::size_t greetingSize = 64;
constexpr std::size_t headSize = 2;
constexpr std::size_t welcomeSize = 168;
constexpr std::size_t pieceSize = 4096;

/// Passes on what both sides say. Only the names of their commands can be read. A server that has the expected key answers
/// HELLO with WELCOME. If it trusts the client, it answers INITIATE with READY.
Handshake relay(Line& server, Line& client) {
    std::string said;
    const auto says = [&said](std::size_t place, const std::string& name) {
        const std::size_t found = said.find(name, place);
        return found != std::string::npos && found < place + 9; // the head of a long command has nine bytes
    };
    const std::size_t answer = greetingSize + headSize + welcomeSize;
    while (!says(answer, "\5READY") && !says(answer, "\5ERROR") && !server.isClosed() && !client.isClosed() &&
           Line::awaitOne(server, client)) {
        const std::string piece = server.readSome(pieceSize);
        said += piece;
        client.write(piece);
        server.write(client.readSome(pieceSize));
    }
    if (!says(greetingSize, "\7WELCOME")) {
        return server.isClosed() ? Handshake::WrongKey : Handshake::Unanswered;
    }
    if (says(answer, "\5READY")) {
        return Handshake::Done;
    }
    // ZeroMQ may close the connection at once, or be silent for a while.
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
    keys.encryptConnection(socket.get(), endpoint);
    zmq_connect(socket.get(), name.c_str());
    client.accept();
    return relay(server, client);
}

} // namespace rk::tools
