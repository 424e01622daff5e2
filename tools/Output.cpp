#include "Output.h"

#include "StopSignals.h"
#include "Terminal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace rk::tools {

namespace {

constexpr std::size_t pieceSize = 64 * 1024;

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
    if (owned) {
        ::close(descriptor);
    }
}

void Output::write(std::string_view bytes) {
    buffer += bytes;
    if (buffer.size() >= pieceSize) {
        flush();
    }
}

void Output::flush() {
    const std::string pending = std::exchange(buffer, {});
    std::size_t written = 0;
    while (written < pending.size()) {
        const ssize_t result = ::write(descriptor, pending.data() + written, pending.size() - written);
        if (result >= 0) {
            written += static_cast<std::size_t>(result);
        } else if (errno == EPIPE || (errno == EINTR && stop.requested())) {
            throw ReaderGone();
        } else if (errno != EINTR) {
            throw std::runtime_error("cannot write " + name + ": " + std::strerror(errno));
        }
    }
}

bool Output::readerGone() const {
    pollfd item{descriptor, 0, 0};
    return ::poll(&item, 1, 0) == 1 && (item.revents & (POLLERR | POLLHUP)) != 0;
}

bool Output::isTerminal() const {
    return tools::isTerminal(descriptor);
}

} // namespace rk::tools
