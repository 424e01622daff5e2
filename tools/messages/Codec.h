#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace rk::tools {

class Complaints;

/// How received blocks are written.
enum class Format {
    Text,
    Hex,
    Hexdump,
    Raw
};

/// How messages are read and written: as they are, or as JSON if there is a schema.
struct CodecSettings {
    Format format = Format::Text;
    bool hex = false; ///< messages to send are given in hexadecimal digits
    std::vector<std::string> protoFiles;
    std::vector<std::string> protoPaths;
    std::vector<std::string> descriptorSets;
    std::optional<std::string> type;
    std::optional<std::string> replyType; ///< of replies, where it is not `type`
    bool allFields = false;

    bool hasSchema() const { return !protoFiles.empty() || !descriptorSets.empty(); }
    std::optional<std::string> typeOfReplies() const { return replyType ? replyType : type; }
};

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

    /// Appends what is printed for `block`, without the end of its line. Throws CodecError, and appends nothing then.
    virtual void decode(std::string_view block, std::string& text) = 0;
};

/// Blocks of bytes without a schema.
///
/// As text, a block is one line: control characters and bytes that are not UTF-8 are written "\n" or "\x1B". As hex, it
/// is one line of digits, and as a hexdump lines of 16 bytes. Raw, it is its bytes and nothing else.
std::unique_ptr<Codec> makeRawCodec(const CodecSettings& settings);

/// Protobuf messages of a schema, as JSON: one object in one line. Fields are named as in the schema. Texts to encode
/// may also use JSON's own names.
///
/// A block that is not a whole message of its type makes a CodecError that tells what could be decoded. Fields that the
/// schema lacks are remarked upon once, since the block may be of another type. The parameters are those of makeCodec.
std::unique_ptr<Codec> makeProtobufCodec(const CodecSettings& settings, const std::optional<std::string>& sent,
                                         const std::optional<std::string>& received, const Complaints& complaints);

/// Makes the codec that the settings ask for. `sent` and `received` are protobuf types, needed for what is encoded and
/// decoded if there is a schema. Throws std::runtime_error when the schema is no good.
std::unique_ptr<Codec> makeCodec(const CodecSettings& settings, const std::optional<std::string>& sent,
                                 const std::optional<std::string>& received, const Complaints& complaints);

} // namespace rk::tools
