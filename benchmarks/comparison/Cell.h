#pragma once

#include <cstddef>
#include <string>

namespace rk::benchmarks {

enum class Pattern {
    RequestReply,
    PublishSubscribe
};
enum class Content {
    Raw,
    ProtoBuf
};

/// One field of the comparison: what is exchanged, and over what.
struct Cell {
    Pattern pattern = Pattern::RequestReply;
    std::string transport; ///< "inproc", "ipc" or "tcp"
    Content content = Content::Raw;
    std::size_t size = 0; ///< of a raw block, or of a message when it is serialised

    /// For instance "request-reply tcp raw 4096"; `parse` reads it back.
    std::string text() const;
    static Cell parse(const std::string& text);
};

} // namespace rk::benchmarks
