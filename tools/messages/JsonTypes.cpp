#include "messages/JsonTypes.h"

#include "messages/Protobuf.h"
#include "messages/Text.h"
#include "messages/WireFormat.h"

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/type.pb.h>
#include <google/protobuf/util/type_resolver_util.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace rk::tools {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;
using google::protobuf::util::TypeResolver;
using Status = decltype(std::declval<TypeResolver>().ResolveMessageType("", nullptr));

std::vector<const FieldDescriptor*> extensionsOf(const Descriptor& type) {
    std::vector<const FieldDescriptor*> extensions;
    type.file()->pool()->FindAllExtensions(&type, &extensions);
    return extensions;
}

class JsonTypeResolver : public TypeResolver {
public:
    JsonTypeResolver(std::string prefix, const DescriptorPool& descriptors)
        : urlPrefix(std::move(prefix) + "/"),
          pool(descriptors),
          plain(google::protobuf::util::NewTypeResolverForDescriptorPool(urlPrefix.substr(0, urlPrefix.size() - 1),
                                                                         &descriptors)) {}

    Status ResolveMessageType(const std::string& url, google::protobuf::Type* type) override {
        const auto known = types.find(url);
        if (known != types.end()) {
            *type = known->second;
            return Status();
        }
        const Status status = plain->ResolveMessageType(url, type);
        if (status.ok()) {
            present(*type, *pool.FindMessageTypeByName(url.substr(url.rfind('/') + 1)));
            types[url] = *type;
        }
        return status;
    }

    Status ResolveEnumType(const std::string& url, google::protobuf::Enum* type) override {
        return plain->ResolveEnumType(url, type);
    }

private:
    void present(google::protobuf::Type& type, const Descriptor& descriptor) const {
        for (auto& field : *type.mutable_fields()) {
            presentGroup(field, descriptor.FindFieldByNumber(field.number()));
        }
        for (const FieldDescriptor* extension : extensionsOf(descriptor)) {
            addExtension(*type.add_fields(), *extension);
        }
    }

    void presentGroup(google::protobuf::Field& field, const FieldDescriptor* descriptor) const {
        if (descriptor->type() == FieldDescriptor::TYPE_GROUP) {
            field.set_kind(google::protobuf::Field::TYPE_MESSAGE);
            field.set_type_url(urlPrefix + fullNameOf(descriptor->message_type()));
        }
    }

    void addExtension(google::protobuf::Field& field, const FieldDescriptor& extension) const {
        const std::string name = "[" + fullNameOf(&extension) + "]";
        field.set_name(name);
        field.set_json_name(name);
        field.set_number(extension.number());
        field.set_kind(static_cast<google::protobuf::Field::Kind>(extension.type()));
        field.set_cardinality(extension.is_repeated() ? google::protobuf::Field::CARDINALITY_REPEATED
                                                      : google::protobuf::Field::CARDINALITY_OPTIONAL);
        field.set_packed(extension.is_packed());
        if (extension.message_type() != nullptr) {
            field.set_type_url(urlPrefix + fullNameOf(extension.message_type()));
        } else if (extension.enum_type() != nullptr) {
            field.set_type_url(urlPrefix + fullNameOf(extension.enum_type()));
        }
        presentGroup(field, &extension);
    }

    std::string urlPrefix;
    const DescriptorPool& pool;
    std::unique_ptr<TypeResolver> plain;
    std::map<std::string, google::protobuf::Type> types; ///< by URL, because protobuf resolves them for each conversion
};

enum class Wanted {
    Groups,
    Messages
};

std::string converted(CodedInputStream& stream, const Descriptor* type, Wanted wanted);

// These cannot fail, because the block is well-formed.

std::uint64_t varintFrom(CodedInputStream& stream) {
    std::uint64_t number = 0;
    static_cast<void>(stream.ReadVarint64(&number));
    return number;
}

std::string bytesFrom(CodedInputStream& stream, int size) {
    std::string bytes;
    static_cast<void>(stream.ReadString(&bytes, size));
    return bytes;
}

/// Writes the contents of a message or group, with its framing.
void append(CodedOutputStream& output, std::uint32_t tag, const std::string& contents, bool asGroup) {
    output.WriteTag(withWireType(tag, asGroup ? StartGroup : LengthDelimited));
    if (!asGroup) {
        output.WriteVarint32(static_cast<std::uint32_t>(contents.size()));
    }
    output.WriteString(contents);
    if (asGroup) {
        output.WriteTag(withWireType(tag, EndGroup));
    }
}

