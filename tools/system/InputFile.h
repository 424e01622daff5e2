#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace rk::tools {

class StopSignals;

/// A file or standard input, read as it comes. A request to stop looks like its end.
class InputFile {
public:
    /// "-" is standard input. Throws std::runtime_error with the reason.
    InputFile(const std::string& path, const StopSignals& stop);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// What to call it in a text: its path, or "standard input".
    const std::string& name() const { return fileName; }

    /// Up to `size` bytes; fewer only at the end.
    std::string read(std::size_t size);

    /// The next line, without its end.
    std::optional<std::string> readLine();

    std::string readAll();

    /// Its length in bytes, if it has one that is known.
    std::optional<std::uint64_t> size() const;

private:
    /// Gets more into the buffer; false at the end.
    bool fill();

    const StopSignals& stop;
    std::string fileName;
    int descriptor;
    bool owned;
    std::string buffer;
    std::size_t position = 0;
};

} // namespace rk::tools
