#include "RecordingSink.h"

#include "Recording.h"

namespace rk::tools {

RecordingSink::RecordingSink(const std::string& path, std::optional<std::uint64_t> expectedMessages,
                             const StopSignals& stop)
    : file(path, stop), expected(expectedMessages) {
    file.write(recording::header);
    file.flush();
}

void RecordingSink::take(const Received& message) {
    first = first.value_or(message.arrival);
    file.write(recording::toBytes({message.arrival - *first, static_cast<std::uint32_t>(message.bytes.size())}));
    file.write(message.bytes);
    ++messages;
    bytes += message.bytes.size();
    if (bar.due(message.arrival)) {
        showProgress(message.arrival);
    }
}

void RecordingSink::pause(Clock::time_point now) {
    file.flush();
    if (file.readerGone()) {
        throw ReaderGone();
    }
    if (bar.due(now)) {
        showProgress(now);
    }
}

void RecordingSink::finish(Clock::time_point now) {
    file.flush();
    showProgress(now);
}

void RecordingSink::showProgress(Clock::time_point now) {
    std::optional<double> done;
    if (expected && *expected > 0) {
        done = static_cast<double>(messages) / static_cast<double>(*expected);
    }
    bar.show(done, std::to_string(messages) + " messages, " + std::to_string(bytes) + " bytes", now);
}

} // namespace rk::tools
