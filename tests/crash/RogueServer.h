#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace rk::tests::crash {

/// Listens on TCP, greets like 0MQ, and then breaks its protocol.
class RogueServer {
public:
    explicit RogueServer(unsigned short port) : listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int reuse = 1;
        ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listener, 10) != 0) {
            throw std::runtime_error("cannot listen");
        }
    }
    ~RogueServer() { ::close(listener); }
    RogueServer(const RogueServer&) = delete;
    RogueServer& operator=(const RogueServer&) = delete;

    /// Whether somebody connects within so many milliseconds; breaks the protocol, and waits until they have hung up.
    bool offends(int milliseconds) const {
        pollfd item{listener, POLLIN, 0};
        if (::poll(&item, 1, milliseconds) != 1) {
            return false;
        }
        const int connection = ::accept(listener, nullptr, nullptr);
        const std::string greeting = offence();
        static_cast<void>(!::write(connection, greeting.data(), greeting.size()));
        char ignored[256];
        while (::read(connection, ignored, sizeof ignored) > 0) {
        }
        ::close(connection);
        return true;
    }

private:
    /// The 64 bytes of a greeting of version 3.0 without security, and a command READY that breaks off.
    static std::string offence() {
        std::string greeting("\xff\0\0\0\0\0\0\0\1\x7f\3\0NULL", 16);
        greeting.resize(64);
        return greeting + std::string("\4\4\5REA", 6);
    }

    const int listener;
};

} // namespace rk::tests::crash