/// Converts a field that is a message or a group, and copies any other.
void convertField(CodedInputStream& stream, CodedOutputStream& output, std::uint32_t tag, const FieldDescriptor* field,
                  Wanted wanted) {
    const Descriptor* const inner = field != nullptr ? field->message_type() : nullptr;
    const bool isGroup = wireTypeOf(tag) == StartGroup;
    if (isGroup) {
        append(output, tag, converted(stream, inner, wanted), wanted == Wanted::Groups || inner == nullptr);
    } else if (wireTypeOf(tag) == LengthDelimited) {
        std::string contents = bytesFrom(stream, static_cast<int>(varintFrom(stream)));
        if (inner != nullptr) {
            CodedInputStream part = streamOf(contents);
            contents = converted(part, inner, wanted);
        } else if (wanted == Wanted::Messages && field != nullptr && field->type() == FieldDescriptor::TYPE_STRING &&
                   !isUtf8(contents)) {
            contents = printable(contents);
        }
        append(output, tag, contents,
               wanted == Wanted::Groups && inner != nullptr && field->type() == FieldDescriptor::TYPE_GROUP);
    } else if (wireTypeOf(tag) == Varint) {
        output.WriteTag(tag);
        output.WriteVarint64(varintFrom(stream));
    } else {
        output.WriteTag(tag);
        output.WriteString(bytesFrom(stream, wireTypeOf(tag) == Fixed64 ? 8 : 4));
    }
}

void skip(CodedInputStream& stream, std::uint32_t tag) {
    if (wireTypeOf(tag) == StartGroup) {
        converted(stream, nullptr, Wanted::Groups);
    } else {
        static_cast<void>(skipValue(stream, wireTypeOf(tag)));
    }
}

/// Converts the fields up to the end of the stream or of its group. `type` is null for an unknown group.
std::string converted(CodedInputStream& stream, const Descriptor* type, Wanted wanted) {
    std::string bytes;
    google::protobuf::io::StringOutputStream target(&bytes);
    {
        CodedOutputStream output(&target);
        for (auto tag = stream.ReadTag(); tag != 0 && wireTypeOf(tag) != EndGroup; tag = stream.ReadTag()) {
            const FieldDescriptor* const field = fieldOf(type, fieldNumberOf(tag));
            if (wanted == Wanted::Messages && field != nullptr && isMisencoded(*field, tag)) {
                skip(stream, tag);
            } else {
                convertField(stream, output, tag, field, wanted);
            }
        }
    }
    return bytes;
}

bool find(const Descriptor& type, bool (*isWanted)(const FieldDescriptor&), std::set<const Descriptor*>& seen) {
    if (!seen.insert(&type).second) {
        return false;
    }
    std::vector<const FieldDescriptor*> fields = extensionsOf(type);
    for (int index = 0; index < type.field_count(); ++index) {
        fields.push_back(type.field(index));
    }
    return std::any_of(fields.begin(), fields.end(), [&](const FieldDescriptor* field) {
        return isWanted(*field) || (field->message_type() != nullptr && find(*field->message_type(), isWanted, seen));
    });
}

} // namespace

std::unique_ptr<TypeResolver> newJsonTypeResolver(const std::string& urlPrefix, const DescriptorPool& pool) {
    return std::make_unique<JsonTypeResolver>(urlPrefix, pool);
}

bool mayContainGroups(const Descriptor& type) {
    std::set<const Descriptor*> seen;
    return find(type, [](const FieldDescriptor& field) { return field.type() == FieldDescriptor::TYPE_GROUP; }, seen);
}

bool mayNeedFields(const Descriptor& type) {
    std::set<const Descriptor*> seen;
    return find(type, [](const FieldDescriptor& field) { return field.is_required(); }, seen);
}

std::string presentable(std::string_view block, const Descriptor& type) {
    CodedInputStream stream = streamOf(block);
    return converted(stream, &type, Wanted::Messages);
}

std::string messagesToGroups(std::string_view block, const Descriptor& type) {
    CodedInputStream stream = streamOf(block);
    return converted(stream, &type, Wanted::Groups);
}

} // namespace rk::tools
