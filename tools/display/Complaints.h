#pragma once

#include <functional>
#include <string>
#include <utility>

namespace rk::tools {

/// Writes lines on standard error while the work continues.
class Complaints {
public:
    /// Reports a failure that makes the exit status 1.
    void add(const std::string& text);

    /// Reports a failure with another exit status.
    void report(const std::string& text) const;

    /// Tells the user something that is no failure.
    void remark(const std::string& text) const;

    bool any() const { return added; }

    /// Calls `makeRoom` before each line, to clear what is redrawn in place. An empty function ends this.
    void beforeEachLine(std::function<void()> makeRoom) { prepare = std::move(makeRoom); }

private:
    void write(const char* colour, const std::string& text) const;

    std::function<void()> prepare;
    bool added = false;
};

} // namespace rk::tools
