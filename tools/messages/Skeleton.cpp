#include "messages/Skeleton.h"

#include "messages/Protobuf.h"

#include <algorithm>
#include <map>
#include <vector>

namespace rk::tools {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

/// Types with a JSON of another form than that of their fields.
const std::map<std::string, std::string>& specialTypes() {
    static const std::map<std::string, std::string> types = {{"google.protobuf.Timestamp", "\"1970-01-01T00:00:00Z\""},
                                                             {"google.protobuf.Duration", "\"0s\""},
                                                             {"google.protobuf.FieldMask", "\"\""},
                                                             {"google.protobuf.Struct", "{}"},
                                                             {"google.protobuf.Value", "null"},
                                                             {"google.protobuf.ListValue", "[]"},
                                                             {"google.protobuf.Any", "{}"}};
    return types;
}

class Writer {
public:
    std::string object(const Descriptor& type) {
        const auto special = specialTypes().find(fullNameOf(&type));
        if (special != specialTypes().end()) {
            return special->second;
        }
        if (type.file()->name() == "google/protobuf/wrappers.proto") {
            return value(*type.field(0));
        }
        if (std::find(open.begin(), open.end(), &type) != open.end()) {
            return "{}";
        }
        open.push_back(&type);
        std::string text = "{";
        for (int index = 0; index < type.field_count(); ++index) {
            const FieldDescriptor& field = *type.field(index);
            text += (index == 0 ? "\"" : ",\"") + std::string(field.name()) + "\":" + member(field);
        }
        open.pop_back();
        return text + "}";
    }

private:
    std::string member(const FieldDescriptor& field) {
        if (field.is_map()) {
            const Descriptor& entry = *field.message_type();
            const std::string key = value(*entry.field(0));
            return "{" + (key.front() == '"' ? key : "\"" + key + "\"") + ":" + value(*entry.field(1)) + "}";
        }
        return field.is_repeated() ? "[" + value(field) + "]" : value(field);
    }

    std::string value(const FieldDescriptor& field) {
        switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_MESSAGE:
            return object(*field.message_type());
        case FieldDescriptor::CPPTYPE_ENUM:
            return "\"" + std::string(field.enum_type()->value(0)->name()) + "\"";
        case FieldDescriptor::CPPTYPE_STRING:
            return "\"\"";
        case FieldDescriptor::CPPTYPE_BOOL:
            return "false";
        case FieldDescriptor::CPPTYPE_INT64:
        case FieldDescriptor::CPPTYPE_UINT64:
            return "\"0\"";
        default:
            return "0";
        }
    }

    std::vector<const Descriptor*> open; ///< the types around the current one
};

} // namespace

std::string skeletonOf(const Descriptor& type) {
    return Writer().object(type);
}

} // namespace rk::tools
