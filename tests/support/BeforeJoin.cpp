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

} // namespace

BeforeJoin::BeforeJoin(std::function<void()> action) {
    pendingAction() = std::move(action);
}

BeforeJoin::~BeforeJoin() {
    pendingAction() = nullptr;
}

} // namespace rk::tests

/// Stands in front of the C library's function of this name.
extern "C" int pthread_join(pthread_t thread, void** result) {
    static auto* const real = reinterpret_cast<decltype(pthread_join)*>(dlsym(RTLD_NEXT, "pthread_join"));
    if (const std::function<void()> action = std::exchange(rk::tests::pendingAction(), nullptr)) {
        action();
    }
    return real(thread, result);
}
