#include "Interpose.h"

#include <new>

using namespace rk::tests;

namespace {

void* orThrow(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

void* operator new(std::size_t size) {
    return orThrow(allocate(size, false, __builtin_return_address(0)));
}

void* operator new[](std::size_t size) {
    return orThrow(allocate(size, true, __builtin_return_address(0)));
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, false, __builtin_return_address(0));
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, true, __builtin_return_address(0));
}

void operator delete(void* address) noexcept {
    release(address, false, __builtin_return_address(0));
}

void operator delete[](void* address) noexcept {
    release(address, true, __builtin_return_address(0));
}

void operator delete(void* address, std::size_t /*size*/) noexcept {
    release(address, false, __builtin_return_address(0));
}

void operator delete[](void* address, std::size_t /*size*/) noexcept {
    release(address, true, __builtin_return_address(0));
}

void operator delete(void* address, const std::nothrow_t& /*tag*/) noexcept {
    release(address, false, __builtin_return_address(0));
}

void operator delete[](void* address, const std::nothrow_t& /*tag*/) noexcept {
    release(address, true, __builtin_return_address(0));
}
