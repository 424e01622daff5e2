#pragma once
#pragma GCC system_header // users are not warned that no function of the class holds its vtable

#include <rk/Export.h>

#include <string>

namespace rk::utils {

/// Prefixes messages with a header that identifies the object.
///
/// Derive from it and return the header in `messageHeader`. The destructor is protected: do not destroy an object
/// through a pointer to this interface. Any thread may call both operations, unless the derived class restricts it.
class RK_SOCKET_EXPORT IMessageFormatter {
public:
    IMessageFormatter() = default;

    /// Returns the header.
    virtual std::string messageHeader() const = 0;

    /// Returns header + ": " + `message`. Throws what `messageHeader` throws, or `std::bad_alloc`.
    std::string formatMessage(const std::string& message) const;

protected:
    /// Copies as part of a derived object.
    IMessageFormatter(const IMessageFormatter&) = default;
    /// Assigns as part of a derived object.
    IMessageFormatter& operator=(const IMessageFormatter&) = default;
    ~IMessageFormatter() = default;
};

} // namespace rk::utils
