#include "Allocations.h"

#include <array>
#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>

namespace rk::tests {

namespace {

struct Entry {
    const void* address;
    std::size_t size;
    bool isArray;
    bool isAlive;
};

/// Of a fixed length, since it is written while allocating.
struct Record {
    bool active = false;
    std::size_t failingSize = std::numeric_limits<std::size_t>::max();
    std::size_t count = 0;
    std::size_t deletions = 0;
    std::array<Entry, 1000> entries{};
};

thread_local Record record;

void* allocate(std::size_t size, bool isArray) noexcept {
    if (record.active && size >= record.failingSize) {
        return nullptr;
    }
    void* const address = std::malloc(size != 0 ? size : 1);
    if (record.active) {
        if (record.count < record.entries.size()) {
            record.entries[record.count] = {address, size, isArray, true};
        }
        ++record.count;
    }
    return address;
}

void* allocateOrThrow(std::size_t size, bool isArray) {
    void* const address = allocate(size, isArray);
    if (address == nullptr) {
        throw std::bad_alloc();
    }
    return address;
}

void release(void* address) noexcept {
    if (record.active && address != nullptr) {
        ++record.deletions;
        for (Entry& entry : record.entries) {
            if (entry.address == address) {
                entry.isAlive = false;
            }
        }
    }
    std::free(address);
}

/// Ends the recording also when the action throws.
class Recording {
public:
    explicit Recording(std::size_t failingSize) {
        record = {};
        record.failingSize = failingSize;
        record.active = true;
    }
    ~Recording() { record.active = false; }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
};

} // namespace

Allocations allocationsOf(const std::function<void()>& action, std::size_t failingSize) {
    {
        const Recording recording(failingSize);
        action();
    }
    if (record.count > record.entries.size()) {
        throw std::length_error("more allocations than can be recorded");
    }
    Allocations found;
    found.deletions = record.deletions;
    for (std::size_t index = 0; index < record.count; ++index) {
        const Entry& entry = record.entries[index];
        found.all.push_back(entry.size);
        if (entry.isArray) {
            found.arrays.push_back(entry.size);
        }
        if (entry.isArray && entry.isAlive) {
            found.arraysAlive.push_back(entry.size);
        }
    }
    return found;
}

bool seesAllocations() {
    return allocationsOf([] { ::operator delete(::operator new(1)); }).all.size() == 1;
}

} // namespace rk::tests

void* operator new(std::size_t size) {
    return rk::tests::allocateOrThrow(size, false);
}

void* operator new[](std::size_t size) {
    return rk::tests::allocateOrThrow(size, true);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return rk::tests::allocate(size, false);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return rk::tests::allocate(size, true);
}

void operator delete(void* address) noexcept {
    rk::tests::release(address);
}

void operator delete[](void* address) noexcept {
    rk::tests::release(address);
}

void operator delete(void* address, std::size_t /*size*/) noexcept {
    rk::tests::release(address);
}

void operator delete[](void* address, std::size_t /*size*/) noexcept {
    rk::tests::release(address);
}

void operator delete(void* address, const std::nothrow_t& /*tag*/) noexcept {
    rk::tests::release(address);
}

void operator delete[](void* address, const std::nothrow_t& /*tag*/) noexcept {
    rk::tests::release(address);
}
