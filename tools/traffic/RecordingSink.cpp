#include "display/ProgressBar.h"
#include "recording/Recording.h"
#include "system/Output.h"
#include "traffic/MessageSink.h"

namespace rk::tools {

namespace {

class RecordingSink : public MessageSink {
public:
    RecordingSink(const std::string& path, std::optional<std::uint64_t> expectedMessages, Complaints& complaints,
                  const StopSignals& stop)
        : file(path, stop), bar(complaints), expected(expectedMessages) {
        file.write(recording::header);
        file.flush();
    }

    void take(const Received& message) override {
        first = first.value_or(message.arrival);
        for (std::size_t place = 0; place < message.parts.size(); ++place) {
            const std::string_view part = message.parts[place];
            file.write(recording::toBytes(
                {message.arrival - *first, static_cast<std::uint32_t>(part.size()), place + 1 < message.parts.size()}));
            file.write(part);
        }
        ++messages;
        bytes += message.size;
        showWhenDue(message.arrival);
    }

    void pause(Clock::time_point now) override {
        file.flushForReader();
        showWhenDue(now);
    }

    bool keepsBack() const override { return file.hasPending(); }

    void finish(Clock::time_point now) override {
        file.flush();
        show(now);
    }

private:
    void showWhenDue(Clock::time_point now) {
        if (bar.due(now)) {
            show(now);
        }
    }

    void show(Clock::time_point now) {
        std::optional<double> done;
        if (expected && *expected > 0) {
            done = static_cast<double>(messages) / static_cast<double>(*expected);
        }
        bar.show(done, std::to_string(messages) + " messages, " + std::to_string(bytes) + " bytes", now);
    }

    Output file;
    ProgressBar bar;
    std::optional<std::uint64_t> expected;
    std::optional<Clock::time_point> first;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
};

} // namespace

std::unique_ptr<MessageSink> makeRecordingSink(const std::string& path, std::optional<std::uint64_t> expected,
                                               Complaints& complaints, const StopSignals& stop) {
    return std::make_unique<RecordingSink>(path, expected, complaints, stop);
}

} // namespace rk::tools
