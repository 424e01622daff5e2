#pragma once

#include <functional>

namespace rk::tests {

// Each of these acts during its lifetime.

/// Runs `action` once before the calling thread joins another one or waits for a listener's.
class BeforeJoin {
public:
    explicit BeforeJoin(std::function<void()> action);
    ~BeforeJoin();
    BeforeJoin(const BeforeJoin&) = delete;
    BeforeJoin& operator=(const BeforeJoin&) = delete;
};

/// Makes the next join by the calling thread fail with the given error number after it has waited.
class JoinFault {
public:
    explicit JoinFault(int error);
    ~JoinFault();
    JoinFault(const JoinFault&) = delete;
    JoinFault& operator=(const JoinFault&) = delete;
};

/// Makes the `nth` next lock of a mutex by the library on the calling thread fail with the given error number.
class MutexFault {
public:
    explicit MutexFault(int error, int nth = 1);
    ~MutexFault();
    MutexFault(const MutexFault&) = delete;
    MutexFault& operator=(const MutexFault&) = delete;
};

/// Makes the `nth` next `pthread_create` and all later ones fail with the given error number, so that the process can
/// start no more threads.
class ThreadFault {
public:
    explicit ThreadFault(int error, int nth = 1);
    ~ThreadFault();
    ThreadFault(const ThreadFault&) = delete;
    ThreadFault& operator=(const ThreadFault&) = delete;
};

} // namespace rk::tests
