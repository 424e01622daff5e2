#include "Payload.h"

#include <algorithm>

namespace rk::benchmarks {

namespace {

constexpr std::size_t smallSize = 1;

/// As long as `size` when it is serialised.
Reading readingOf(std::size_t size) {
    Reading reading;
    reading.set_sequence(123456789);
    reading.set_time(1.25);
    reading.set_source("front");
    reading.set_payload("x");
    const std::size_t rest = reading.ByteSizeLong() - 1;
    reading.set_payload(std::string(size - rest, 'x'));
    // The length of the payload may itself have grown.
    reading.set_payload(std::string(reading.payload().size() - (reading.ByteSizeLong() - size), 'x'));
    return reading;
}

} // namespace

Payload Payload::of(const Cell& cell) {
    Payload payload;
    payload.raw.assign(cell.size, 'x');
    if (cell.content == Content::Raw) {
        payload.message.set_payload(payload.raw);
    } else {
        payload.message = readingOf(cell.size);
    }
    return payload;
}

Payload Payload::small() {
    Payload payload;
    payload.raw.assign(smallSize, 'x');
    payload.message.set_payload(payload.raw);
    return payload;
}

std::size_t bufferSize(const Cell& cell) {
    return std::max<std::size_t>(cell.size, 64);
}

} // namespace rk::benchmarks
