#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace rk::tests {

/// Reads the input of a fuzz target from start to end, and zeros after the end.
class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : next(data), end(data + size) {}

    bool areLeft() const { return next != end; }

    unsigned int byte() { return areLeft() ? *next++ : 0; }

    /// Returns a number below `limit`, which is at most 256.
    unsigned int below(unsigned int limit) { return byte() % limit; }

    /// Returns a number of two bytes.
    unsigned int number() {
        const unsigned int high = byte();
        return high << 8U | byte();
    }

    std::string rest() {
        const std::string text(next, end);
        next = end;
        return text;
    }

private:
    const std::uint8_t* next;
    const std::uint8_t* end;
};

} // namespace rk::tests
