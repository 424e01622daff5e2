#pragma once

#include "support/messages.pb.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace rk::tests {

/// A message whose measured size differs from its serialised size. Counts the calls of both. The cached size may differ
/// too, as if another thread had measured in between.
class FakeMessage final : public google::protobuf::Message {
public:
    FakeMessage(std::size_t measuredSize, std::size_t serializedSize)
        : FakeMessage(measuredSize, serializedSize, measuredSize) {}
    FakeMessage(std::size_t measuredSize, std::size_t serializedSize, std::size_t rememberedSize)
        : claimed(measuredSize), written(serializedSize) {
        cached.Set(static_cast<int>(rememberedSize));
    }

    std::size_t ByteSizeLong() const override {
        ++measured;
        return claimed;
    }
    std::uint8_t* _InternalSerialize(std::uint8_t* target,
                                     google::protobuf::io::EpsCopyOutputStream* /*stream*/) const override {
        ++serialized;
        return std::fill_n(target, written, std::uint8_t{'x'});
    }

#if GOOGLE_PROTOBUF_VERSION < 5026000
    Message* New(google::protobuf::Arena* /*arena*/) const override { return std::make_unique<Text>().release(); }
    bool IsInitialized() const override { return true; }
    int GetCachedSize() const override { return cached.Get(); }
    google::protobuf::Metadata GetMetadata() const override { return Text::default_instance().GetMetadata(); }
#else
    /// Returns the class data of `Text`, with the offset of this class's cached size.
    const google::protobuf::internal::ClassData* GetClassData() const override {
        static const google::protobuf::internal::ClassDataFull data = [this] {
            google::protobuf::internal::ClassDataFull own = Text_class_data_;
            own.cached_size_offset = static_cast<std::uint32_t>(reinterpret_cast<const char*>(&cached) -
                                                                reinterpret_cast<const char*>(this));
            return own;
        }();
        return data.base();
    }
#endif

    mutable int measured = 0;
    mutable int serialized = 0;

private:
    std::size_t claimed;
    std::size_t written;
    google::protobuf::internal::CachedSize cached;
};

} // namespace rk::tests
