#pragma once

#include <cstring>
#include <dlfcn.h>

namespace rk::tests {

/// Returns whether a return address is in the library, so that the library has called the intercepted function.
inline bool isInLibrary(const void* returnAddress) {
    Dl_info caller{};
    return dladdr(returnAddress, &caller) != 0 && std::strstr(caller.dli_fname, "librk-socket") != nullptr;
}

} // namespace rk::tests
