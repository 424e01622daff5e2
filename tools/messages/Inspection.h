#pragma once

#include <google/protobuf/message.h>

#include <map>
#include <set>
#include <string>

namespace rk::tools {

/// What JSON cannot show of a parsed message. The texts are for people.
struct Inspection {
    /// The numbers of the fields that a type does not have, by the name of the type.
    std::map<std::string, std::set<int>> unknownFields;

    /// Fields whose value the type does not allow, for people: "7 is no value of plant.Order.state: ...".
    std::set<std::string> mismatches;

    /// The names of the string fields that are not UTF-8.
    std::set<std::string> notUtf8;
};

/// Looks at all of `message`. Replaces the strings that are not UTF-8 by strings in which the wrong bytes are escaped.
Inspection inspect(google::protobuf::Message& message);

} // namespace rk::tools
