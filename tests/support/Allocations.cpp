#include "Allocations.h"

#include "Caller.h"
#include "interpose/Interpose.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace rk::tests {

namespace {

struct Entry {
    const void* address;
    std::size_t size;
    bool isArray;
    bool isAlive;
};

/// Has a fixed length, because it is written during an allocation.
struct Record {
    bool active = false;
    std::size_t failingSize = std::numeric_limits<std::size_t>::max();
    std::size_t count = 0;
    std::size_t deletions = 0;
    std::array<Entry, 1000> entries{};
};

thread_local Record record;

/// Records during its lifetime, so that the recording also ends if the action throws.
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

void* allocate(std::size_t size, bool isArray, const void* /*caller*/) noexcept {
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

void release(void* address, bool /*isArray*/, const void* caller) noexcept {
    if (isInLibrary(caller)) {
        errno = EDOM; // because a deletion may change it
    }
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

} // namespace rk::tests
