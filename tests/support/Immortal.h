#pragma once

#include <new>

namespace rk::tests {

/// Returns the only `Type` of the process, which is never destroyed. Does not call `operator new`, because its policy
/// uses such objects.
template <class Type>
Type& immortal() {
    alignas(Type) static unsigned char memory[sizeof(Type)];
    static Type* const object = ::new (static_cast<void*>(memory)) Type;
    return *object;
}

} // namespace rk::tests
