#include "messages/Inspection.h"

#include "messages/Protobuf.h"
#include "messages/Text.h"

#include <google/protobuf/unknown_field_set.h>

namespace rk::tools {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using google::protobuf::UnknownField;

bool isUnknownValue(const UnknownField& unknown, const FieldDescriptor& field) {
    return field.type() == FieldDescriptor::TYPE_ENUM && unknown.type() == UnknownField::TYPE_VARINT;
}

class Inspector {
public:
    Inspection result;

    void inspect(Message& message) {
        const Reflection& reflection = *message.GetReflection();
        inspectUnknown(reflection.GetUnknownFields(message), *message.GetDescriptor());
        std::vector<const FieldDescriptor*> fields;
        reflection.ListFields(message, &fields);
        for (const FieldDescriptor* field : fields) {
            if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
                inspectMessages(message, *field);
            } else if (field->type() == FieldDescriptor::TYPE_STRING) {
                inspectStrings(message, *field);
            }
        }
    }

private:
    void inspectUnknown(const google::protobuf::UnknownFieldSet& unknown, const google::protobuf::Descriptor& type) {
        for (int index = 0; index < unknown.field_count(); ++index) {
            const int number = unknown.field(index).number();
            const FieldDescriptor* const field = type.FindFieldByNumber(number);
            if (field == nullptr) {
                result.unknownFields[fullNameOf(&type)].insert(number);
            } else if (isUnknownValue(unknown.field(index), *field)) {
                const auto value = static_cast<std::int64_t>(unknown.field(index).varint());
                result.mismatches.insert(std::to_string(value) + " is no value of " + fullNameOf(field) +
                                         ": is the schema up to date?");
            } else {
                result.mismatches.insert(fullNameOf(field) + " is not encoded as " + field->type_name() +
                                         ": is it the right type?");
            }
        }
    }

    void inspectMessages(Message& message, const FieldDescriptor& field) {
        const Reflection& reflection = *message.GetReflection();
        if (!field.is_repeated()) {
            inspect(*reflection.MutableMessage(&message, &field));
            return;
        }
        for (int index = 0; index < reflection.FieldSize(message, &field); ++index) {
            inspect(*reflection.MutableRepeatedMessage(&message, &field, index));
        }
    }

    void inspectStrings(Message& message, const FieldDescriptor& field) {
        const Reflection& reflection = *message.GetReflection();
        std::string copy;
        const int size = field.is_repeated() ? reflection.FieldSize(message, &field) : 1;
        for (int index = 0; index < size; ++index) {
            const std::string& text = field.is_repeated()
                                          ? reflection.GetRepeatedStringReference(message, &field, index, &copy)
                                          : reflection.GetStringReference(message, &field, &copy);
            if (isUtf8(text)) {
                continue;
            }
            result.notUtf8.insert(fullNameOf(&field));
            if (field.is_repeated()) {
                reflection.SetRepeatedString(&message, &field, index, printable(text));
            } else {
                reflection.SetString(&message, &field, printable(text));
            }
        }
    }
};

} // namespace

Inspection inspect(Message& message) {
    Inspector inspector;
    inspector.inspect(message);
    return inspector.result;
}

} // namespace rk::tools
