#pragma once

#include <chrono>
#include <cstdint>
#include <cstring>
#include <endian.h>
#include <string>
#include <string_view>

/// \file
/// The format of recordings: the line "rk-socket recording 1\n", and for each part of a message its head and its bytes. A
/// head has the time since the first message in nanoseconds (8 bytes) and the length of the part (4 bytes), both with the
/// lowest byte first. The highest bit of the length says that another part of the same message follows.

namespace rk::tools::recording {

constexpr std::string_view title = "rk-socket recording ";
constexpr std::string_view header = "rk-socket recording 1\n";
constexpr std::size_t headSize = 12;
constexpr std::uint32_t moreFlag = 0x80000000U;

/// The bytes before each part.
struct Head {
    std::chrono::nanoseconds time{0};
    std::uint32_t size = 0; ///< at most 2147483647
    bool more = false;
};

inline std::string toBytes(const Head& head) {
    const std::uint64_t time = htole64(static_cast<std::uint64_t>(head.time.count()));
    const std::uint32_t size = htole32(head.size | (head.more ? moreFlag : 0));
    std::string bytes(headSize, '\0');
    std::memcpy(bytes.data(), &time, sizeof time);
    std::memcpy(&bytes[sizeof time], &size, sizeof size);
    return bytes;
}

/// `bytes` has `headSize` bytes.
inline Head headFromBytes(std::string_view bytes) {
    std::uint64_t time = 0;
    std::uint32_t size = 0;
    std::memcpy(&time, bytes.data(), sizeof time);
    std::memcpy(&size, &bytes[sizeof time], sizeof size);
    size = le32toh(size);
    return {std::chrono::nanoseconds(static_cast<std::int64_t>(le64toh(time))), size & ~moreFlag,
            (size & moreFlag) != 0};
}

} // namespace rk::tools::recording
