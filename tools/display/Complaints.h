#pragma once

#include <functional>
#include <string>
#include <utility>

namespace rk::tools {

/// What went wrong, one line each on standard error, while the work goes on.
class Complaints {
public:
    /// Something that makes the work incomplete: the exit status tells.
    void add(const std::string& text);

    /// A failure that the exit status tells in another way.
    void report(const std::string& text) const;

    /// Something that the user may want to know.
    void remark(const std::string& text) const;

    bool any() const { return added; }

    /// Has `makeRoom` called before each line, to remove from the terminal what is redrawn in place. An empty function
    /// ends this.
    void beforeEachLine(std::function<void()> makeRoom) { prepare = std::move(makeRoom); }

private:
    void write(const char* colour, const std::string& text) const;

    std::function<void()> prepare;
    bool added = false;
};

} // namespace rk::tools
