#pragma once
#pragma GCC system_header // users are not warned that no function of the class holds its vtable

#include <rk/Export.h>

#include <string>

namespace rk::utils {

/// What an object that writes messages calls itself.
///
/// The text of `messageHeader` stands in front of every message that `formatMessage` makes. The destructor is
/// protected: no object is destroyed through a pointer to this interface. Any thread may call both operations, as far
/// as the derived class allows it.
class RK_SOCKET_EXPORT IMessageFormatter {
public:
    IMessageFormatter() = default;

    /// The text that identifies the object.
    virtual std::string messageHeader() const = 0;

    /// `message` behind the header: "header: message". Throws nothing of its own.
    std::string formatMessage(const std::string& message) const;

protected:
    /// Copied as part of a derived object.
    IMessageFormatter(const IMessageFormatter&) = default;
    /// Assigned as part of a derived object.
    IMessageFormatter& operator=(const IMessageFormatter&) = default;
    ~IMessageFormatter() = default;
};

} // namespace rk::utils
