#pragma once

#include "support/messages.pb.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace rk::tests {

/// A message that serialises another number of bytes than it measures, and counts how often it is asked for either.
class FakeMessage final : public google::protobuf::Message {
public:
    FakeMessage(std::size_t measuredSize, std::size_t serializedSize)
        : claimed(measuredSize), written(serializedSize) {}

    Message* New(google::protobuf::Arena* /*arena*/) const override {
        return std::make_unique<FakeMessage>(claimed, written).release();
    }
    bool IsInitialized() const override { return true; }
    std::size_t ByteSizeLong() const override {
        ++measured;
        return claimed;
    }
    int GetCachedSize() const override { return static_cast<int>(claimed); }
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
};

} // namespace rk::tests
