#include "recording/RecordingReader.h"

#include "recording/Recording.h"
#include "system/StopSignals.h"

#include <stdexcept>

namespace rk::tools {

RecordingReader::RecordingReader(const std::string& path, const StopSignals& stopSignals)
    : stop(stopSignals), file(path, stopSignals) {
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
    const std::string headBytes = file.read(recording::headSize);
    if (stop.requested() || headBytes.empty()) {
        return std::nullopt;
    }
    if (headBytes.size() < recording::headSize) {
        refuse(recording::headSize, headBytes.size());
    }
    const recording::Head head = recording::headFromBytes(headBytes);
    Entry entry{head.time, file.read(head.size)};
    if (stop.requested()) {
        return std::nullopt;
    }
    if (entry.block.size() < head.size) {
        refuse(recording::headSize + head.size, recording::headSize + entry.block.size());
    }
    position += recording::headSize + head.size;
    ++blocks;
    return entry;
}

void RecordingReader::refuse(std::uint64_t size, std::size_t got) const {
    throw std::runtime_error(file.name() + ": truncated: message " + std::to_string(blocks + 1) + ", at byte " +
                             std::to_string(position) + ", has " + std::to_string(got) + " of at least " +
                             std::to_string(size) + " bytes");
}

std::optional<double> RecordingReader::progress() const {
    const auto size = file.size();
    if (!size || *size == 0) {
        return std::nullopt;
    }
    return static_cast<double>(position) / static_cast<double>(*size);
}

} // namespace rk::tools
