#pragma once

namespace rk::tests {

/// Makes the `nth` next `pthread_create` and all later ones fail with the given error number during its lifetime, so
/// that the process can start no more threads.
class ThreadFault {
public:
    explicit ThreadFault(int error, int nth = 1);
    ~ThreadFault();
    ThreadFault(const ThreadFault&) = delete;
    ThreadFault& operator=(const ThreadFault&) = delete;
};

} // namespace rk::tests
