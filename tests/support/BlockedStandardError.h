#pragma once

#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace rk::tests {

/// Replaces standard error by a full pipe without a reader during its lifetime. The original stays open.
class BlockedStandardError {
public:
    BlockedStandardError() : former(::dup(STDERR_FILENO)) {
        if (former < 0 || ::pipe2(ends, O_NONBLOCK) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        const std::string block(4096, 'x');
        while (::write(ends[1], block.data(), block.size()) > 0) {
        }
        ::fcntl(ends[1], F_SETFL, 0);
        ::dup2(ends[1], STDERR_FILENO);
    }
    ~BlockedStandardError() {
        ::dup2(former, STDERR_FILENO);
        for (const int descriptor : {former, ends[0], ends[1]}) {
            ::close(descriptor);
        }
    }
    BlockedStandardError(const BlockedStandardError&) = delete;
    BlockedStandardError& operator=(const BlockedStandardError&) = delete;

private:
    const int former;
    int ends[2];
};

} // namespace rk::tests
