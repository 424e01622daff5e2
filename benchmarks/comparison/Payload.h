#pragma once

#include "Cell.h"

#include <messages.pb.h>
#include <string>

namespace rk::benchmarks {

/// What is sent in a cell, in both forms. A small one, that no cell measures, greets and says goodbye.
struct Payload {
    std::string raw;
    Reading message;

    static Payload of(const Cell& cell);
    static Payload small();
};

/// Room for every payload, and for a greeting.
std::size_t bufferSize(const Cell& cell);

} // namespace rk::benchmarks
