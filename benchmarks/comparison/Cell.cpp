#include "Cell.h"

#include <sstream>
#include <stdexcept>

namespace rk::benchmarks {

std::string Cell::text() const {
    return std::string(pattern == Pattern::RequestReply ? "request-reply " : "publish-subscribe ") + transport +
           (content == Content::Raw ? " raw " : " protobuf ") + std::to_string(size);
}

Cell Cell::parse(const std::string& text) {
    Cell cell;
    std::string pattern;
    std::string content;
    std::istringstream words(text);
    if (!(words >> pattern >> cell.transport >> content >> cell.size)) {
        throw std::runtime_error("no cell: " + text);
    }
    cell.pattern = pattern == "request-reply" ? Pattern::RequestReply : Pattern::PublishSubscribe;
    cell.content = content == "raw" ? Content::Raw : Content::ProtoBuf;
    return cell;
}

} // namespace rk::benchmarks
