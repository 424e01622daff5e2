#include "messages/MessageCodec.h"

#include "messages/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <set>

namespace rk::tools {

namespace {

using SystemClock = std::chrono::system_clock;

/// "2026-01-31T12:00:00.123456Z".
std::string timestamp(std::chrono::steady_clock::time_point arrival) {
    using Microseconds = std::chrono::duration<long, std::micro>;
    const auto time = SystemClock::now() - (std::chrono::steady_clock::now() - arrival);
    const std::time_t seconds = SystemClock::to_time_t(time);
    const auto fraction = std::chrono::duration_cast<Microseconds>(time - SystemClock::from_time_t(seconds)).count();
    std::tm broken{};
    ::gmtime_r(&seconds, &broken);
    std::array<char, 40> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &broken);
    std::snprintf(&text[size], text.size() - size, ".%06ldZ", fraction);
    return text.data();
}

/// A string in JSON. `text` is UTF-8.
std::string inQuotes(std::string_view text) {
    std::string json = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            json += '\\';
            json += character;
        } else if (byte < 0x20 || byte == 0x7F) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned int>(byte));
            json += escape.data();
        } else {
            json += character;
        }
    }
    return json + "\"";
}

const std::set<std::string_view>& fieldNames() {
    static const std::set<std::string_view> names = {"time", "endpoint", "sequence", "size", "parts", "message", "hex"};
    return names;
}

std::vector<std::string> split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, start)) {
        parts.push_back(text.substr(start, end - start));
        start = end + separator.size();
    }
    parts.push_back(text.substr(start));
    return parts;
}

void escapeTabs(std::string& text, std::size_t start) {
    for (std::size_t tab = text.find('\t', start); tab != std::string::npos; tab = text.find('\t', tab)) {
        text.replace(tab, 1, "\\t");
    }
}

} // namespace

MessageCodec::MessageCodec(const CodecSettings& settings, const EnvelopeSettings& envelopeSettings,
                           const std::optional<std::string>& sent, const std::optional<std::string>& received,
                           const Complaints& complaints)
    : envelope(envelopeSettings),
      withSchema(settings.hasSchema()),
      endsLines(withSchema || settings.format != Format::Raw),
      isBare(!withSchema && !envelope.parts && !envelope.needsTime()),
      codec(withSchema ? makeProtobufCodec(settings, sent, received, complaints) : makeRawCodec(settings)),
      plain(makeRawCodec(settings)) {
    checkLayout();
}

void MessageCodec::checkLayout() const {
    const std::string layout = envelope.layout.value_or("");
    for (std::size_t start = layout.find('{'); start != std::string::npos; start = layout.find('{', start + 1)) {
        const std::size_t end = layout.find('}', start);
        const std::string name = layout.substr(start + 1, end == std::string::npos ? end : end - start - 1);
        if (end == std::string::npos || fieldNames().count(name) == 0) {
            throw std::runtime_error("--template: there is no {" + name +
                                     "}; there are {time} {endpoint} {sequence} {size} {parts} {message} {hex}");
        }
    }
}

std::size_t MessageCodec::chosen(std::size_t parts) const {
    return envelope.protoPart.value_or(parts) - 1;
}

void MessageCodec::checkChosen(std::size_t parts) const {
    if (withSchema && chosen(parts) >= parts) {
        throw CodecError("there is no part " + std::to_string(*envelope.protoPart) + ", but " + std::to_string(parts));
    }
}

Codec& MessageCodec::codecOf(std::size_t part, std::size_t parts) const {
    return !withSchema || part == chosen(parts) ? *codec : *plain;
}

std::vector<std::string> MessageCodec::encode(const std::string& text) {
    if (!envelope.separator) {
        return {codec->encode(text)};
    }
    std::vector<std::string> parts = split(text, *envelope.separator);
    checkChosen(parts.size());
    for (std::size_t place = 0; place < parts.size(); ++place) {
        parts[place] = codecOf(place, parts.size()).encode(parts[place]);
    }
    return parts;
}

