#pragma once

#include <google/protobuf/descriptor.h>

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace rk::tools {

/// What JSON cannot show of a block. The texts are for people.
struct Inspection {
    bool isWellFormed = true; ///< if not, the rest is incomplete

    /// The numbers of the fields that a type does not have, by the name of the type.
    std::map<std::string, std::set<int>> unknownFields;

    /// Fields whose value the type does not allow: "7 is no value of plant.Order.state: ...".
    std::set<std::string> mismatches;

    /// The names of the string fields that are not UTF-8.
    std::set<std::string> notUtf8;
};

/// Looks at the block without decoding it, which is many times faster.
Inspection inspect(std::string_view block, const google::protobuf::Descriptor& type);

} // namespace rk::tools
