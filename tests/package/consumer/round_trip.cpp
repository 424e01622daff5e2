#include <rk/socket/Socket.h>

#include <google/protobuf/wrappers.pb.h>

#include <iostream>
#include <stdexcept>
#include <string>

using namespace rk::socket;

namespace {

/// Binds `server` to the first free TCP port below the ports of the other tests.
SocketEndpoint bindSomewhere(Socket& server) {
    for (unsigned short port = 9000;; ++port) {
        const SocketEndpoint endpoint(Transport::Tcp, "127.0.0.1", port);
        try {
            server.createAndConnect(Protocol::Rep, endpoint, 10000);
            return endpoint;
        } catch (const std::runtime_error& failure) {
            if (std::string(failure.what()).find("Address already in use") == std::string::npos) {
                throw;
            }
        }
    }
}

} // namespace

int main() {
    Socket server("server", ClosePolicy::LingerTwoSeconds);
    Socket client("client", ClosePolicy::LingerTwoSeconds);
    client.createAndConnect(Protocol::Req, bindSomewhere(server), 10000);

    google::protobuf::StringValue text;
    text.set_value("O");
    client.sendProtoBuf(&text);
    server.receiveProtoBuf(&text, 1024);
    text.set_value(text.value() + "K");
    server.sendProtoBuf(&text);
    text.Clear();
    client.receiveProtoBuf(&text, 1024);
    std::cout << text.value() << '\n';
}
