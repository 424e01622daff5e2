#pragma once

#include "messages/Codec.h"

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor_database.h>
#include <google/protobuf/dynamic_message.h>

#include <memory>
#include <string>
#include <vector>

namespace rk::tools {

/// The message types of .proto files and descriptor sets.
class Schema {
public:
    /// Finds imports in the given paths, or else in the folders of the files, and those of protobuf itself. Throws
    /// std::runtime_error, "FILE:LINE:COLUMN: reason", for the first error in a file.
    explicit Schema(const CodecSettings& settings);
    ~Schema();
    Schema(const Schema&) = delete;
    Schema& operator=(const Schema&) = delete;

    /// Returns the type with that full name, or the only one with that name without its package. Throws
    /// std::runtime_error, which lists all types.
    const google::protobuf::Descriptor* type(const std::string& name);

    /// Returns the full names of all types in the files, without their imports.
    std::vector<std::string> typeNames() const;

    const google::protobuf::DescriptorPool* pool() const;

    /// Returns an empty message of a type of this schema, which must outlive it.
    std::unique_ptr<google::protobuf::Message> newMessage(const google::protobuf::Descriptor* type);

private:
    class FirstError;

    void import(const std::string& name, const std::string& path);
    void addDescriptorSet(const std::string& path);

    /// Returns the compiler's name of the file at `path`.
    std::string nameOf(const std::string& path);

    /// Returns the path of the file with that name.
    std::string pathOf(const std::string& name);

    google::protobuf::compiler::DiskSourceTree sources;
    google::protobuf::DescriptorPoolDatabase builtIn;
    google::protobuf::compiler::SourceTreeDescriptorDatabase fromSources;
    google::protobuf::SimpleDescriptorDatabase fromSets;
    google::protobuf::MergedDescriptorDatabase database;
    std::unique_ptr<FirstError> firstError;
    google::protobuf::DescriptorPool importedPool;
    std::vector<const google::protobuf::FileDescriptor*> imported;
    google::protobuf::DynamicMessageFactory factory;
};

} // namespace rk::tools
