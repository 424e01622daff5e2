#include <rk/socket/Socket.h>

#include <google/protobuf/wrappers.pb.h>

#include <iostream>

using namespace rk::socket;

int main() {
    Socket server("server", ClosePolicy::LingerTwoSeconds);
    Socket client("client", ClosePolicy::LingerTwoSeconds);
    server.createAndConnect(Protocol::Rep, SocketEndpoint(Transport::Tcp, "127.0.0.1", 0), 10000);
    client.createAndConnect(Protocol::Req, server.lastEndpoint(), 10000);

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
