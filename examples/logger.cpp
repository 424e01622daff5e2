// Sends the library's log lines to the application's logger: logger

#include <rk/socket/Socket.h>
#include <rk/utils/Log.h>

#include <cstdio>
#include <string>

// The executable's definitions replace the library's. They may be called on any thread and at process exit, and must
// not throw.
namespace rk::utils {

void logDebug(const std::string& /*text*/) {}

void logWarning(const std::string& text) {
    std::printf("repaired: %s\n", text.c_str());
}

void logError(const std::string& text) {
    std::printf("failed: %s\n", text.c_str());
}

} // namespace rk::utils

int main() {
    using namespace rk::socket;
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, SocketEndpoint::FromString("inproc://unbound"), 0);
    client.send("first");
    client.send("second"); // out of turn: the library repairs the socket, with a warning
}
