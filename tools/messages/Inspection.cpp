#include "messages/Inspection.h"

#include "messages/Protobuf.h"
#include "messages/Text.h"
#include "messages/WireFormat.h"

#include <optional>
#include <utility>

namespace rk::tools {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::io::CodedInputStream;

WireType encodingOf(const FieldDescriptor& field) {
    switch (field.type()) {
    case FieldDescriptor::TYPE_DOUBLE:
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
        return Fixed64;
    case FieldDescriptor::TYPE_FLOAT:
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32:
        return Fixed32;
    case FieldDescriptor::TYPE_STRING:
    case FieldDescriptor::TYPE_BYTES:
    case FieldDescriptor::TYPE_MESSAGE:
        return LengthDelimited;
    case FieldDescriptor::TYPE_GROUP:
        return StartGroup;
    default:
        return Varint;
    }
}

class Inspector {
public:
    explicit Inspector(std::string_view block) : stream(streamOf(block)) {}

    Inspection result;

    /// The fields up to the end of the stream, or of its limit, or of the group that begins with `start`. False if they
    /// are not well-formed. `type` is null in an unknown group.
    bool inspectFields(const Descriptor* type, std::uint32_t start = 0) {
        std::uint32_t tag = 0;
        ++depth;
        while ((tag = stream.ReadTag()) != 0 && wireTypeOf(tag) != EndGroup) {
            if (fieldNumberOf(tag) == 0 || depth > deepestNesting || !inspectField(type, tag)) {
                return false;
            }
        }
        --depth;
        return start == 0 ? tag == 0 && stream.ConsumedEntireMessage() : tag == withWireType(start, EndGroup);
    }

private:
    bool inspectField(const Descriptor* type, std::uint32_t tag) {
        const FieldDescriptor* const field = fieldOf(type, fieldNumberOf(tag));
        if (field == nullptr) {
            if (type != nullptr) {
                result.unknownFields[fullNameOf(type)].insert(fieldNumberOf(tag));
            }
            return skip(tag);
        }
        const WireType expected = encodingOf(*field);
        if (wireTypeOf(tag) == expected) {
            return inspectValue(*field, tag);
        }
        if (wireTypeOf(tag) == LengthDelimited && field->is_packable()) {
            return within([&] { return inspectPacked(*field, expected); });
        }
        result.mismatches.insert(fullNameOf(field) + " is not encoded as " + std::string(field->type_name()) +
                                 ": is it the right type?");
        return skip(tag);
    }

    bool skip(std::uint32_t tag) {
        return wireTypeOf(tag) == StartGroup ? inspectFields(nullptr, tag) : skipValue(stream, wireTypeOf(tag));
    }

    /// Reads a length, and inspects so many bytes.
    template <class Inspect>
    bool within(const Inspect& inspectAll) {
        const auto bytes = lengthDelimited();
        if (!bytes) {
            return false;
        }
        const auto limit = stream.PushLimit(static_cast<int>(bytes->size()));
        const bool isWellFormed = inspectAll();
        stream.PopLimit(limit);
        return isWellFormed;
    }

    /// Reads a length, and returns the bytes behind it, which are not read yet. Nothing if there are fewer.
    std::optional<std::string_view> lengthDelimited() {
        int size = 0;
        const void* bytes = nullptr;
        int available = 0;
        if (!stream.ReadVarintSizeAsInt(&size)) {
            return std::nullopt;
        }
        stream.GetDirectBufferPointerInline(&bytes, &available);
        if (size > available) {
            return std::nullopt;
        }
        return std::string_view(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
    }

    bool inspectPacked(const FieldDescriptor& field, WireType expected) {
        while (stream.BytesUntilLimit() > 0) {
            if (!(field.enum_type() != nullptr ? inspectEnumeration(field) : skipValue(stream, expected))) {
                return false;
            }
        }
        return true;
    }

    bool inspectValue(const FieldDescriptor& field, std::uint32_t tag) {
        switch (field.type()) {
        case FieldDescriptor::TYPE_MESSAGE:
            return within([&] { return inspectFields(field.message_type()); });
        case FieldDescriptor::TYPE_GROUP:
            return inspectFields(field.message_type(), tag);
        case FieldDescriptor::TYPE_STRING:
            return inspectString(field);
        case FieldDescriptor::TYPE_ENUM:
            return inspectEnumeration(field);
        default:
            return skipValue(stream, wireTypeOf(tag));
        }
    }

    bool inspectString(const FieldDescriptor& field) {
        const auto bytes = lengthDelimited();
        if (bytes && !isUtf8(*bytes)) {
            result.notUtf8.insert(fullNameOf(&field));
        }
        return bytes && stream.Skip(static_cast<int>(bytes->size()));
    }

    bool inspectEnumeration(const FieldDescriptor& field) {
        std::uint64_t number = 0;
        if (!stream.ReadVarint64(&number)) {
            return false;
        }
        if (field.enum_type()->FindValueByNumber(static_cast<int>(number)) == nullptr) {
            result.mismatches.insert(std::to_string(static_cast<std::int64_t>(number)) + " is no value of " +
                                     fullNameOf(&field) + ": is the schema up to date?");
        }
        return true;
    }

    CodedInputStream stream;
    int depth = -1;
};

} // namespace

Inspection inspect(std::string_view block, const Descriptor& type) {
    Inspector inspector(block);
    inspector.result.isWellFormed = inspector.inspectFields(&type);
    return std::move(inspector.result);
}

} // namespace rk::tools
