#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace rk::tests {

/// The lines that the library logged, in order: "error: Something failed".
class Lines {
public:
    static Lines& instance();

    /// The calling thread is the one whose lines `takeOwn` gives.
    void begin();
    static bool isOwn();

    void add(const std::string& level, const std::string& text);

    /// The lines of the main thread since the last time.
    std::vector<std::string> takeOwn();
    /// The lines of other threads since the last time.
    std::vector<std::string> takeOthers();
    /// All lines.
    std::vector<std::string> all();

private:
    std::mutex mutex;
    std::vector<std::string> own;
    std::vector<std::string> others;
    std::vector<std::string> everything;
};

} // namespace rk::tests
