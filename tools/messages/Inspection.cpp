#include "messages/Inspection.h"

#include "messages/Protobuf.h"
#include "messages/Text.h"
#include "messages/WireFormat.h"

#include <utility>

namespace rk::tools {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::io::CodedInputStream;

class Inspector {
public:
    explicit Inspector(std::string_view block) : stream(streamOf(block)) {}

    Inspection result;

    /// Inspects the fields up to the end of the stream, or of its limit, or of the group that begins with `start`.
    /// Returns whether they are well-formed. `type` is null in an unknown group.
    bool inspectFields(const Descriptor* type, std::uint32_t start = 0) {
        ++depth;
        int last = 0;
        int place = stream.CurrentPosition();
        std::uint32_t tag = stream.ReadTag();
        while (tag != 0 && wireTypeOf(tag) != EndGroup && fieldNumberOf(tag) != 0 && depth <= deepestNesting &&
               inspectField(type, tag, last)) {
            place = stream.CurrentPosition();
            tag = stream.ReadTag();
        }
        --depth;
        const bool isWellFormed =
            start == 0 ? tag == 0 && stream.ConsumedEntireMessage() : tag == withWireType(start, EndGroup);
        return isWellFormed || refuse(place);
    }

private:
    /// Notes the place of the innermost field that is wrong. Returns false.
    bool refuse(int place) {
        result.firstWrong = result.firstWrong.value_or(place);
        return false;
    }

    bool inspectField(const Descriptor* type, std::uint32_t tag, int& last) {
        const int number = fieldNumberOf(tag);
        const FieldDescriptor* const field = fieldOf(type, number);
        if (field == nullptr) {
            if (type != nullptr) {
                result.unknownFields[fullNameOf(type)].insert(number);
            }
            return skip(tag);
        }
        result.isScattered |= number < last || (number == last && (isPacked(*field, tag) || !field->is_repeated()));
        last = number;
        if (isPacked(*field, tag)) {
            return within([&] { return inspectPacked(*field); });
        }
        if (!isMisencoded(*field, tag)) {
            return inspectValue(*field, tag);
        }
        result.isMisencoded = true;
        result.mismatches.insert(fullNameOf(field) + " is not encoded as " + std::string(field->type_name()) +
                                 ": is it the right type?");
        return skip(tag);
    }

    bool skip(std::uint32_t tag) {
        return wireTypeOf(tag) == StartGroup ? inspectFields(nullptr, tag) : skipValue(stream, wireTypeOf(tag));
    }

    /// Reads a length, and inspects so many bytes, or fewer at the end.
    template <class Inspect>
    bool within(const Inspect& inspectAll) {
        int size = 0;
        if (!stream.ReadVarintSizeAsInt(&size)) {
            return false;
        }
        const bool isWhole = size <= static_cast<int>(unread().size());
        const auto limit = stream.PushLimit(size);
        const bool isWellFormed = inspectAll();
        stream.PopLimit(limit);
        return isWellFormed && (isWhole || refuse(stream.CurrentPosition()));
    }

    std::string_view unread() {
        const void* bytes = nullptr;
        int size = 0;
        stream.GetDirectBufferPointerInline(&bytes, &size);
        return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
    }

    bool inspectPacked(const FieldDescriptor& field) {
        while (stream.BytesUntilLimit() > 0) {
            if (!(field.enum_type() != nullptr ? inspectEnumeration(field) : skipValue(stream, encodingOf(field)))) {
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
        int size = 0;
        if (!stream.ReadVarintSizeAsInt(&size) || size > static_cast<int>(unread().size())) {
            return false;
        }
        if (!isUtf8(unread().substr(0, static_cast<std::size_t>(size)))) {
            result.notUtf8.insert(fullNameOf(&field));
        }
        return stream.Skip(size);
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
    inspector.inspectFields(&type);
    return std::move(inspector.result);
}

} // namespace rk::tools
