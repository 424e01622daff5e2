#pragma once

#include <rk/socket/Protocol.h>
#include <rk/socket/Transport.h>

#include <gtest/gtest.h>

#include <string>

/// Parameters that many tests share: every pattern, every transport.
namespace rk::tests {

inline constexpr unsigned int patienceMs = 20000;

inline constexpr auto everyPattern = {socket::Protocol::Pub, socket::Protocol::Sub, socket::Protocol::Rep,
                                      socket::Protocol::Req};

inline auto everyTransport() {
    return testing::Values(socket::Transport::Tcp, socket::Transport::Ipc, socket::Transport::Inproc);
}

inline std::string nameOfTransport(const testing::TestParamInfo<socket::Transport::Transport>& tested) {
    return socket::Transport::ToString(tested.param);
}

inline std::string nameOfPattern(const testing::TestParamInfo<socket::Protocol::Protocol>& tested) {
    return socket::Protocol::ToString(tested.param);
}

} // namespace rk::tests
