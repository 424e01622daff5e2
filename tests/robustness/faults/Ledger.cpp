#include "Ledger.h"

#include "Sites.h"
#include "support/Immortal.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

namespace rk::tests {

namespace {

enum class Life : std::uint64_t {
    Alive = 0x616c697665616c69,
    Dead = 0x6465616464656164
};

/// Precedes every block from `operator new`. The library's blocks form a list and are never returned to the system, so
/// that a double release is detected.
struct alignas(16) BlockHeader {
    Life life;
    std::size_t size;
    BlockHeader* next;
    int site;
    bool isArray;
    bool reachable;
};

std::atomic<BlockHeader*> newest{nullptr};
std::atomic<int> wrongReleases{0};
std::atomic<int> wrongForms{0};
std::mutex ledgerMutex;

char* contentOf(BlockHeader* header) {
    return reinterpret_cast<char*>(header + 1);
}

std::size_t entriesOf(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// Waits, because the kernel removes ended threads in the background.
std::size_t threadsLeft() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::size_t threads = entriesOf("/proc/self/task");
    while (threads != 1 && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
        threads = entriesOf("/proc/self/task");
    }
    return threads;
}

std::vector<BlockHeader*> aliveBlocks() {
    std::vector<BlockHeader*> blocks;
    for (BlockHeader* block = newest; block != nullptr; block = block->next) {
        if (block->life == Life::Alive) {
            block->reachable = false;
            blocks.push_back(block);
        }
    }
    std::sort(blocks.begin(), blocks.end());
    return blocks;
}

BlockHeader* blockAround(const std::vector<BlockHeader*>& blocks, std::uintptr_t address) {
    const auto behind =
        std::upper_bound(blocks.begin(), blocks.end(), address, [](std::uintptr_t wanted, BlockHeader* block) {
            return wanted < reinterpret_cast<std::uintptr_t>(block);
        });
    if (behind == blocks.begin()) {
        return nullptr;
    }
    BlockHeader* const block = *(behind - 1);
    const auto begin = reinterpret_cast<std::uintptr_t>(contentOf(block));
    return address >= begin && address <= begin + block->size ? block : nullptr;
}

/// Marks the blocks that are reachable from the words in `range`.
void mark(const std::vector<BlockHeader*>& blocks, Range range) {
    std::vector<Range> pending{range};
    while (!pending.empty()) {
        const Range words = pending.back();
        pending.pop_back();
        for (std::uintptr_t word = words.begin; word + sizeof word <= words.end; word += sizeof word) {
            std::uintptr_t value = 0;
            std::memcpy(&value, reinterpret_cast<const void*>(word), sizeof value);
            BlockHeader* const block = blockAround(blocks, value);
            if (block != nullptr && !block->reachable) {
                block->reachable = true;
                const auto begin = reinterpret_cast<std::uintptr_t>(contentOf(block));
                pending.push_back({begin, begin + block->size});
            }
        }
    }
}

} // namespace

Ledger& Ledger::instance() {
    return immortal<Ledger>();
}

void* Ledger::allocate(std::size_t size, bool isArray, int site) noexcept {
    void* const memory = std::malloc(sizeof(BlockHeader) + size);
    if (memory == nullptr) {
        return nullptr;
    }
    auto* const header = ::new (memory) BlockHeader{Life::Alive, size, nullptr, site, isArray, false};
    if (site >= 0) {
        header->next = newest;
        while (!newest.compare_exchange_weak(header->next, header)) {
        }
    }
    return contentOf(header);
}

void Ledger::release(void* address, bool isArray) noexcept {
    if (address == nullptr) {
        return;
    }
    BlockHeader* const header = static_cast<BlockHeader*>(address) - 1;
    if (header->life != Life::Alive) {
        ++wrongReleases;
        return;
    }
    header->life = Life::Dead;
    if (header->site < 0) {
        std::free(header);
    } else if (header->isArray != isArray) {
        ++wrongForms;
    }
}

void Ledger::socketOpened(void* socket) {
    const std::lock_guard<std::mutex> lock(ledgerMutex);
    sockets.push_back(socket);
}

void Ledger::socketClosed(void* socket) {
    const std::lock_guard<std::mutex> lock(ledgerMutex);
    const auto found = std::find(sockets.begin(), sockets.end(), socket);
    if (found == sockets.end()) {
        complaints.push_back("a native socket was closed that was not open");
    } else {
        sockets.erase(found);
    }
}

void Ledger::socketClosedByOthers(void* socket) {
    const std::lock_guard<std::mutex> lock(ledgerMutex);
    sockets.erase(std::remove(sockets.begin(), sockets.end(), socket), sockets.end());
}

std::size_t Ledger::openSockets() {
    const std::lock_guard<std::mutex> lock(ledgerMutex);
    return sockets.size();
}

void Ledger::contextMade(void* context) {
    const std::lock_guard<std::mutex> lock(ledgerMutex);
    contexts.push_back(context);
}

void Ledger::contextTerminated(void* context, bool ended) {
    const std::lock_guard<std::mutex> lock(ledgerMutex);
    const auto found = std::find(contexts.begin(), contexts.end(), context);
    if (found == contexts.end()) {
        if (context != nullptr) {
            complaints.push_back("a context was terminated that was not alive");
        }
    } else if (ended) {
        contexts.erase(found);
    }
}

void Ledger::begin() {
    descriptors = entriesOf("/proc/self/fd");
}

std::vector<std::string> Ledger::imbalances(bool contextMayLive) {
    if (!sockets.empty()) {
        complaints.push_back(std::to_string(sockets.size()) + " native sockets were not closed");
    }
    if (!contexts.empty() && !contextMayLive) {
        complaints.push_back("the context was not terminated");
    }
    if (contexts.empty()) {
        if (const std::size_t now = entriesOf("/proc/self/fd"); now != descriptors) {
            complaints.push_back(std::to_string(now) + " descriptors are open instead of " +
                                 std::to_string(descriptors));
        }
        if (const std::size_t threads = threadsLeft(); threads != 1) {
            complaints.push_back(std::to_string(threads) + " threads run instead of 1");
        }
    }
    if (wrongReleases > 0) {
        complaints.push_back("memory was released twice, or never allocated");
    }
    if (wrongForms > 0) {
        complaints.push_back("an array was released as if it were none, or the reverse");
    }
    addLeaks();
    return complaints;
}

/// Memory has leaked if it is not reachable from the static data of the libraries.
void Ledger::addLeaks() {
    const std::vector<BlockHeader*> blocks = aliveBlocks();
    for (const Range& range : Sites::instance().data()) {
        mark(blocks, range);
    }
    for (const BlockHeader* block : blocks) {
        if (!block->reachable) {
            complaints.push_back(std::to_string(block->size) + " bytes were not released, allocated at " +
                                 Sites::instance()[block->site].text());
        }
    }
}

} // namespace rk::tests
