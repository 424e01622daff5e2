#pragma once

#include <new>

namespace rk::tests {

/// The only `Type` of the process, never destroyed. Constructed without `operator new`, which uses some of them.
template <class Type>
Type& immortal() {
    alignas(Type) static unsigned char memory[sizeof(Type)];
    static Type* const object = ::new (static_cast<void*>(memory)) Type;
    return *object;
}

} // namespace rk::tests
