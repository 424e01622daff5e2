#include "MutexFault.h"

#include "Caller.h"

#include <dlfcn.h>
#include <pthread.h>

namespace rk::tests {

namespace {

struct Fault {
    int error = 0;
    int locksUntilIt = 0;
};

thread_local Fault fault;

/// The error of the lock that is being made, if it is the one to fail.
int dueFault(const void* caller) {
    if (fault.locksUntilIt == 0 || !isInLibrary(caller)) {
        return 0;
    }
    --fault.locksUntilIt;
    return fault.locksUntilIt == 0 ? fault.error : 0;
}

} // namespace

MutexFault::MutexFault(int error, int nth) {
    fault = {error, nth};
}

MutexFault::~MutexFault() {
    fault = {};
}

} // namespace rk::tests

/// Stands in front of the C library's function of this name.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static auto* const real = reinterpret_cast<decltype(pthread_mutex_lock)*>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    const int error = rk::tests::dueFault(__builtin_return_address(0));
    return error != 0 ? error : real(mutex);
}
