#pragma once

#include <cstdint>

namespace rk::benchmarks {

/// The wire between the two sides of a measurement, beside the one that is measured.
class Control {
public:
    explicit Control(int end) : descriptor(end) {}

    /// Tells the server to publish `count` payloads; 0 tells it to end.
    void order(std::uint32_t count) const;

    /// The next order. 0 also when the other side is gone.
    std::uint32_t awaitOrder() const;

    /// Whether an order comes within some milliseconds.
    bool hasOrder(int milliseconds) const;

private:
    int descriptor;
};

} // namespace rk::benchmarks
