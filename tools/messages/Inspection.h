#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace rk::tools {

/// What JSON cannot show of a block.
struct Inspection {
    /// The place of the first field that is not well-formed. If there is one, the rest is incomplete.
    std::optional<std::size_t> firstWrong;

    /// Whether fields are not in ascending order, or a field that cannot be repeated is. Protobuf's conversion to JSON prints
    /// such a field several times.
    bool isScattered = false;

    /// Whether a field is encoded in another way than its type requires. Protobuf 22 and later refuse to print it.
    bool isMisencoded = false;

    /// The numbers of the fields that a type does not have, by the name of the type.
    std::map<std::string, std::set<int>> unknownFields;

    /// A line for each field whose value the type does not allow: "7 is no value of plant.Order.state: ...".
    std::set<std::string> mismatches;

    /// The names of the string fields that are not UTF-8.
    std::set<std::string> notUtf8;
};

/// Inspects the block without decoding it, which is many times faster.
Inspection inspect(std::string_view block, const google::protobuf::Descriptor& type);

} // namespace rk::tools
