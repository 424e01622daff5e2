#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rk::tests {

/// What the library has taken and not given back: memory, native sockets, contexts; and what the process has of
/// descriptors and threads. Whatever is given back twice, or was never taken, is noted.
class Ledger {
public:
    static Ledger& instance();

    /// Memory for `operator new`; null when there is none.
    static void* allocate(std::size_t size, bool isArray, int site) noexcept;
    /// Memory of `operator delete`.
    static void release(void* address, bool isArray) noexcept;

    void socketOpened(void* socket);
    void socketClosed(void* socket);
    void socketClosedByOthers(void* socket);
    std::size_t openSockets();
    void contextMade(void* context);
    /// `ended` unless the context lives on.
    void contextTerminated(void* context, bool ended);

    /// Notes how many descriptors and threads there are.
    void begin();
    /// What is wrong, in words, at the end of the process: what was not given back, or not as it should have been.
    std::vector<std::string> imbalances(bool contextMayLive);

private:
    void addLeaks();
    void complain(const std::string& text);

    std::vector<void*> sockets;
    std::vector<void*> contexts;
    std::vector<std::string> complaints;
    std::size_t descriptors = 0;
};

} // namespace rk::tests
