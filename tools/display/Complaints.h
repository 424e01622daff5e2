#pragma once

#include <string>

namespace rk::tools {

/// What went wrong, one line each on standard error, while the work goes on.
class Complaints {
public:
    /// Something that makes the work incomplete: the exit status tells.
    void add(const std::string& text);

    /// Something that the user may want to know.
    void remark(const std::string& text) const;

    bool any() const { return added; }

private:
    bool added = false;
};

} // namespace rk::tools
