#include "Interpose.h"

#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace rk::tests;

extern "C" {

int open(const char* path, int flags, ...) {
    static auto* const real = next<decltype(open)>("open64");
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    Call call{Function::Open, __builtin_return_address(0), nullptr, path};
    const auto go = [&] { return real(call.text, flags, mode); };
    return static_cast<int>(perform(call, Real(go)));
}

int mkostemp(char* pattern, int flags) {
    static auto* const real = next<decltype(mkostemp)>("mkostemp64");
    Call call{Function::Mkostemp, __builtin_return_address(0), nullptr, pattern};
    const auto go = [&] { return real(pattern, flags); };
    return static_cast<int>(perform(call, Real(go)));
}

int fstat(int descriptor, struct stat* status) {
    static auto* const real = next<decltype(fstat)>("fstat64");
    Call call{Function::Fstat, __builtin_return_address(0)};
    const auto go = [&] { return real(descriptor, status); };
    return static_cast<int>(perform(call, Real(go)));
}

ssize_t read(int descriptor, void* buffer, size_t size) {
    static auto* const real = next<decltype(read)>("read");
    Call call{Function::Read, __builtin_return_address(0)};
    const auto go = [&] { return real(descriptor, buffer, size); };
    return perform(call, Real(go));
}

ssize_t write(int descriptor, const void* data, size_t size) {
    static auto* const real = next<decltype(write)>("write");
    Call call{Function::Write, __builtin_return_address(0)};
    const auto go = [&] { return real(descriptor, data, size); };
    return perform(call, Real(go));
}

int fsync(int descriptor) {
    static auto* const real = next<decltype(fsync)>("fsync");
    Call call{Function::Fsync, __builtin_return_address(0)};
    const auto go = [&] { return real(descriptor); };
    return static_cast<int>(perform(call, Real(go)));
}

int link(const char* path, const char* name) {
    static auto* const real = next<decltype(link)>("link");
    Call call{Function::Link, __builtin_return_address(0), nullptr, path};
    const auto go = [&] { return real(path, name); };
    return static_cast<int>(perform(call, Real(go)));
}

} // extern "C"
