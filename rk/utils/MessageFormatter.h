#pragma once
#pragma GCC system_header // users are not warned that the destructor is not virtual

#include <rk/utils/IMessageFormatter.h>

#include <string>

namespace rk::utils {

/// A message formatter with a fixed header, "[name]".
class RK_SOCKET_EXPORT MessageFormatter : public IMessageFormatter {
public:
    /// Copies `name`.
    explicit MessageFormatter(const std::string& name);

    /// Returns "[" + name + "]".
    std::string messageHeader() const override;

private:
    std::string name;
};

} // namespace rk::utils
