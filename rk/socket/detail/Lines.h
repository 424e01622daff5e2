#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace rk::socket::detail {

/// The lines of a file, for a parser that names the line in its errors. Copies no text, since it may be secret.
class Lines {
public:
    /// `fileText` and `filePath` have to outlive the object.
    Lines(std::string_view fileText, const std::string& filePath) : text(fileText), path(filePath) {}

    /// Returns the next line without its end, "\n" or "\r\n", or nothing at the end of the file.
    std::optional<std::string_view> next();

    /// Throws `std::runtime_error` for the line that `next` has returned, or has missed at the end of the file.
    [[noreturn]] void refuse(const std::string& reason) const;

private:
    std::string_view text;
    const std::string& path;
    unsigned int number = 0;
};

} // namespace rk::socket::detail
