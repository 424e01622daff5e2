#include "Codec.h"

#include "ProtobufCodec.h"
#include "RawCodec.h"
#include "Schema.h"

namespace rk::tools {

std::unique_ptr<Codec> makeCodec(const Settings& settings, const std::string& sent, const std::string& received,
                                 const Complaints& complaints) {
    if (settings.protoFiles.empty()) {
        return std::make_unique<RawCodec>(settings.format, settings.hex);
    }
    auto schema = std::make_unique<Schema>(settings.protoFiles, settings.protoPaths);
    return std::make_unique<ProtobufCodec>(std::move(schema), sent, received, settings.allFields, complaints);
}

} // namespace rk::tools
