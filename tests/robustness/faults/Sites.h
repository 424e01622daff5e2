#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace rk::tests {

/// A place in the library that calls a function that can fail.
struct Site {
    std::uintptr_t offset; ///< of the return address, from the start of the library
    std::string caller;
    std::string callee;
    int number;     ///< among the calls of `callee` by `caller`
    bool mayBeIdle; ///< need not be reached

    std::string text() const { return caller + " -> " + callee + " #" + std::to_string(number); }
};

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    bool holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

/// Finds the site of a call.
class Sites {
public:
    static constexpr int elsewhere = -1; ///< not from the library
    static constexpr int unlisted = -2;  ///< from the library, but the list has no such site

    static Sites& instance();

    /// Reads the list that find-sites has written.
    void load(const std::string& file);

    const std::vector<Site>& all() const { return sites; }
    const Site& operator[](int site) const { return sites[static_cast<std::size_t>(site)]; }

    /// Returns the site of the call that returns to `address`. A call from the C++ library, spdlog or protobuf belongs
    /// to the site that called these.
    int of(const void* address) const;

    /// Returns the writable data of the library and of the libraries that make calls for it.
    const std::vector<Range>& data() const { return writable; }

private:
    int at(std::uintptr_t address) const;
    int ofStack() const;
    bool isCarrier(std::uintptr_t address) const;

    std::vector<Site> sites;
    Range library;
    std::uintptr_t base = 0;
    std::vector<Range> carriers;
    std::vector<Range> writable;
};

} // namespace rk::tests
