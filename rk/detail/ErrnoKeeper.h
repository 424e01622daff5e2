#pragma once

#include <cerrno>

namespace rk::detail {

/// Restores `errno`, and with it `zmq_errno`, on scope exit.
class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = kept; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int kept = errno;
};

} // namespace rk::detail
