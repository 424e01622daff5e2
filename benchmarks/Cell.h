#pragma once

#include <cstddef>
#include <messages.pb.h>
#include <string>

namespace rk::benchmarks {

/// One field of the comparison: what is exchanged, and over what.
struct Cell {
    std::string pattern;   ///< "request-reply" or "publish-subscribe"
    std::string transport; ///< "inproc", "ipc", "tcp" or "encrypted", which is TCP
    std::string content;   ///< "raw" or "protobuf"
    std::size_t size = 0;  ///< of a raw block, or of a message when it is serialised

    bool requests() const { return pattern == "request-reply"; }
    bool encrypted() const { return transport == "encrypted"; }
    bool raw() const { return content == "raw"; }

    /// For instance "request-reply tcp raw 4096". `parse` reads it back.
    std::string text() const;
    static Cell parse(const std::string& text);
};

/// What is sent in a cell, in both forms.
struct Payload {
    std::string raw;
    Reading message;

    static Payload of(const Cell& cell);

    /// A payload that no cell measures: it greets and says goodbye.
    static Payload small();

    std::size_t sizeIn(const Cell& cell) const { return cell.raw() ? raw.size() : message.payload().size(); }
};

/// Room for every payload, and for a greeting.
std::size_t bufferSize(const Cell& cell);

} // namespace rk::benchmarks
