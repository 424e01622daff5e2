#pragma once

#include "Codec.h"

namespace rk::tools {

/// Blocks of bytes without a schema.
///
/// As text, a block is one line: control characters and bytes that are not UTF-8 are written "\n" or "\x1B". As hex, it
/// is one line of digits. Raw, it is its bytes and nothing else.
class RawCodec : public Codec {
public:
    /// `hexInput`: texts to encode are hexadecimal digits.
    RawCodec(Format output, bool hexInput);

    std::string encode(const std::string& text) override;
    std::string decode(std::string_view block) override;

private:
    Format output;
    bool hexInput;
};

} // namespace rk::tools
