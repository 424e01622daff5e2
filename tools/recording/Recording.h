#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

/// \file
/// The format of recordings: the line "rk-socket recording 1\n"; then for each block its time since the first one, in
/// nanoseconds, as 8 bytes, its length as 4 bytes, both with the lowest byte first, and the block itself. A block is a
/// message, or a part of one: the highest bit of the length says that another part of the same message follows.

namespace rk::tools::recording {

constexpr std::string_view title = "rk-socket recording ";
constexpr std::string_view header = "rk-socket recording 1\n";
constexpr std::size_t headSize = 12;

/// What stands before a block.
struct Head {
    std::chrono::nanoseconds time{0};
    std::uint32_t size = 0; ///< at most 2147483647
    bool more = false;
};

std::string toBytes(const Head& head);

/// `bytes` are `headSize` bytes.
Head headFromBytes(std::string_view bytes);

} // namespace rk::tools::recording
