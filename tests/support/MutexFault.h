#pragma once

namespace rk::tests {

/// Makes the `nth` next lock of a mutex by the library on the calling thread fail with the given error number, during
/// its lifetime.
class MutexFault {
public:
    explicit MutexFault(int error, int nth = 1);
    ~MutexFault();
    MutexFault(const MutexFault&) = delete;
    MutexFault& operator=(const MutexFault&) = delete;
};

} // namespace rk::tests