std::string_view MessageCodec::chosenPart(const std::vector<std::string_view>& parts) const {
    checkChosen(parts.size());
    return withSchema ? parts[chosen(parts.size())] : parts.back();
}

std::string MessageCodec::forCommand(const std::vector<std::string_view>& parts) {
    const std::string_view part = chosenPart(parts);
    if (!withSchema) {
        return std::string(part);
    }
    std::string json;
    codec->decode(part, json);
    return json + "\n";
}

void MessageCodec::decode(const Received& message, std::string& text) {
    if (isBare) {
        appendLines(message.parts, text);
        return;
    }
    const std::size_t before = text.size();
    try {
        checkChosen(message.parts.size());
        if (envelope.timestamps) {
            text += timestamp(message.arrival) + " ";
        }
        if (envelope.json) {
            appendJson(message, text);
        } else if (envelope.layout) {
            appendLayout(message, text);
        } else if (envelope.parts) {
            appendJoined(message.parts, text);
        } else {
            appendLines(message.parts, text);
        }
    } catch (const CodecError&) {
        text.resize(before);
        throw;
    }
}

/// Each part in a line, or of a message with a schema the part that has it.
void MessageCodec::appendLines(const std::vector<std::string_view>& parts, std::string& text) {
    if (withSchema) {
        codec->decode(chosenPart(parts), text);
        text += '\n';
        return;
    }
    for (const std::string_view part : parts) {
        codec->decode(part, text);
        if (endsLines) {
            text += '\n';
        }
    }
}

void MessageCodec::appendJoined(const std::vector<std::string_view>& parts, std::string& text) {
    const std::string separator = envelope.separator.value_or(endsLines ? "\t" : "");
    for (std::size_t place = 0; place < parts.size(); ++place) {
        text += place == 0 ? "" : separator;
        const std::size_t start = text.size();
        codecOf(place, parts.size()).decode(parts[place], text);
        if (separator == "\t") {
            escapeTabs(text, start);
        }
    }
    text += endsLines ? "\n" : "";
}

void MessageCodec::appendJson(const Received& message, std::string& text) {
    text += R"({"time":")" + timestamp(message.arrival) + R"(","endpoint":)" + inQuotes(message.endpoint) +
            R"(,"sequence":)" + std::to_string(message.number) + R"(,"size":)" + std::to_string(message.size) +
            R"(,"parts":[)";
    for (std::size_t place = 0; place < message.parts.size(); ++place) {
        const std::string_view part = message.parts[place];
        text += place == 0 ? "" : ",";
        if (withSchema && place == chosen(message.parts.size())) {
            codec->decode(part, text);
        } else if (isUtf8(part)) {
            text += inQuotes(part);
        } else {
            text += R"({"hex":")" + toHex(part) + R"("})";
        }
    }
    text += "]}\n";
}

void MessageCodec::appendLayout(const Received& message, std::string& text) {
    const std::string& layout = *envelope.layout;
    std::size_t place = 0;
    while (place < layout.size()) {
        const std::size_t start = std::min(layout.find('{', place), layout.size());
        text += layout.substr(place, start - place);
        if (start == layout.size()) {
            break;
        }
        const std::size_t end = layout.find('}', start);
        appendField(std::string_view(layout).substr(start + 1, end - start - 1), message, text);
        place = end + 1;
    }
    text += "\n";
}

void MessageCodec::appendField(std::string_view name, const Received& message, std::string& text) {
    if (name == "time") {
        text += timestamp(message.arrival);
    } else if (name == "endpoint") {
        text += message.endpoint;
    } else if (name == "sequence") {
        text += std::to_string(message.number);
    } else if (name == "size") {
        text += std::to_string(message.size);
    } else if (name == "parts") {
        text += std::to_string(message.parts.size());
    } else if (name == "hex") {
        for (std::size_t place = 0; place < message.parts.size(); ++place) {
            text += (place == 0 ? "" : " ") + toHex(message.parts[place]);
        }
    } else {
        appendJoined(message.parts, text);
        text.resize(text.size() - (endsLines ? 1 : 0));
    }
}

} // namespace rk::tools
