#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

/// \file
/// Checks of option values. A validator refuses the empty text, and each value that makes no sense, with a reason. Numbers,
/// durations and sizes are transforms, which rewrite the value for the parser.

namespace rk::tools {

/// Any text but the empty one.
CLI::Validator notEmpty();

/// An address or an interface, without a port.
CLI::Validator host();

/// A whole number in decimal digits, at most `most`.
CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t most);

/// A number, with or without a fraction.
CLI::Validator number(double least, double most);

/// "500ms", "2s", "1.5min", "20us" or, in seconds, "2". Becomes a number of seconds from `least` to `most`.
CLI::Validator duration(double least = 0.0, double most = 1e9);

/// "100", "64KiB", "2 GB". Becomes a number of bytes.
CLI::Validator size(std::uint64_t most);

/// An endpoint that a socket of this process can use.
CLI::Validator endpoint();

} // namespace rk::tools
