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

/// The message types of .proto files and descriptor sets, read when the program runs.
class Schema {
public:
    /// Imports are looked for in the given paths and in the folders of the files; protobuf's own are always there.
    /// Throws std::runtime_error, "FILE:LINE:COLUMN: reason", for the first thing wrong with a file.
    explicit Schema(const CodecSettings& settings);
    ~Schema();
    Schema(const Schema&) = delete;
    Schema& operator=(const Schema&) = delete;

    /// The type of that full name, or of that name without its package if only one has it.
    /// Throws std::runtime_error, which lists the types that there are.
    const google::protobuf::Descriptor* type(const std::string& name);

    /// The full names of all types in the files, without those of their imports.
    std::vector<std::string> typeNames() const;

    const google::protobuf::DescriptorPool* pool() const;

    /// An empty message of a type of this schema, which has to outlive it.
    std::unique_ptr<google::protobuf::Message> newMessage(const google::protobuf::Descriptor* type);

private:
    class FirstError;

    void import(const std::string& name, const std::string& path);
    void addDescriptorSet(const std::string& path);

    /// The name under which the compiler knows the file at `path`.
    std::string nameOf(const std::string& path);

    /// The path of the file that the compiler knows under that name.
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
