#include "Control.h"

#include <poll.h>
#include <sys/socket.h>

namespace rk::benchmarks {

void Control::order(std::uint32_t count) const {
    // A server that is gone has nothing to be told.
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

} // namespace rk::benchmarks
