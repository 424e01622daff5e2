#include "display/Complaints.h"
#include "messages/Codec.h"
#include "messages/PartialDecoder.h"
#include "messages/Protobuf.h"
#include "messages/Schema.h"
#include "messages/Text.h"

#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>
#include <google/protobuf/util/type_resolver_util.h>

#include <vector>

namespace rk::tools {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
namespace util = google::protobuf::util;

constexpr const char* urlPrefix = "type.googleapis.com";

std::string typeOf(const Message& message) {
    return fullNameOf(message.GetDescriptor());
}

std::string urlOf(const Message& message) {
    return std::string(urlPrefix) + "/" + typeOf(message);
}

std::string missingFields(const Message& message) {
    std::vector<std::string> fields;
    message.FindInitializationErrors(&fields);
    std::string text;
    for (const std::string& field : fields) {
        text += (text.empty() ? "" : ", ") + field;
    }
    return text;
}

/// The numbers of the fields that the message's type, or that of a message in it, does not have.
void collectUnknownFields(const Message& message, std::string& numbers) {
    const auto* const reflection = message.GetReflection();
    const auto& unknown = reflection->GetUnknownFields(message);
    for (int index = 0; index < unknown.field_count(); ++index) {
        numbers += (numbers.empty() ? "" : ", ") + std::to_string(unknown.field(index).number());
    }
    std::vector<const FieldDescriptor*> fields;
    reflection->ListFields(message, &fields);
    for (const FieldDescriptor* field : fields) {
        if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
            continue;
        }
        if (!field->is_repeated()) {
            collectUnknownFields(reflection->GetMessage(message, field), numbers);
            continue;
        }
        for (int index = 0; index < reflection->FieldSize(message, field); ++index) {
            collectUnknownFields(reflection->GetRepeatedMessage(message, field, index), numbers);
        }
    }
}

/// Protobuf's complaint about JSON text in one line: it may begin with an empty place, and end with an excerpt and a
/// mark below.
std::string inOneLine(std::string complaint) {
    if (complaint.compare(0, 2, ": ") == 0) {
        complaint.erase(0, 2);
    }
    const std::size_t end = complaint.find('\n');
    if (end == std::string::npos) {
        return printable(complaint);
    }
    const std::string excerpt = complaint.substr(end + 1, complaint.find('\n', end + 1) - end - 1);
    return printable(complaint.substr(0, end)) + (excerpt.empty() ? "" : " Near: " + printable(excerpt));
}

class ProtobufCodec : public Codec {
public:
    ProtobufCodec(const CodecSettings& settings, const std::optional<std::string>& sent,
                  const std::optional<std::string>& received, const Complaints& complaintsToUse)
        : complaints(complaintsToUse),
          schema(settings.protoFiles, settings.protoPaths),
          resolver(util::NewTypeResolverForDescriptorPool(urlPrefix, schema.pool())),
          sentMessage(sent ? schema.newMessage(schema.type(*sent)) : nullptr),
          receivedMessage(received ? schema.newMessage(schema.type(*received)) : nullptr),
          allFields(settings.allFields) {
        silenceProtobuf(); // its messages are part of the complaints
    }

    std::string encode(const std::string& text) override {
        std::string block;
        const auto status = util::JsonToBinaryString(resolver.get(), urlOf(*sentMessage), text, &block);
        if (!status.ok()) {
            throw CodecError("not a " + typeOf(*sentMessage) + " in JSON: " + inOneLine(std::string(status.message())));
        }
        return block;
    }

    std::string decode(std::string_view block) override {
        if (!receivedMessage->ParsePartialFromArray(block.data(), static_cast<int>(block.size()))) {
            receivedMessage->Clear();
            const std::size_t place = decodePart(block, *receivedMessage);
            throw CodecError("not a " + typeOf(*receivedMessage) + " from byte " + std::to_string(place) +
                             " on; decoded so far: " + toJson(receivedMessage->SerializePartialAsString()));
        }
        if (!receivedMessage->IsInitialized()) {
            throw CodecError("not a whole " + typeOf(*receivedMessage) + ": missing " +
                             missingFields(*receivedMessage) +
                             "; decoded: " + toJson(receivedMessage->SerializePartialAsString()));
        }
        remarkOnUnknownFields();
        return toJson(std::string(block)) + "\n";
    }

private:
    /// For a block of the type that is received.
    std::string toJson(const std::string& block) const {
        util::JsonPrintOptions options;
        options.preserve_proto_field_names = true;
        printAllFields(options, allFields);
        std::string json;
        const auto status = util::BinaryToJsonString(resolver.get(), urlOf(*receivedMessage), block, &json, options);
        if (!status.ok()) {
            throw CodecError("no JSON for this " + typeOf(*receivedMessage) + ": " +
                             inOneLine(std::string(status.message())));
        }
        return json;
    }

    void remarkOnUnknownFields() {
        if (remarked) {
            return;
        }
        std::string numbers;
        collectUnknownFields(*receivedMessage, numbers);
        if (!numbers.empty()) {
            remarked = true;
            complaints.remark("there are fields that " + typeOf(*receivedMessage) + " does not have, number " +
                              numbers + ": is it the right type?");
        }
    }

    const Complaints& complaints;
    Schema schema;
    std::unique_ptr<util::TypeResolver> resolver;
    std::unique_ptr<Message> sentMessage;
    std::unique_ptr<Message> receivedMessage;
    bool allFields;
    bool remarked = false;
};

} // namespace

std::unique_ptr<Codec> makeProtobufCodec(const CodecSettings& settings, const std::optional<std::string>& sent,
                                         const std::optional<std::string>& received, const Complaints& complaints) {
    return std::make_unique<ProtobufCodec>(settings, sent, received, complaints);
}

} // namespace rk::tools
