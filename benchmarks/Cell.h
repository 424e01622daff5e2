#pragma once

#include <cstddef>
#include <messages.pb.h>
#include <string>

namespace rk::benchmarks {

/// One cell of the comparison: the pattern, the transport and the message.
struct Cell {
    std::string pattern;   ///< "request-reply" or "publish-subscribe"
    std::string transport; ///< "inproc", "ipc", "tcp" or "encrypted", which is TCP
    std::string content;   ///< "raw" or "protobuf"
    std::size_t size = 0;  ///< of a raw block, or of a serialised message

    bool requests() const { return pattern == "request-reply"; }
    bool encrypted() const { return transport == "encrypted"; }
    bool raw() const { return content == "raw"; }

    /// Returns a string such as "request-reply tcp raw 4096", which `parse` reads.
    std::string text() const;
    static Cell parse(const std::string& text);
};

/// The message of a cell, as a raw block and as a protobuf message.
struct Payload {
    std::string raw;
    Reading message;

    static Payload of(const Cell& cell);

    /// Returns a payload that no cell uses, for greetings and goodbyes.
    static Payload small();

    std::size_t sizeIn(const Cell& cell) const { return cell.raw() ? raw.size() : message.payload().size(); }
};

/// Returns a size that fits every payload and greeting.
std::size_t bufferSize(const Cell& cell);

} // namespace rk::benchmarks
