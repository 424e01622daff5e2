#pragma once

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/type_resolver.h>
#if GOOGLE_PROTOBUF_VERSION < 4022000
#include <google/protobuf/stubs/logging.h>
#else
#include <absl/log/globals.h>
#endif

#include <string>

/// \file
/// Hides the differences between releases of protobuf. Release 22 renamed the callback for errors, logs through abseil and
/// has another parser for JSON. Release 26 renamed an option of JSON. Release 30 returns names as views.

namespace rk::tools {

template <class Descriptor>
std::string fullNameOf(const Descriptor* descriptor) {
    return std::string(descriptor->full_name());
}

/// Returns the field or extension with that number. Null if there is none, or if `type` is null.
inline const google::protobuf::FieldDescriptor* fieldOf(const google::protobuf::Descriptor* type, int number) {
    if (type == nullptr) {
        return nullptr;
    }
    const auto* const field = type->FindFieldByNumber(number);
    return field != nullptr ? field : type->file()->pool()->FindExtensionByNumber(type, number);
}

/// Receives the errors in a schema.
class SchemaErrors : public google::protobuf::compiler::MultiFileErrorCollector {
public:
    /// `line` and `column` begin at 0. A negative `line` means the whole file.
    virtual void add(const std::string& file, int line, int column, const std::string& message) = 0;

#if GOOGLE_PROTOBUF_VERSION < 4022000
    void AddError(const std::string& file, int line, int column, const std::string& message) override {
        add(file, line, column, message);
    }
#else
    void RecordError(absl::string_view file, int line, int column, absl::string_view message) override {
        add(std::string(file), line, column, std::string(message));
    }
#endif
};

/// Converts JSON to a block of the type of `message`, which it may overwrite. From release 22 on, only the conversion to a
/// message supports extensions, and neither checks required fields.
inline auto jsonToBlock([[maybe_unused]] google::protobuf::util::TypeResolver& resolver,
                        [[maybe_unused]] const std::string& url, const std::string& json,
                        [[maybe_unused]] google::protobuf::Message& message, std::string& block) {
#if GOOGLE_PROTOBUF_VERSION < 4022000
    return google::protobuf::util::JsonToBinaryString(&resolver, url, json, &block);
#else
    message.Clear();
    absl::Status status = google::protobuf::util::JsonStringToMessage(json, &message);
    if (status.ok() && !message.IsInitialized()) {
        status = absl::InvalidArgumentError("missing field " + message.InitializationErrorString());
    }
    block = message.SerializePartialAsString();
    return status;
#endif
}

inline void printAllFields(google::protobuf::util::JsonPrintOptions& options, bool all) {
#if GOOGLE_PROTOBUF_VERSION < 5026000
    options.always_print_primitive_fields = all;
#else
    options.always_print_fields_with_no_presence = all;
#endif
}

/// Keeps protobuf from writing to standard error.
inline void silenceProtobuf() {
#if GOOGLE_PROTOBUF_VERSION < 4022000
    google::protobuf::SetLogHandler(nullptr);
#else
    absl::SetMinLogLevel(absl::LogSeverityAtLeast::kInfinity);
#endif
}

} // namespace rk::tools
