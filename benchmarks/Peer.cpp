#include "Peer.h"

#include "Measuring.h"

#include <algorithm>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace rk::benchmarks {

namespace {

std::vector<Peer>& all() {
    static std::vector<Peer> instance;
    return instance;
}

} // namespace

const std::vector<Peer>& peers() {
    return all();
}

const Peer& peerOf(const std::string& name) {
    const auto found = std::find_if(all().begin(), all().end(), [&](const Peer& peer) { return peer.name == name; });
    require(found != all().end(), name.c_str());
    return *found;
}

bool add(Peer peer) {
    all().insert(peer.name == "plain 0MQ" ? all().begin() : all().end(), std::move(peer));
    return true;
}

void Control::order(std::uint32_t count) const {
    // Fails only if the server has ended.
    static_cast<void>(::send(descriptor, &count, sizeof count, MSG_NOSIGNAL));
}

std::uint32_t Control::awaitOrder() const {
    std::uint32_t count = 0;
    return ::recv(descriptor, &count, sizeof count, 0) == sizeof count ? count : 0;
}

bool Control::hasOrder(int milliseconds) const {
    pollfd item{descriptor, POLLIN, 0};
    return ::poll(&item, 1, milliseconds) > 0;
}

void Control::report(double nanoseconds) const {
    static_cast<void>(::send(descriptor, &nanoseconds, sizeof nanoseconds, MSG_NOSIGNAL));
}

double Control::awaitReport() const {
    double nanoseconds = 0;
    require(::recv(descriptor, &nanoseconds, sizeof nanoseconds, 0) == sizeof nanoseconds, "a contestant");
    return nanoseconds;
}

} // namespace rk::benchmarks
