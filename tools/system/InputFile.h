#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace rk::tools {

class StopSignals;

/// Reads a file or standard input. A signal looks like its end.
class InputFile {
public:
    /// "-" is standard input. Throws std::runtime_error with the reason.
    InputFile(const std::string& path, const StopSignals& stop);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Its path, or "standard input".
    const std::string& name() const { return fileName; }

    /// Returns `size` bytes, or fewer at the end.
    std::string read(std::size_t size);

    /// Returns the next line, without its end.
    std::optional<std::string> readLine();

    std::string readAll();

    /// Returns its length in bytes, if it is a regular file.
    std::optional<std::uint64_t> size() const;

private:
    /// Reads more into the buffer. Returns false at the end.
    bool fill();

    const StopSignals& stop;
    std::string fileName;
    int descriptor;
    bool owned;
    std::string buffer;
    std::size_t position = 0;
};

} // namespace rk::tools
