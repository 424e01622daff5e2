#include "BeforeJoin.h"

#include <dlfcn.h>
#include <pthread.h>
#include <utility>

namespace rk::tests {

namespace {

std::function<void()>& pendingAction() {
    thread_local std::function<void()> action;
    return action;
}

thread_local int faultOfJoins = 0; // the next one's

} // namespace

BeforeJoin::BeforeJoin(std::function<void()> action) {
    pendingAction() = std::move(action);
}

BeforeJoin::~BeforeJoin() {
    pendingAction() = nullptr;
}

JoinFault::JoinFault(int error) {
    faultOfJoins = error;
}

JoinFault::~JoinFault() {
    faultOfJoins = 0;
}

} // namespace rk::tests

/// Stands in front of the C library's function of this name.
extern "C" int pthread_join(pthread_t thread, void** result) {
    static auto* const real = reinterpret_cast<decltype(pthread_join)*>(dlsym(RTLD_NEXT, "pthread_join"));
    if (const std::function<void()> action = std::exchange(rk::tests::pendingAction(), nullptr)) {
        action();
    }
    const int error = real(thread, result);
    const int fault = std::exchange(rk::tests::faultOfJoins, 0);
    return fault != 0 ? fault : error;
}
