#pragma once

#include "messages/Codec.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rk::tools {

/// How a message is put together from its parts, and what is written beside them.
struct EnvelopeSettings {
    std::optional<std::string> separator; ///< splits what is sent into parts
    bool parts = false;                   ///< all parts of a received message in one line
    std::optional<std::size_t> protoPart; ///< the part that has the schema, beginning at 1; without it the last
    bool json = false;
    bool timestamps = false;
    std::optional<std::string> layout; ///< with {placeholders}

    bool needsTime() const { return timestamps || json || layout; }
};

/// A received message. It is there until the next one is received.
struct Received {
    std::uint64_t number = 0; ///< beginning at 1
    const std::vector<std::string_view>& parts;
    std::size_t size = 0; ///< of all parts
    const std::string& endpoint;
    std::chrono::steady_clock::time_point arrival; ///< where it is needed
};

/// Turns texts into messages, and messages into texts.
class MessageCodec {
public:
    /// `sent` and `received` are the protobuf types, needed for what is encoded and decoded if there is a schema. Throws
    /// std::runtime_error when the schema or the layout is no good.
    MessageCodec(const CodecSettings& codec, const EnvelopeSettings& envelope, const std::optional<std::string>& sent,
                 const std::optional<std::string>& received, const Complaints& complaints);

    /// The parts of a message. Throws CodecError.
    std::vector<std::string> encode(const std::string& text);

    /// Appends a message, with the end of its line. Throws CodecError, and appends nothing then.
    void decode(const Received& message, std::string& text);

    bool hasSchema() const { return withSchema; }
    bool keepsParts() const { return envelope.parts || envelope.separator; }

    /// The part of a message that has the schema.
    std::string_view chosenPart(const std::vector<std::string_view>& parts) const;

    /// What a command is given of a request: JSON if there is a schema, else the bytes of the last part.
    std::string forCommand(const std::vector<std::string_view>& parts);

private:
    std::size_t chosen(std::size_t parts) const;
    void checkChosen(std::size_t parts) const;
    Codec& codecOf(std::size_t part, std::size_t parts) const;
    void appendLines(const std::vector<std::string_view>& parts, std::string& text);
    void appendJoined(const std::vector<std::string_view>& parts, std::string& text);
    void appendJson(const Received& message, std::string& text);
    void appendLayout(const Received& message, std::string& text);
    void appendField(std::string_view name, const Received& message, std::string& text);
    void checkLayout() const;

    EnvelopeSettings envelope;
    bool withSchema;
    bool endsLines;
    bool isBare;                  ///< nothing but the parts is written, and nothing can be wrong with them
    std::unique_ptr<Codec> codec; ///< of the chosen part
    std::unique_ptr<Codec> plain; ///< of the others, if there is a schema
};

} // namespace rk::tools
