#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace rk::tools {

class StopSignals;

/// The reader of the output has gone.
class ReaderGone : public std::runtime_error {
public:
    ReaderGone() : std::runtime_error("the reader of the output is gone") {}
};

/// Writes a file or standard output in large pieces.
class Output {
public:
    /// Standard output.
    explicit Output(const StopSignals& stop);

    /// Creates or empties the file at `path`. "-" is standard output. Throws std::runtime_error with the reason.
    Output(const std::string& path, const StopSignals& stop);

    /// Writes the rest, as a best effort.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view bytes);

    /// The buffer, for appending. Call flushWhenFull() afterwards.
    std::string& pending() { return buffer; }
    bool hasPending() const { return !buffer.empty(); }

    void flushWhenFull() {
        if (buffer.size() >= bufferSize) {
            flush();
        }
    }

    /// Writes the buffer. Throws std::runtime_error with the reason, or ReaderGone, also when the reader takes nothing for
    /// a second after a signal.
    void flush();

    /// Like flush(), but throws ReaderGone even if the buffer is empty.
    void flushForReader();

private:
    static constexpr std::size_t bufferSize = 64UL * 1024;

    void writePiece(std::string_view& rest) const;
    void awaitReader() const;
    void openPipe();

    const StopSignals& stop;
    std::string name;
    int descriptor;
    bool owned;
    bool waits = false; ///< a write may block
    std::string buffer;
};

} // namespace rk::tools
