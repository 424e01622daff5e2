#include "Cell.h"

#include "Measuring.h"

#include <algorithm>
#include <sstream>

namespace rk::benchmarks {

namespace {

/// Returns a message that takes `size` bytes when serialised.
Reading readingOf(std::size_t size) {
    Reading reading;
    reading.set_sequence(123456789);
    reading.set_time(1.25);
    reading.set_source("front");
    reading.set_payload("x");
    const std::size_t rest = reading.ByteSizeLong() - 1;
    reading.set_payload(std::string(size - rest, 'x'));
    // The length prefix of the payload may have grown too.
    reading.set_payload(std::string(reading.payload().size() - (reading.ByteSizeLong() - size), 'x'));
    return reading;
}

} // namespace

std::string Cell::text() const {
    return pattern + " " + transport + " " + content + " " + std::to_string(size);
}

Cell Cell::parse(const std::string& text) {
    Cell cell;
    std::istringstream words(text);
    words >> cell.pattern >> cell.transport >> cell.content >> cell.size;
    require(!words.fail(), text.c_str());
    return cell;
}

Payload Payload::of(const Cell& cell) {
    Payload payload;
    payload.raw.assign(cell.size, 'x');
    payload.message.set_payload(payload.raw);
    if (!cell.raw()) {
        payload.message = readingOf(cell.size);
    }
    return payload;
}

Payload Payload::small() {
    return of({"", "", "raw", 1});
}

std::size_t bufferSize(const Cell& cell) {
    return std::max<std::size_t>(cell.size, 64);
}

} // namespace rk::benchmarks
