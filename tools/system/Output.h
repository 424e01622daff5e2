#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace rk::tools {

class StopSignals;

/// Whoever read the output has gone.
class ReaderGone : public std::runtime_error {
public:
    ReaderGone() : std::runtime_error("the reader of the output is gone") {}
};

/// A file or standard output, written to in large pieces.
class Output {
public:
    /// Standard output.
    explicit Output(const StopSignals& stop);

    /// The file at `path`, made anew; "-" is standard output. Throws std::runtime_error with the reason.
    Output(const std::string& path, const StopSignals& stop);

    /// Hands on what is left, if that can still be done.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view bytes);

    /// What has been written and not handed on, to which more may be appended. Call flushWhenFull() then.
    std::string& pending() { return buffer; }
    bool hasPending() const { return !buffer.empty(); }

    void flushWhenFull() {
        if (buffer.size() >= bufferSize) {
            flush();
        }
    }

    /// Hands on what has been written. Throws ReaderGone, also when the reader takes nothing for a second after the
    /// request to stop; or std::runtime_error with the reason.
    void flush();

    /// Like flush(), but throws ReaderGone also when there is nothing to hand on.
    void flushForReader();

    bool isTerminal() const;

private:
    static constexpr std::size_t bufferSize = 64UL * 1024;

    void writePiece(std::string_view& rest) const;
    void awaitReader() const;
    void openPipe();

    const StopSignals& stop;
    std::string name;
    int descriptor;
    bool owned;
    bool waits = true; ///< a write may block
    bool isRegular = false;
    std::string buffer;
};

} // namespace rk::tools
