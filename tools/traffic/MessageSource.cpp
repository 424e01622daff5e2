#include "traffic/MessageSource.h"

#include <algorithm>

namespace rk::tools {

MessageSource::MessageSource(const SourceSettings& settings, const StopSignals& stopSignals)
    : stop(stopSignals), arguments(settings.messages), files(settings.files), byLine(settings.lines) {
    if (arguments.empty() && files.empty()) {
        files = {"-"};
        byLine = !settings.whole;
    }
}

std::optional<MessageSource::Text> MessageSource::next() {
    if (nextArgument < arguments.size()) {
        const std::size_t place = nextArgument++;
        return Text{arguments[place], "message " + std::to_string(place + 1)};
    }
    while (open || nextFile < files.size()) {
        if (!open) {
            open = std::make_unique<InputFile>(files[nextFile++], stop);
            lineNumber = 0;
        }
        if (!byLine) {
            const auto file = std::move(open);
            return Text{file->readAll(), file->name()};
        }
        if (auto line = nextLine()) {
            return line;
        }
        open.reset();
    }
    return std::nullopt;
}

std::optional<MessageSource::Text> MessageSource::nextLine() {
    auto line = open->readLine();
    if (!line) {
        return std::nullopt;
    }
    ++lineNumber;
    return Text{std::move(*line), open->name() + ", line " + std::to_string(lineNumber)};
}

bool MessageSource::rewind() {
    if (std::find(files.begin(), files.end(), "-") != files.end()) {
        return false;
    }
    nextArgument = 0;
    nextFile = 0;
    open.reset();
    return true;
}

} // namespace rk::tools
