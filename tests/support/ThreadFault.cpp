#include "ThreadFault.h"

#include <atomic>
#include <dlfcn.h>
#include <pthread.h>

namespace rk::tests {

namespace {

std::atomic<int> faultOfThreads{0};

} // namespace

ThreadFault::ThreadFault(int error) {
    faultOfThreads = error;
}

ThreadFault::~ThreadFault() {
    faultOfThreads = 0;
}

} // namespace rk::tests

/// Stands in front of the C library's function of this name.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                              void* argument) {
    static auto* const real = reinterpret_cast<decltype(pthread_create)*>(dlsym(RTLD_NEXT, "pthread_create"));
    const int error = rk::tests::faultOfThreads;
    return error != 0 ? error : real(thread, attributes, function, argument);
}
