#include "endurance/crash/History.h"

#include <rk/utils/Log.h>

#include <chrono>
#include <functional>
#include <sstream>
#include <unistd.h>

namespace rk::tests::crash {

void record(const std::string& event) {
    const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
    const std::string line = std::to_string(now.count()) + " " + processName + " " + event + "\n";
    // The system writes a line of this length to a pipe atomically. If the reader has ended, a signal ends this
    // process.
    static_cast<void>(!::write(STDOUT_FILENO, line.data(), line.size()));
}

std::string Letter::text() const {
    return sender + " " + std::to_string(number) + " " + std::to_string(attempt);
}

std::string seal(const Letter& letter) {
    const std::string content = letter.text() + (letter.fails ? " fail" : " serve");
    return std::to_string(std::hash<std::string>()(content)) + " " + content;
}

std::optional<Letter> unseal(const std::string& sealed) {
    Letter letter;
    std::string sum;
    std::string wish;
    std::istringstream(sealed) >> sum >> letter.sender >> letter.number >> letter.attempt >> wish;
    letter.fails = wish == "fail";
    return seal(letter) == sealed ? std::optional(letter) : std::nullopt;
}

} // namespace rk::tests::crash

// Replaces the library's logging functions, to record each rebuild and each failed rebuild.
namespace rk::utils {

void logDebug(const std::string& message) {
    if (message.rfind("Connected ", 0) == 0) {
        rk::tests::crash::record("connected");
    }
}

void logWarning(const std::string& message) {
    if (message.find("Attempting reset of the connections") != std::string::npos) {
        rk::tests::crash::record("repair");
    }
}

void logError(const std::string& message) {
    if (message.find("Failed handling received message") == std::string::npos) {
        rk::tests::crash::record("error " + message);
    }
}

} // namespace rk::utils
