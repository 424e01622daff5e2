#include "system/Output.h"

#include "system/StopSignals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace rk::tools {

namespace {

constexpr std::size_t bufferSize = 64UL * 1024;
constexpr int patience = 1000; // milliseconds

} // namespace

Output::Output(const StopSignals& stopSignals) : Output("-", stopSignals) {}

Output::Output(const std::string& path, const StopSignals& stopSignals)
    : stop(stopSignals),
      name(path == "-" ? "standard output" : path),
      descriptor(path == "-" ? STDOUT_FILENO : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
      owned(path != "-") {
    if (descriptor < 0) {
        throw std::runtime_error("cannot write " + name + ": " + std::strerror(errno));
    }
}

Output::~Output() {
    try {
        flush();
    } catch (const std::exception&) {
        // Whatever ended the work has been told already.
    }
    if (owned) {
        ::close(descriptor);
    }
}

void Output::write(std::string_view bytes) {
    buffer += bytes;
    if (buffer.size() >= bufferSize) {
        flush();
    }
}

void Output::flush() {
    const std::string pending = std::exchange(buffer, {});
    std::string_view rest = pending;
    while (!rest.empty()) {
        awaitReader();
        // A pipe that is ready takes so much at once.
        const ssize_t result = ::write(descriptor, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF));
        if (result >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(result));
        } else if (errno == EPIPE) {
            throw ReaderGone();
        } else if (errno != EINTR && errno != EAGAIN) {
            throw std::runtime_error("cannot write " + name + ": " + std::strerror(errno));
        }
    }
}

void Output::awaitReader() const {
    std::array<pollfd, 2> items = {{{descriptor, POLLOUT, 0}, {stop.descriptor(), POLLIN, 0}}};
    if (!stop.requested()) {
        ::poll(items.data(), items.size(), -1);
    }
    if (stop.requested() && ::poll(items.data(), 1, patience) != 1) {
        throw ReaderGone();
    }
}

void Output::flushForReader() {
    flush();
    pollfd item{descriptor, 0, 0};
    if (::poll(&item, 1, 0) == 1 && (item.revents & (POLLERR | POLLHUP)) != 0) {
        throw ReaderGone();
    }
}

bool Output::isTerminal() const {
    return ::isatty(descriptor) == 1;
}

} // namespace rk::tools
