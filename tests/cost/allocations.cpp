#include "allocations.h"

#include <cstddef>

// glibc's own names of its allocator. Operator new ends in malloc, wherever it is called.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

unsigned long count = 0;

} // namespace

namespace rk::cost {

unsigned long allocations() {
    return count;
}

} // namespace rk::cost

extern "C" {

void* malloc(std::size_t size) {
    ++count;
    return __libc_malloc(size);
}

void* calloc(std::size_t number, std::size_t size) {
    ++count;
    return __libc_calloc(number, size);
}

void* realloc(void* block, std::size_t size) {
    ++count;
    return __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    ++count;
    return __libc_memalign(alignment, size);
}

} // extern "C"
