#pragma once

#include <cstddef>
#include <new>

namespace rk::detail {

/// Holds an object that is never destroyed.
///
/// Static destructors and threads can use a static `Immortal` until the process ends. The object is in static storage,
/// because sockets must be closable when the heap is exhausted.
template <class T>
class Immortal {
public:
    Immortal() : object(::new(static_cast<void*>(storage)) T) {}
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& operator*() { return *object; }

private:
    alignas(T) std::byte storage[sizeof(T)]{};
    T* object;
};

} // namespace rk::detail
