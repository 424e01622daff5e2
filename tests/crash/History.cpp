#include "crash/History.h"

#include <rk/utils/Log.h>

#include <chrono>
#include <sstream>
#include <unistd.h>

namespace rk::tests::crash {

namespace {

std::string ownName;

std::uint64_t monotonicNanoseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

/// FNV-1a, of 64 bits.
std::uint64_t checksum(const std::string& text) {
    std::uint64_t sum = 14695981039346656037U;
    for (const char character : text) {
        sum = (sum ^ static_cast<unsigned char>(character)) * 1099511628211U;
    }
    return sum;
}

} // namespace

void nameProcess(const std::string& name) {
    ownName = name;
}

const std::string& processName() {
    return ownName;
}

void record(const std::string& event) {
    const std::string line = std::to_string(monotonicNanoseconds()) + " " + ownName + " " + event + "\n";
    // Shorter than what the system writes to a pipe at once; a reader that has gone ends the process.
    static_cast<void>(!::write(STDOUT_FILENO, line.data(), line.size()));
}

std::string Letter::text() const {
    return sender + " " + std::to_string(number) + " " + std::to_string(attempt);
}

std::string seal(const Letter& letter) {
    const std::string content = letter.text() + (letter.fails ? " fail" : " serve");
    return std::to_string(checksum(content)) + " " + content;
}

std::optional<Letter> unseal(const std::string& sealed) {
    const std::string::size_type blank = sealed.find(' ');
    if (blank == std::string::npos) {
        return std::nullopt;
    }
    const std::string content = sealed.substr(blank + 1);
    if (sealed.substr(0, blank) != std::to_string(checksum(content))) {
        return std::nullopt;
    }
    Letter letter;
    std::string wish;
    std::istringstream(content) >> letter.sender >> letter.number >> letter.attempt >> wish;
    letter.fails = wish == "fail";
    return letter;
}

} // namespace rk::tests::crash

// The executable's own logging layer: what the library rebuilds, and what it cannot, is a part of the history.
namespace rk::utils {

namespace {

bool contains(const std::string& line, const char* text) {
    return line.find(text) != std::string::npos;
}

} // namespace

void logDebug(const std::string& message) {
    if (message.rfind("Connected ", 0) == 0) {
        rk::tests::crash::record("connected");
    }
}

void logWarning(const std::string& message) {
    if (contains(message, "Attempting reset of the connections")) {
        rk::tests::crash::record("repair");
    }
}

void logError(const std::string& message) {
    if (!contains(message, "Failed handling received message")) {
        rk::tests::crash::record("error " + message);
    }
}

} // namespace rk::utils
