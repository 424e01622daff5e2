#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <vector>

namespace rk::tests {

/// What a thread allocated with `new` while it ran an action: sizes in bytes, in order; and how often it deleted, also
/// what had been allocated before.
struct Allocations {
    std::vector<std::size_t> all;
    std::vector<std::size_t> arrays;
    std::vector<std::size_t> arraysAlive; ///< those that were not deleted when the action ended
    std::size_t deletions = 0;
};

/// Runs `action`, in which every allocation of at least `failingSize` bytes fails. An action may not run another one.
Allocations allocationsOf(const std::function<void()>& action,
                          std::size_t failingSize = std::numeric_limits<std::size_t>::max());

/// Whether allocations are seen at all: the executable replaces the operators, and so do some tools.
bool seesAllocations();

} // namespace rk::tests
