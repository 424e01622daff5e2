#pragma once

#include <string>
#include <sys/types.h>

namespace rk::socket::detail {

/// Permissions that a file must not give, and why.
struct Forbidden {
    mode_t permissions;
    const char* reason;
};

/// Closes a file descriptor on scope exit.
class FileDescriptor {
public:
    /// Takes over `descriptor`, which may be negative.
    explicit FileDescriptor(int descriptor) : number(descriptor) {}
    ~FileDescriptor();
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return number; }

private:
    int number;
};

/// Reads the file at `path` into `text`, which gets its full size at once.
///
/// The file must be regular, belong to the effective user or to root, and give none of the forbidden permissions. These
/// checks hold for the file that is read, even if another takes its place meanwhile. Does not block on pipes and devices.
/// \throws std::runtime_error with path and reason
void readProtectedFile(const std::string& path, const Forbidden& forbidden, std::string& text);

} // namespace rk::socket::detail
