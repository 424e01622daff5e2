#include "Interpose.h"

#include <chrono>
#include <future>
#include <pthread.h>

using namespace rk::tests;

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static auto* const real = next<decltype(pthread_mutex_lock)>("pthread_mutex_lock");
    const auto go = [&] { return real(mutex); };
    return static_cast<int>(performOnThread({Function::PthreadMutexLock, __builtin_return_address(0)}, Real(go)));
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*), void* argument) {
    static auto* const real = next<decltype(pthread_create)>("pthread_create");
    const auto go = [&] { return real(thread, attributes, function, argument); };
    return static_cast<int>(performOnThread({Function::PthreadCreate, __builtin_return_address(0)}, Real(go)));
}

int pthread_join(pthread_t thread, void** result) {
    static auto* const real = next<decltype(pthread_join)>("pthread_join");
    const auto go = [&] { return real(thread, result); };
    return static_cast<int>(performOnThread({Function::PthreadJoin, __builtin_return_address(0)}, Real(go)));
}

} // extern "C"

/// Called by a timed wait for a future before it blocks.
bool std::__atomic_futex_unsigned_base::_M_futex_wait_until_steady(unsigned* address, unsigned value, bool hasTimeout,
                                                                   chrono::seconds seconds,
                                                                   chrono::nanoseconds nanoseconds) {
    using Signature = bool(void*, unsigned*, unsigned, bool, chrono::seconds, chrono::nanoseconds);
    // The types of the times have other names where a long has 32 bits.
    constexpr const char* name =
        sizeof(long) == 8
            ? "_ZNSt28__atomic_futex_unsigned_base26_M_futex_wait_until_steadyEPjjbNSt6chrono8durationIlSt5ratioILl1EL"
              "l1EEEENS2_IlS3_ILl1ELl1000000000EEEE"
            : "_ZNSt28__atomic_futex_unsigned_base26_M_futex_wait_until_steadyEPjjbNSt6chrono8durationIxSt5ratioILx1EL"
              "x1EEEENS2_IxS3_ILx1ELx1000000000EEEE";
    static auto* const real = ::next<Signature>(name);
    const auto go = [&] { return real(this, address, value, hasTimeout, seconds, nanoseconds); };
    return performOnThread({Function::FutureWait, __builtin_return_address(0)}, Real(go)) != 0;
}
