#include <rk/socket/Socket.h>
#include <rk/utils/Log.h>

#include <cstdio>

using namespace rk::socket;

namespace rk::utils {

void logDebug(const std::string& text) {
    std::printf("my debug: %s\n", text.c_str());
}

void logWarning(const std::string& text) {
    std::printf("my warning: %s\n", text.c_str());
}

void logError(const std::string& text) {
    std::printf("my error: %s\n", text.c_str());
}

} // namespace rk::utils

int main() {
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, SocketEndpoint::FromString("inproc://unbound"), 0);
    char request = '?';
    client.send(&request, 1);
    client.send(&request, 1); // out of turn, so the library rebuilds the socket and logs a warning
    client.setInternalFifoSize(-1);
}
