#pragma once

namespace rk::tests {

/// Makes `pthread_create` fail with the given error number during its lifetime, so that the process can start no
/// thread.
class ThreadFault {
public:
    explicit ThreadFault(int error);
    ~ThreadFault();
    ThreadFault(const ThreadFault&) = delete;
    ThreadFault& operator=(const ThreadFault&) = delete;
};

} // namespace rk::tests
