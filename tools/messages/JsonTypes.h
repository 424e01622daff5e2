#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/util/type_resolver.h>

#include <memory>
#include <string>
#include <string_view>

/// \file
/// Protobuf's conversion to JSON supports neither groups nor extensions. These functions present groups to it as
/// messages, and extensions as fields named "[package.extension]".

namespace rk::tools {

/// Resolves the types of `pool`, which must outlive the resolver.
std::unique_ptr<google::protobuf::util::TypeResolver> newJsonTypeResolver(const std::string& urlPrefix,
                                                                          const google::protobuf::DescriptorPool& pool);

/// Returns whether messages of this type can contain groups, at any depth.
bool mayContainGroups(const google::protobuf::Descriptor& type);

/// Returns whether messages of this type can have required fields, at any depth.
bool mayNeedFields(const google::protobuf::Descriptor& type);

/// Turns the groups in a well-formed `block` into messages, escapes the strings that are not UTF-8, and drops the fields
/// that are encoded in another way than their types require.
std::string presentable(std::string_view block, const google::protobuf::Descriptor& type);

/// Turns messages in a well-formed `block` into groups, where the type has groups.
std::string messagesToGroups(std::string_view block, const google::protobuf::Descriptor& type);

} // namespace rk::tools
