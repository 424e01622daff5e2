#pragma once
#pragma GCC system_header // users are not warned that the destructor is not virtual

#include <rk/utils/IMessageFormatter.h>

#include <string>

namespace rk::utils {

/// A message formatter whose header is a name, given once: "[name]".
class RK_SOCKET_EXPORT MessageFormatter : public IMessageFormatter {
public:
    /// Keeps a copy of `name`.
    explicit MessageFormatter(const std::string& name);

    /// "[" + name + "]".
    std::string messageHeader() const override;

private:
    std::string name;
};

} // namespace rk::utils
