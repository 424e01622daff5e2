#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace rk::tools {

/// Returns a JSON object in one line with every field of `type`, to fill in: empty strings, zeros, the first value of each
/// enumeration, one element in each list. A message within itself is an empty object.
std::string skeletonOf(const google::protobuf::Descriptor& type);

} // namespace rk::tools
