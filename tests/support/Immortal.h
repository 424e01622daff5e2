#pragma once

#include <new>

namespace rk::tests {

/// The one `Type` of the process, made without `operator new`, which needs some of them, and never destroyed.
template <class Type>
Type& immortal() {
    alignas(Type) static unsigned char memory[sizeof(Type)];
    static Type* const object = ::new (static_cast<void*>(memory)) Type;
    return *object;
}

} // namespace rk::tests
