#pragma once

#include <dlfcn.h>
#include <string>

namespace rk::tests {

/// Whether a return address is in the library: the function that stands in for another has been called by it.
inline bool isInLibrary(const void* returnAddress) {
    Dl_info caller{};
    return dladdr(returnAddress, &caller) != 0 &&
           std::string(caller.dli_fname).find("librk-socket") != std::string::npos;
}

} // namespace rk::tests
