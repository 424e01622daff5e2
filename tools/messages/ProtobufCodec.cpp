#include "display/Complaints.h"
#include "messages/Codec.h"
#include "messages/Inspection.h"
#include "messages/JsonTypes.h"
#include "messages/Protobuf.h"
#include "messages/Schema.h"
#include "messages/Text.h"

#include <google/protobuf/message.h>

#include <set>

namespace rk::tools {

namespace {

using google::protobuf::Message;
namespace util = google::protobuf::util;

constexpr const char* urlPrefix = "type.googleapis.com";
constexpr std::size_t mostRemarks = 100;

std::string typeOf(const Message& message) {
    return fullNameOf(message.GetDescriptor());
}

std::string urlOf(const Message& message) {
    return std::string(urlPrefix) + "/" + typeOf(message);
}

std::string listed(const std::set<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) {
        list += (list.empty() ? "" : ", ") + text;
    }
    return list;
}

/// Returns protobuf's message about JSON in one line. It may begin with an empty place, and end with an excerpt and a mark
/// below.
std::string readable(std::string complaint) {
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
          schema(settings),
          resolver(newJsonTypeResolver(urlPrefix, *schema.pool())),
          sentMessage(sent ? schema.newMessage(schema.type(*sent)) : nullptr),
          receivedMessage(received ? schema.newMessage(schema.type(*received)) : nullptr),
          sendsGroups(sentMessage && mayContainGroups(*sentMessage->GetDescriptor())),
          receivesGroups(receivedMessage && mayContainGroups(*receivedMessage->GetDescriptor())),
          receivesRequired(receivedMessage && mayNeedFields(*receivedMessage->GetDescriptor())),
          sentUrl(sentMessage ? urlOf(*sentMessage) : ""),
          receivedUrl(receivedMessage ? urlOf(*receivedMessage) : "") {
        options.preserve_proto_field_names = true;
        printAllFields(options, settings.allFields);
    }

    std::string encode(const std::string& text) override {
        if (!isUtf8(text)) {
            throw CodecError("not UTF-8, which JSON has to be");
        }
        std::string block;
        const auto status = jsonToBlock(*resolver, sentUrl, text, *sentMessage, block);
        if (!status.ok()) {
            throw CodecError("not a " + typeOf(*sentMessage) + " in JSON: " + readable(std::string(status.message())));
        }
        return sendsGroups ? messagesToGroups(block, *sentMessage->GetDescriptor()) : block;
    }

    void decode(std::string_view block, std::string& text) override {
        const Inspection inspection = inspect(block, *receivedMessage->GetDescriptor());
        if (inspection.firstWrong || receivesRequired) {
            requireWhole(block, inspection);
        }
        remarkOn(inspection);
        if (!inspection.notUtf8.empty()) {
            throw CodecError("not UTF-8, which JSON has to be: " + listed(inspection.notUtf8) +
                             "; decoded, with these bytes escaped: " + presentedJson(block));
        }
        const bool isJoined = inspection.isScattered &&
                              receivedMessage->ParsePartialFromArray(block.data(), static_cast<int>(block.size())) &&
                              receivedMessage->SerializePartialToString(&bytes);
        if (!isJoined) {
            bytes.assign(block);
        }
        text += receivesGroups || inspection.isMisencoded ? presentedJson(bytes) : toJson(bytes);
    }

private:
    /// Throws CodecError, with the decoded part, if the block is not a whole message.
    void requireWhole(std::string_view block, const Inspection& inspection) {
        const std::size_t size = inspection.firstWrong.value_or(block.size());
        // Keeps the fields before a failure.
        const bool isDecoded = receivedMessage->ParsePartialFromArray(block.data(), static_cast<int>(size));
        const auto decoded = [this] { return presentedJson(receivedMessage->SerializePartialAsString()); };
        if (inspection.firstWrong) {
            throw CodecError("not a " + typeOf(*receivedMessage) + " from byte " + std::to_string(size) +
                             " on; decoded so far: " + decoded());
        }
        if (isDecoded && !receivedMessage->IsInitialized()) {
            throw CodecError("not a whole " + typeOf(*receivedMessage) + ": missing " +
                             receivedMessage->InitializationErrorString() + "; decoded: " + decoded());
        }
    }

    /// Converts a block that JSON cannot carry.
    const std::string& presentedJson(std::string_view block) {
        return toJson(presentable(block, *receivedMessage->GetDescriptor()));
    }

    /// Converts a block that JSON can carry.
    const std::string& toJson(const std::string& block) {
        json.clear();
        const auto status = util::BinaryToJsonString(resolver.get(), receivedUrl, block, &json, options);
        if (!status.ok()) {
            throw CodecError("no JSON for this " + typeOf(*receivedMessage) + ": " +
                             readable(std::string(status.message())));
        }
        return json;
    }

    /// Makes each remark once.
    void remarkOn(const Inspection& inspection) {
        for (const auto& [type, numbers] : inspection.unknownFields) {
            std::set<std::string> unremarked;
            for (const int number : numbers) {
                if (isNew(type + " " + std::to_string(number))) {
                    unremarked.insert(std::to_string(number));
                }
            }
            if (!unremarked.empty()) {
                complaints.remark("there are fields that " + type + " does not have, number " + listed(unremarked) +
                                  ": is it the right type?");
            }
        }
        // With unknown fields, the type is wrong anyway.
        for (const std::string& mismatch : inspection.mismatches) {
            if (inspection.unknownFields.empty() && isNew(mismatch)) {
                complaints.remark(mismatch);
            }
        }
    }

    /// Returns false for a second time, and after many remarks.
    bool isNew(const std::string& remark) { return remarked.size() < mostRemarks && remarked.insert(remark).second; }

    const Complaints& complaints;
    Schema schema;
    std::unique_ptr<util::TypeResolver> resolver;
    std::unique_ptr<Message> sentMessage;
    std::unique_ptr<Message> receivedMessage;
    bool sendsGroups;
    bool receivesGroups;
    bool receivesRequired;
    std::string sentUrl;
    std::string receivedUrl;
    util::JsonPrintOptions options;
    std::set<std::string> remarked;
    std::string bytes; ///< of the block, reused for its memory, as is `json`
    std::string json;
};

} // namespace

std::unique_ptr<Codec> makeProtobufCodec(const CodecSettings& settings, const std::optional<std::string>& sent,
                                         const std::optional<std::string>& received, const Complaints& complaints) {
    return std::make_unique<ProtobufCodec>(settings, sent, received, complaints);
}

} // namespace rk::tools
