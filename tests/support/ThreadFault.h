#pragma once

namespace rk::tests {

/// While it lives, this process can make no thread: `pthread_create` fails with the given error number.
class ThreadFault {
public:
    explicit ThreadFault(int error);
    ~ThreadFault();
    ThreadFault(const ThreadFault&) = delete;
    ThreadFault& operator=(const ThreadFault&) = delete;
};

} // namespace rk::tests
