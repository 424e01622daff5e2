#pragma once

#include <cstring>
#include <dlfcn.h>

namespace rk::tests {

/// Whether a return address is in the library: the function that stands in for another has been called by it.
inline bool isInLibrary(const void* returnAddress) {
    Dl_info caller{};
    return dladdr(returnAddress, &caller) != 0 && std::strstr(caller.dli_fname, "librk-socket") != nullptr;
}

} // namespace rk::tests
