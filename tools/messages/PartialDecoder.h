#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <string_view>

namespace rk::tools {

/// Decodes into the empty `message` what stands before the first thing in `block` that is no protobuf message of its
/// type. Returns where that is, in bytes.
std::size_t decodePart(std::string_view block, google::protobuf::Message& message);

} // namespace rk::tools
