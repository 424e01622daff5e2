#pragma once

#include "support/messages.pb.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace rk::tests {

/// A message that serialises another number of bytes than it measures, and counts how often it is asked for either.
/// The size that it remembers to have measured last may be a third number, as if somebody else had measured meanwhile.
class FakeMessage final : public google::protobuf::Message {
public:
    FakeMessage(std::size_t measuredSize, std::size_t serializedSize)
        : FakeMessage(measuredSize, serializedSize, measuredSize) {}
    FakeMessage(std::size_t measuredSize, std::size_t serializedSize, std::size_t rememberedSize)
        : claimed(measuredSize), written(serializedSize), cached(rememberedSize) {}

    Message* New(google::protobuf::Arena* /*arena*/) const override {
        return std::make_unique<FakeMessage>(claimed, written, cached).release();
    }
    bool IsInitialized() const override { return true; }
    std::size_t ByteSizeLong() const override {
        ++measured;
        return claimed;
    }
    int GetCachedSize() const override { return static_cast<int>(cached); }
    std::uint8_t* _InternalSerialize(std::uint8_t* target,
                                     google::protobuf::io::EpsCopyOutputStream* /*stream*/) const override {
        ++serialized;
        return std::fill_n(target, written, std::uint8_t{'x'});
    }
    google::protobuf::Metadata GetMetadata() const override { return Text::default_instance().GetMetadata(); }

    mutable int measured = 0;
    mutable int serialized = 0;

private:
    std::size_t claimed;
    std::size_t written;
    std::size_t cached;
};

} // namespace rk::tests
