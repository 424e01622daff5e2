#include "messages/Codec.h"
#include "messages/Text.h"

namespace rk::tools {

namespace {

class RawCodec : public Codec {
public:
    RawCodec(Format outputFormat, bool textIsHex) : output(outputFormat), hexInput(textIsHex) {}

    std::string encode(const std::string& text) override {
        if (!hexInput) {
            return text;
        }
        if (const auto bytes = fromHex(text)) {
            return *bytes;
        }
        throw CodecError("not pairs of hexadecimal digits");
    }

    void decode(std::string_view block, std::string& text) override {
        switch (output) {
        case Format::Text:
            appendPrintable(text, block);
            break;
        case Format::Hex:
            text += toHex(block);
            break;
        case Format::Hexdump:
            text += hexdump(block);
            break;
        case Format::Raw:
            text += block;
            break;
        }
    }

private:
    Format output;
    bool hexInput;
};

} // namespace

std::unique_ptr<Codec> makeRawCodec(const CodecSettings& settings) {
    return std::make_unique<RawCodec>(settings.format, settings.hex);
}

} // namespace rk::tools
