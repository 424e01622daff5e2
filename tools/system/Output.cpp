#include "system/Output.h"

#include "system/StopSignals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rk::tools {

namespace {

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
    struct stat status = {};
    static_cast<void>(::fstat(descriptor, &status));
    waits = S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || ::isatty(descriptor) == 1;
    if (S_ISFIFO(status.st_mode)) {
        openPipe();
    }
}

/// Opens a pipe a second time without blocking, which does not affect the processes that share it. Best effort: the pipe
/// may belong to another user.
void Output::openPipe() {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    const int own = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (own < 0) {
        return;
    }
    if (owned) {
        ::close(descriptor);
    }
    descriptor = own;
    owned = true;
    waits = false;
}

Output::~Output() {
    try {
        flush();
    } catch (const std::exception&) {
        // The failure that ended the work has been reported.
    }
    if (owned) {
        ::close(descriptor);
    }
}

void Output::write(std::string_view bytes) {
    buffer += bytes;
    flushWhenFull();
}

void Output::flush() {
    // The buffer is empty on failure, so that nothing is written twice. It keeps its memory.
    std::string handedOn;
    handedOn.swap(buffer);
    for (std::string_view rest = handedOn; !rest.empty();) {
        writePiece(rest);
    }
    handedOn.clear();
    buffer.swap(handedOn);
}

void Output::writePiece(std::string_view& rest) const {
    // A signal must end the process even if the reader is stuck.
    if (waits) {
        awaitReader();
    }
    // A write of this size to a ready pipe does not block.
    const std::size_t size = waits ? std::min<std::size_t>(rest.size(), PIPE_BUF) : rest.size();
    const ssize_t result = ::write(descriptor, rest.data(), size);
    if (result >= 0) {
        rest.remove_prefix(static_cast<std::size_t>(result));
    } else if (errno == EPIPE) {
        throw ReaderGone();
    } else if (errno == EAGAIN) {
        awaitReader();
    } else if (errno != EINTR) {
        throw std::runtime_error("cannot write " + name + ": " + std::strerror(errno));
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

} // namespace rk::tools
