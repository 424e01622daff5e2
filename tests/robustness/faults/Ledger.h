#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rk::tests {

/// Records the memory, native sockets and contexts that the library acquires and releases, and the descriptors and
/// threads of the process. Detects double and invalid releases.
class Ledger {
public:
    static Ledger& instance();

    /// Allocates for `operator new`. Returns null if memory is exhausted.
    static void* allocate(std::size_t size, bool isArray, int site) noexcept;
    /// Releases for `operator delete`.
    static void release(void* address, bool isArray) noexcept;

    void socketOpened(void* socket);
    void socketClosed(void* socket);
    void socketClosedByOthers(void* socket);
    std::size_t openSockets();
    void contextMade(void* context);
    /// \param ended false if the context still exists
    void contextTerminated(void* context, bool ended);

    /// Records the number of descriptors and threads.
    void begin();
    /// Called at the end of the process. Describes leaks and wrong releases.
    std::vector<std::string> imbalances(bool contextMayLive);

private:
    void addLeaks();

    std::vector<void*> sockets;
    std::vector<void*> contexts;
    std::vector<std::string> complaints;
    std::size_t descriptors = 0;
};

} // namespace rk::tests
