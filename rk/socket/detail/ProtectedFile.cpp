#include <rk/socket/detail/FileDescriptor.h>
#include <rk/socket/detail/ProtectedFile.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace rk::socket::detail {

namespace {

constexpr off_t largestFile = 16777216; // 16 MiB

[[noreturn]] void refuse(const std::string& path, const char* reason) {
    throw std::runtime_error("Security: Cannot read " + path + ": " + reason);
}

/// Returns why the file must not be read, or null.
const char* complaintAbout(const struct stat& file, const Forbidden& forbidden) {
    if (!S_ISREG(file.st_mode)) {
        return "not a regular file";
    }
    if (file.st_uid != geteuid() && file.st_uid != 0) {
        return "it belongs to another user";
    }
    if ((file.st_mode & forbidden.permissions) != 0) {
        return forbidden.reason;
    }
    return file.st_size > largestFile ? "more than 16 MiB" : nullptr;
}

} // namespace

void readProtectedFile(const std::string& path, const Forbidden& forbidden, std::string& text) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status{};
    if (!file.isOpen() || fstat(file.get(), &status) < 0) {
        refuse(path, std::strerror(errno));
    }
    if (const char* const complaint = complaintAbout(status, forbidden)) {
        refuse(path, complaint);
    }
    text.resize(static_cast<std::size_t>(status.st_size));
    std::size_t size = 0;
    ssize_t count = 0;
    while ((count = read(file.get(), text.data() + size, text.size() - size)) > 0) {
        size += static_cast<std::size_t>(count);
    }
    if (count < 0) {
        refuse(path, std::strerror(errno));
    }
    text.resize(size);
}

} // namespace rk::socket::detail
