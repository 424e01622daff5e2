#include "traffic/Keys.h"

#include <rk/socket/detail/EndpointOptions.h>

#include <stdexcept>

namespace rk::tools {

namespace Protocol = rk::socket::Protocol;

Keys::Keys(const KeyFiles& files)
    : Credentials{rk::socket::Security::readKeyFile(*files.own), rk::socket::detail::TrustedKeys(*files.trusted), {}},
      trustFile(*files.trusted) {}

void setOptions(void* socket, bool binds, const rk::socket::SocketEndpoint& endpoint,
                const rk::socket::detail::NetworkSettings& network, const Keys* keys) {
    const std::string name = endpoint.toString(Protocol::Undef);
    if (keys != nullptr && endpoint.transport != rk::socket::Transport::Tcp) {
        throw std::runtime_error(name + ": only TCP can be encrypted");
    }
    if (keys != nullptr && !binds && keys->trusted.serverKey(endpoint).empty()) {
        throw std::runtime_error(keys->trustFile + ": no key for " + name);
    }
    // The options depend on nothing else of the pattern than whether it binds.
    rk::socket::detail::EndpointOptions(socket, name)
        .set(binds ? Protocol::Rep : Protocol::Req, endpoint, network, keys);
}

} // namespace rk::tools
