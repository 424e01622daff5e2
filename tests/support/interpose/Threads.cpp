#include "Interpose.h"

#include <ctime>
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

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* end) {
    static auto* const real = next<decltype(pthread_cond_clockwait)>("pthread_cond_clockwait");
    const auto go = [&] { return real(condition, mutex, clock, end); };
    return static_cast<int>(performOnThread({Function::PthreadCondClockwait, __builtin_return_address(0)}, Real(go)));
}

} // extern "C"
