#include "recording/RecordingReader.h"

#include "recording/Recording.h"
#include "system/StopSignals.h"

#include <algorithm>
#include <stdexcept>

namespace rk::tools {

RecordingReader::RecordingReader(const std::string& path, std::size_t maxSize, const StopSignals& stopSignals)
    : stop(stopSignals), file(path, stopSignals), capacity(maxSize) {
    const std::string start = file.read(recording::header.size());
    position = start.size();
    if (start == recording::header || stop.requested()) {
        return;
    }
    if (start.compare(0, recording::title.size(), recording::title) == 0) {
        throw std::runtime_error(file.name() + ": a recording of another version; this program reads version 1");
    }
    throw std::runtime_error(file.name() + ": not a recording");
}

std::optional<RecordingReader::Entry> RecordingReader::next() {
    Entry entry{};
    std::size_t size = 0;
    bool more = true;
    while (more) {
        // An empty part takes memory too.
        auto block = nextBlock(std::max(size, recording::headSize * entry.parts.size()));
        if (!block) {
            return std::nullopt;
        }
        more = block->more;
        entry.time = entry.parts.empty() ? block->time : entry.time;
        size += block->bytes.size();
        entry.parts.push_back(std::move(block->bytes));
    }
    ++messages;
    return entry;
}

/// Returns nothing at the end or after a signal. `sizeBefore` is the size of the earlier parts of the message.
std::optional<RecordingReader::Block> RecordingReader::nextBlock(std::size_t sizeBefore) {
    const std::string headBytes = file.read(recording::headSize);
    if (stop.requested() || headBytes.empty()) {
        return std::nullopt;
    }
    if (headBytes.size() < recording::headSize) {
        refuse(recording::headSize, headBytes.size());
    }
    const recording::Head head = recording::headFromBytes(headBytes);
    const std::uint64_t whole = recording::headSize + head.size;
    // A wrong length must not fill the memory.
    if (const auto size = file.size(); size && position + whole > *size) {
        refuse(whole, *size - position);
    }
    if (sizeBefore + head.size > capacity) {
        refuseLength(sizeBefore + head.size);
    }
    Block block{head.time, file.read(head.size), head.more};
    if (stop.requested()) {
        return std::nullopt;
    }
    if (block.bytes.size() < head.size) {
        refuse(whole, recording::headSize + block.bytes.size());
    }
    position += whole;
    return block;
}

void RecordingReader::refuse(std::uint64_t size, std::uint64_t got) const {
    throw std::runtime_error(file.name() + ": truncated: message " + std::to_string(messages + 1) + ", at byte " +
                             std::to_string(position) + ", has " + std::to_string(got) + " of at least " +
                             std::to_string(size) + " bytes");
}

void RecordingReader::refuseLength(std::uint64_t size) const {
    throw std::runtime_error(file.name() + ": damaged: message " + std::to_string(messages + 1) + ", at byte " +
                             std::to_string(position) + ", has " + std::to_string(size) +
                             " bytes, more than --max-size " + std::to_string(capacity));
}

std::optional<double> RecordingReader::progress() const {
    const auto size = file.size();
    if (!size || *size == 0) {
        return std::nullopt;
    }
    return static_cast<double>(position) / static_cast<double>(*size);
}

} // namespace rk::tools
