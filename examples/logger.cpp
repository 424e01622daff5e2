// Writes the library's log lines in the application's own way: logger

#include <rk/socket/Socket.h>
#include <rk/utils/Log.h>

#include <cstdio>
#include <string>

// The executable's definitions replace the library's. They run on any thread, also at process exit, and throw nothing.
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
    client.createAndConnect(Protocol::Req, SocketEndpoint::FromString("inproc://nobody"), 0);
    client.send("first");
    client.send("second"); // out of turn: the library repairs the socket, with a warning
}
