#pragma once

#include "Codec.h"

#include <google/protobuf/message.h>
#include <google/protobuf/util/type_resolver.h>

#include <memory>
#include <string>

namespace rk::tools {

class Complaints;
class Schema;

/// Protobuf messages of a schema, as JSON: one object in one line. Fields are named as in the schema; texts to encode
/// may also use JSON's own names.
class ProtobufCodec : public Codec {
public:
    /// `sent` and `received` are the types of what is encoded and decoded; either may be empty if it is not used.
    /// `allFields`: fields that have their default value are printed, too.
    /// Throws std::runtime_error when the schema has no such type.
    ProtobufCodec(std::unique_ptr<Schema> schema, const std::string& sent, const std::string& received, bool allFields,
                  const Complaints& complaints);
    ~ProtobufCodec() override;

    std::string encode(const std::string& text) override;

    /// A block that is not a whole message of its type makes a CodecError that tells what could be decoded. Fields that
    /// the schema does not know are remarked upon once, since they may mean that it is another type's block.
    std::string decode(std::string_view block) override;

private:
    /// For a block of the type that is received.
    std::string toJson(const std::string& block) const;
    void remarkOnUnknownFields();

    const Complaints& complaints;
    std::unique_ptr<Schema> schema;
    std::unique_ptr<google::protobuf::util::TypeResolver> resolver;
    std::unique_ptr<google::protobuf::Message> sentMessage;
    std::unique_ptr<google::protobuf::Message> receivedMessage;
    bool allFields;
    bool remarked = false;
};

} // namespace rk::tools
