#pragma once

namespace rk::tests {

/// While it lives, one of the calling thread's next locks of a mutex by the library fails with the given error number:
/// the `nth`.
class MutexFault {
public:
    explicit MutexFault(int error, int nth = 1);
    ~MutexFault();
    MutexFault(const MutexFault&) = delete;
    MutexFault& operator=(const MutexFault&) = delete;
};

} // namespace rk::tests
