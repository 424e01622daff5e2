#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <vector>

namespace rk::tests {

/// The allocations of a thread with `new` during an action, as sizes in bytes, in order. Also counts its deletions,
/// including those of older allocations.
struct Allocations {
    std::vector<std::size_t> all;
    std::vector<std::size_t> arrays;
    std::vector<std::size_t> arraysAlive; ///< not deleted when the action ended
    std::size_t deletions = 0;
};

/// Runs `action`. Every allocation of at least `failingSize` bytes in it fails. Actions must not be nested.
Allocations allocationsOf(const std::function<void()>& action,
                          std::size_t failingSize = std::numeric_limits<std::size_t>::max());

/// Returns whether allocations are counted at all. Some tools replace the operators of the executable.
bool seesAllocations();

} // namespace rk::tests
