#include "Interpose.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

using namespace rk::tests;

extern "C" {

int chmod(const char* path, mode_t mode) {
    static auto* const real = next<decltype(chmod)>("chmod");
    Call call{Function::Chmod, __builtin_return_address(0), nullptr, path, static_cast<long>(mode)};
    const auto go = [&] { return real(call.text, mode); };
    return static_cast<int>(perform(call, Real(go)));
}

int gettimeofday(timeval* __restrict now, void* __restrict zone) {
    static auto* const real = next<int(timeval*, void*)>("gettimeofday");
    Call call{Function::Gettimeofday, __builtin_return_address(0), now};
    const auto go = [&] { return real(now, zone); };
    return static_cast<int>(perform(call, Real(go)));
}

int usleep(useconds_t time) {
    static auto* const real = next<decltype(usleep)>("usleep");
    Call call{Function::Usleep, __builtin_return_address(0), nullptr, nullptr, static_cast<long>(time)};
    const auto go = [&] { return real(time); };
    return static_cast<int>(perform(call, Real(go)));
}

} // extern "C"
