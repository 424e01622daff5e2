#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>

#include <cstdint>
#include <string_view>

namespace rk::tools {

constexpr int deepestNesting = 100; // protobuf's limit

/// The last three bits of a tag: the encoding of its value.
enum WireType : std::uint32_t {
    Varint = 0,
    Fixed64 = 1,
    LengthDelimited = 2,
    StartGroup = 3,
    EndGroup = 4,
    Fixed32 = 5
};

inline std::uint32_t wireTypeOf(std::uint32_t tag) {
    return tag & 7U;
}

inline std::uint32_t withWireType(std::uint32_t tag, WireType type) {
    return (tag & ~7U) | type;
}

inline int fieldNumberOf(std::uint32_t tag) {
    return static_cast<int>(tag >> 3U);
}

/// Returns the encoding of a value that is not packed.
inline WireType encodingOf(const google::protobuf::FieldDescriptor& field) {
    using google::protobuf::FieldDescriptor;
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

/// Returns whether the value after `tag` is packed.
inline bool isPacked(const google::protobuf::FieldDescriptor& field, std::uint32_t tag) {
    return wireTypeOf(tag) == LengthDelimited && field.is_packable();
}

/// Returns whether the value after `tag` is encoded in another way than the type of the field requires.
inline bool isMisencoded(const google::protobuf::FieldDescriptor& field, std::uint32_t tag) {
    return wireTypeOf(tag) != encodingOf(field) && !isPacked(field, tag);
}

inline google::protobuf::io::CodedInputStream streamOf(std::string_view bytes) {
    return google::protobuf::io::CodedInputStream(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                                  static_cast<int>(bytes.size()));
}

/// Skips the value of a tag. The start and the end of a group count as values. Returns false if it is not whole.
inline bool skipValue(google::protobuf::io::CodedInputStream& stream, std::uint32_t wireType) {
    std::uint64_t number = 0;
    std::uint32_t size = 0;
    switch (wireType) {
    case Varint:
        return stream.ReadVarint64(&number);
    case Fixed64:
        return stream.Skip(8);
    case LengthDelimited:
        return stream.ReadVarint32(&size) && stream.Skip(static_cast<int>(size));
    case Fixed32:
        return stream.Skip(4);
    default:
        return wireType == StartGroup || wireType == EndGroup;
    }
}

} // namespace rk::tools
