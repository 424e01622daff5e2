#pragma once

#include "Settings.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace rk::tools {

class Complaints;

/// A text or block that the codec cannot turn into the other. The text says why, and what could be read of it.
class CodecError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Turns what the user writes into blocks for the socket, and blocks into what the user reads.
class Codec {
public:
    virtual ~Codec() = default;

    /// The block for `text`. Throws CodecError.
    virtual std::string encode(const std::string& text) = 0;

    /// What is printed for `block`. Throws CodecError.
    virtual std::string decode(std::string_view block) = 0;
};

/// The codec that the settings ask for. `sent` and `received` are protobuf types, used if there is a schema. Throws
/// std::runtime_error when the schema is no good.
std::unique_ptr<Codec> makeCodec(const Settings& settings, const std::string& sent, const std::string& received,
                                 const Complaints& complaints);

} // namespace rk::tools
