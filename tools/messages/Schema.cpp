#include "messages/Schema.h"

#include "messages/Protobuf.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace rk::tools {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FileDescriptor;

std::string folderOf(const std::string& path) {
    return std::filesystem::path(path).parent_path();
}

std::ifstream opened(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    file.peek(); // a folder can be opened
    if (!file.is_open() || file.bad()) {
        throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
    }
    return file;
}

void collect(const Descriptor* type, std::vector<const Descriptor*>& types) {
    if (type->options().map_entry()) {
        return;
    }
    types.push_back(type);
    for (int index = 0; index < type->nested_type_count(); ++index) {
        collect(type->nested_type(index), types);
    }
}

std::vector<const Descriptor*> typesOf(const std::vector<const FileDescriptor*>& files) {
    std::vector<const Descriptor*> types;
    for (const FileDescriptor* file : files) {
        for (int index = 0; index < file->message_type_count(); ++index) {
            collect(file->message_type(index), types);
        }
    }
    return types;
}

std::string withoutPackage(const Descriptor* type) {
    const std::size_t packageSize = type->file()->package().size();
    return fullNameOf(type).substr(packageSize == 0 ? 0 : packageSize + 1);
}

} // namespace

/// Keeps the first error of the protobuf compiler that has a line. The others mostly follow from it.
class Schema::FirstError : public SchemaErrors {
public:
    explicit FirstError(Schema& schemaToRead) : schema(schemaToRead) {}

    void add(const std::string& file, int line, int column, const std::string& message) override {
        if (!withLine && (text.empty() || line >= 0)) {
            withLine = line >= 0;
            const std::string place = ":" + std::to_string(line + 1) + ":" + std::to_string(column + 1);
            text = schema.pathOf(file) + (withLine ? place : "") + ": " + message;
        }
    }

    std::string text;

private:
    Schema& schema;
    bool withLine = false;
};

Schema::Schema(const CodecSettings& settings)
    : builtIn(*google::protobuf::DescriptorPool::generated_pool()),
      fromSources(&sources, &builtIn),
      database(&fromSets, &fromSources),
      firstError(std::make_unique<FirstError>(*this)),
      importedPool(&database, fromSources.GetValidationErrorCollector()),
      factory(&importedPool) {
    silenceProtobuf(); // it repeats its errors on standard error
    fromSources.RecordErrorsTo(firstError.get());
    importedPool.EnforceWeakDependencies(true);
    for (const std::string& path : settings.protoPaths) {
        sources.MapPath("", path);
    }
    for (const std::string& set : settings.descriptorSets) {
        addDescriptorSet(set);
    }
    for (const std::string& file : settings.protoFiles) {
        import(nameOf(file), file);
    }
}

void Schema::import(const std::string& name, const std::string& path) {
    const FileDescriptor* const descriptor = importedPool.FindFileByName(name);
    if (descriptor == nullptr) {
        throw std::runtime_error(firstError->text.empty() ? path + ": not a schema" : firstError->text);
    }
    imported.push_back(descriptor);
}

void Schema::addDescriptorSet(const std::string& path) {
    std::ifstream file = opened(path);
    google::protobuf::FileDescriptorSet set;
    if (!set.ParseFromIstream(&file) || set.file_size() == 0) {
        throw std::runtime_error(path + ": not a descriptor set, as protoc --descriptor_set_out writes it");
    }
    for (const auto& part : set.file()) {
        fromSets.Add(part);
    }
    for (const auto& part : set.file()) {
        import(part.name(), path + ": " + part.name());
    }
}

Schema::~Schema() = default;

std::string Schema::nameOf(const std::string& path) {
    using google::protobuf::compiler::DiskSourceTree;
    opened(path);
    std::string name;
    std::string shadowing;
    auto result = sources.DiskFileToVirtualFile(path, &name, &shadowing);
    if (result == DiskSourceTree::NO_MAPPING) {
        sources.MapPath("", folderOf(path));
        result = sources.DiskFileToVirtualFile(path, &name, &shadowing);
    }
    if (result == DiskSourceTree::SHADOWED) {
        throw std::runtime_error(path + ": hidden by " + shadowing + ", which comes first");
    }
    return result == DiskSourceTree::SUCCESS ? name : path;
}

std::string Schema::pathOf(const std::string& name) {
    std::string path;
    return sources.VirtualFileToDiskFile(name, &path) ? path : name;
}

const Descriptor* Schema::type(const std::string& name) {
    const Descriptor* found = importedPool.FindMessageTypeByName(name.substr(name.rfind('.', 0) == 0 ? 1 : 0));
    if (found != nullptr) {
        return found;
    }
    int matches = 0;
    std::string known;
    for (const Descriptor* candidate : typesOf(imported)) {
        known += (known.empty() ? "" : ", ") + fullNameOf(candidate);
        if (withoutPackage(candidate) == name) {
            found = candidate;
            ++matches;
        }
    }
    if (matches == 1) {
        return found;
    }
    std::string files;
    for (const FileDescriptor* file : imported) {
        files += (files.empty() ? "" : ", ") + pathOf(std::string(file->name()));
    }
    throw std::runtime_error(files + ": no message type '" + name + "'; there " +
                             (known.empty() ? "is none" : "are: " + known));
}

std::vector<std::string> Schema::typeNames() const {
    std::vector<std::string> names;
    for (const Descriptor* type : typesOf(imported)) {
        names.push_back(fullNameOf(type));
    }
    return names;
}

const google::protobuf::DescriptorPool* Schema::pool() const {
    return &importedPool;
}

std::unique_ptr<google::protobuf::Message> Schema::newMessage(const Descriptor* type) {
    return std::unique_ptr<google::protobuf::Message>(factory.GetPrototype(type)->New());
}

} // namespace rk::tools
