#include "Addresses.h"

#include "support/TemporaryFolder.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace rk::benchmarks {

namespace {

int freePort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t length = sizeof address;
    const bool good = ::bind(probe, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
                      ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    ::close(probe);
    if (!good) {
        throw std::runtime_error("no free port");
    }
    return ntohs(address.sin_port);
}

} // namespace

std::string freshAddress(const std::string& transport) {
    static int number = 0;
    static const rk::tests::TemporaryFolder folder;
    if (transport == "tcp") {
        return std::to_string(freePort());
    }
    const std::string name = std::to_string(++number);
    return transport == "ipc" ? folder.path() + "/" + name : "benchmark-" + name;
}

} // namespace rk::benchmarks
