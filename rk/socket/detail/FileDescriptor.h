#pragma once

#include <unistd.h>

namespace rk::socket::detail {

/// Closes a file descriptor on scope exit.
class FileDescriptor {
public:
    /// Takes ownership of `descriptor`, which is negative if an open failed.
    explicit FileDescriptor(int descriptor) : number(descriptor) {}
    ~FileDescriptor() {
        if (isOpen()) {
            close(number);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    bool isOpen() const { return number >= 0; }
    int get() const { return number; }

private:
    int number;
};

} // namespace rk::socket::detail
