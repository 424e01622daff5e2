#include "RawCodec.h"

#include "Text.h"

namespace rk::tools {

RawCodec::RawCodec(Format outputFormat, bool textIsHex) : output(outputFormat), hexInput(textIsHex) {}

std::string RawCodec::encode(const std::string& text) {
    if (!hexInput) {
        return text;
    }
    if (const auto bytes = fromHex(text)) {
        return *bytes;
    }
    throw CodecError("not pairs of hexadecimal digits");
}

std::string RawCodec::decode(std::string_view block) {
    switch (output) {
    case Format::Text:
        return printable(block) + "\n";
    case Format::Hex:
        return toHex(block) + "\n";
    case Format::Raw:
        break;
    }
    return std::string(block);
}

} // namespace rk::tools
