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

/// How the parts of a message are joined and split, and what is printed with them.
struct EnvelopeSettings {
    std::optional<std::string> separator; ///< between the parts of a message.
    bool parts = false;                   ///< print all parts in one line.
    std::optional<std::size_t> protoPart; ///< the part that has the schema, from 1, by default the last
    bool json = false;
    bool timestamps = false;
    std::optional<std::string> layout; ///< with {placeholders}.

    bool needsTime() const { return timestamps || json || layout; }
};

/// A received message, valid until the next one is received.
struct Received {
    std::uint64_t number = 0; ///< from 1
    const std::vector<std::string_view>& parts;
    std::size_t size = 0; ///< of all parts
    const std::string& endpoint;
    std::chrono::steady_clock::time_point arrival; ///< if the sinks need it
};

/// Converts between messages and their printed form.
class MessageCodec {
public:
    /// `sent` and `received` are the types of encoded and decoded messages, if there is a schema. Throws
    /// std::runtime_error if the schema or the layout cannot be used.
    MessageCodec(const CodecSettings& codec, const EnvelopeSettings& envelope, const std::optional<std::string>& sent,
                 const std::optional<std::string>& received, const Complaints& complaints);

    /// Returns the parts of a message. Throws CodecError.
    std::vector<std::string> encode(const std::string& text);

    /// Appends a message and the end of its line. Throws CodecError, and appends nothing then.
    void decode(const Received& message, std::string& text);

    bool hasSchema() const { return withSchema; }
    bool keepsParts() const { return envelope.parts || envelope.separator; }

    /// Returns the part of a message that has the schema. Throws CodecError.
    std::string_view chosenPart(const std::vector<std::string_view>& parts) const;

    /// Returns the input of a command: JSON if there is a schema, else the last part. Throws CodecError.
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
    bool isBare;                  ///< only the parts are printed, and they are always valid
    std::unique_ptr<Codec> codec; ///< of the chosen part
    std::unique_ptr<Codec> plain; ///< of the other parts, if there is a schema
};

} // namespace rk::tools
