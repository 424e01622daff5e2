#include "messages/Codec.h"

namespace rk::tools {

std::unique_ptr<Codec> makeCodec(const CodecSettings& settings, const std::optional<std::string>& sent,
                                 const std::optional<std::string>& received, const Complaints& complaints) {
    return settings.hasSchema() ? makeProtobufCodec(settings, sent, received, complaints) : makeRawCodec(settings);
}

} // namespace rk::tools
