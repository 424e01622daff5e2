#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace rk::tools {

class Complaints;

/// How received messages are printed.
enum class Format {
    Text,
    Hex,
    Hexdump,
    Raw
};

/// How messages are read and printed: as JSON with a schema, else as bytes.
struct CodecSettings {
    Format format = Format::Text;
    bool hex = false; ///< texts to send are hexadecimal digits
    std::vector<std::string> protoFiles;
    std::vector<std::string> protoPaths;
    std::vector<std::string> descriptorSets;
    std::optional<std::string> type;
    std::optional<std::string> replyType; ///< of replies, if it differs
    bool allFields = false;

    bool hasSchema() const { return !protoFiles.empty() || !descriptorSets.empty(); }
    std::optional<std::string> typeOfReplies() const { return replyType ? replyType : type; }
};

/// A text or block that the codec cannot convert. The message says why, and contains the decoded part.
class CodecError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Converts between a block, which is a message or a part of one, and its printed form.
class Codec {
public:
    virtual ~Codec() = default;

    /// Returns the block for `text`. Throws CodecError.
    virtual std::string encode(const std::string& text) = 0;

    /// Appends the printed form of `block`, without the end of its line. Throws CodecError, and appends nothing then.
    virtual void decode(std::string_view block, std::string& text) = 0;
};

/// Makes a codec for bytes without a schema.
std::unique_ptr<Codec> makeRawCodec(const CodecSettings& settings);

/// Makes a codec for protobuf messages, which are JSON objects when printed. `sent` and `received` are the types of
/// encoded and decoded blocks. Throws std::runtime_error if the schema cannot be used.
std::unique_ptr<Codec> makeProtobufCodec(const CodecSettings& settings, const std::optional<std::string>& sent,
                                         const std::optional<std::string>& received, const Complaints& complaints);

} // namespace rk::tools
