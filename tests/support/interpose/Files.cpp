#include "Interpose.h"

#include <cstdarg>
#include <fcntl.h>

using namespace rk::tests;

extern "C" int open(const char* path, int flags, ...) {
    static auto* const real = next<decltype(open)>("open");
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
