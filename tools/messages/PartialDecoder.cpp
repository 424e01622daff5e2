#include "messages/PartialDecoder.h"

#include "messages/WireFormat.h"

#include <memory>

namespace rk::tools {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::io::CodedInputStream;

/// The length of the field that begins `bytes`, with all of a group; 0 if it is not whole. Whether its contents make
/// sense is for the parser to say.
std::size_t lengthOfField(std::string_view bytes) {
    CodedInputStream stream = streamOf(bytes);
    int groups = 0;
    do {
        const std::uint32_t tag = stream.ReadTag();
        if (tag == 0 || !skipValue(stream, wireTypeOf(tag))) {
            return 0;
        }
        groups += wireTypeOf(tag) == StartGroup ? 1 : wireTypeOf(tag) == EndGroup ? -1 : 0;
    } while (groups > 0);
    return static_cast<std::size_t>(stream.CurrentPosition());
}

/// Adds a whole field to the message. False, and nothing added, if its contents are not of its type.
bool add(std::string_view field, Message& message) {
    const std::unique_ptr<Message> part(message.New());
    if (!part->ParsePartialFromArray(field.data(), static_cast<int>(field.size()))) {
        return false;
    }
    message.MergeFrom(*part);
    return true;
}

/// The message that the field is, new within `parent`; null if it is none.
Message* messageOf(const FieldDescriptor* field, Message& parent) {
    if (field == nullptr || field->type() != FieldDescriptor::TYPE_MESSAGE || field->is_map()) {
        return nullptr;
    }
    const auto* const reflection = parent.GetReflection();
    return field->is_repeated() ? reflection->AddMessage(&parent, field) : reflection->MutableMessage(&parent, field);
}

std::size_t decode(std::string_view block, Message& message, int depth) {
    std::size_t good = 0;
    for (std::size_t length = 1; length != 0 && good < block.size(); good += length) {
        length = lengthOfField(block.substr(good));
        if (!add(block.substr(good, length), message)) {
            break;
        }
    }
    const std::string_view rest = block.substr(good);
    CodedInputStream stream = streamOf(rest);
    const auto tag = stream.ReadTag();
    std::uint32_t size = 0;
    if (wireTypeOf(tag) != LengthDelimited || !stream.ReadVarint32(&size)) {
        return good;
    }
    const auto* const field = message.GetDescriptor()->FindFieldByNumber(fieldNumberOf(tag));
    Message* const inner = depth < deepestNesting ? messageOf(field, message) : nullptr;
    if (inner == nullptr) {
        return good;
    }
    const auto head = static_cast<std::size_t>(stream.CurrentPosition());
    return good + head + decode(rest.substr(head, size), *inner, depth + 1);
}

} // namespace

std::size_t decodePart(std::string_view block, Message& message) {
    return decode(block, message, 0);
}

} // namespace rk::tools
