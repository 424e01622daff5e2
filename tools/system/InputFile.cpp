#include "system/InputFile.h"

#include "system/StopSignals.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace rk::tools {

namespace {

constexpr std::size_t pieceSize = 64UL * 1024;

[[noreturn]] void refuse(const std::string& name) {
    throw std::runtime_error("cannot read " + name + ": " + std::strerror(errno));
}

} // namespace

InputFile::InputFile(const std::string& path, const StopSignals& stopSignals)
    : stop(stopSignals),
      fileName(path == "-" ? "standard input" : path),
      descriptor(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      owned(path != "-") {
    if (descriptor < 0) {
        refuse(fileName);
    }
}

InputFile::~InputFile() {
    if (owned) {
        ::close(descriptor);
    }
}

bool InputFile::fill() {
    buffer.erase(0, position);
    position = 0;
    const std::size_t before = buffer.size();
    buffer.resize(before + pieceSize);
    ssize_t result = -1;
    do {
        pollfd items[] = {{descriptor, POLLIN, 0}, {stop.descriptor(), POLLIN, 0}};
        ::poll(items, 2, -1);
        if (stop.requested()) {
            result = 0;
            break;
        }
        result = ::read(descriptor, buffer.data() + before, pieceSize);
    } while (result < 0 && (errno == EINTR || errno == EAGAIN));
    const int error = errno;
    buffer.resize(before + static_cast<std::size_t>(std::max<ssize_t>(result, 0)));
    if (result < 0) {
        errno = error;
        refuse(fileName);
    }
    return result > 0;
}

std::string InputFile::read(std::size_t size) {
    while (buffer.size() - position < size && fill()) {
    }
    std::string bytes = buffer.substr(position, size);
    position += bytes.size();
    return bytes;
}

std::optional<std::string> InputFile::readLine() {
    std::size_t searched = position;
    std::size_t end = buffer.find('\n', searched);
    while (end == std::string::npos) {
        searched = buffer.size() - position;
        if (!fill()) {
            if (stop.requested() || buffer.empty()) {
                return std::nullopt;
            }
            buffer += '\n';
        }
        end = buffer.find('\n', searched);
    }
    std::string line = buffer.substr(position, end - position);
    position = end + 1;
    return line;
}

std::string InputFile::readAll() {
    while (fill()) {
    }
    std::string bytes = buffer.substr(position);
    position = buffer.size();
    return bytes;
}

std::optional<std::uint64_t> InputFile::size() const {
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(status.st_size);
}

} // namespace rk::tools
