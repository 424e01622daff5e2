#include "Addresses.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <filesystem>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace rk::benchmarks {

namespace {

class TemporaryFolder {
public:
    TemporaryFolder() {
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary folder");
        }
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(pattern, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return pattern; }

private:
    std::string pattern = "/tmp/rk-socket-benchmark-XXXXXX";
};

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
    static const TemporaryFolder folder;
    if (transport == "tcp") {
        return std::to_string(freePort());
    }
    const std::string name = std::to_string(++number);
    return transport == "ipc" ? folder.path() + "/" + name : "benchmark-" + name;
}

} // namespace rk::benchmarks
