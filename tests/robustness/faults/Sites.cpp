#include "Sites.h"

#include "Outcomes.h"
#include "support/Immortal.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <link.h>
#include <stdexcept>
#include <string_view>
#include <unwind.h>

namespace rk::tests {

namespace {

constexpr std::array<std::string_view, 3> carrierNames{"libstdc++.so", "libspdlog.so", "libprotobuf.so"};

bool isNamed(const dl_phdr_info& object, std::string_view name) {
    return std::string_view(object.dlpi_name).find(name) != std::string_view::npos;
}

struct Segments {
    std::string_view name;
    Range code;
    Range data;
    std::uintptr_t base = 0;
};

int collect(dl_phdr_info* object, std::size_t /*size*/, void* argument) {
    auto& found = *static_cast<Segments*>(argument);
    if (!isNamed(*object, found.name)) {
        return 0;
    }
    found.base = object->dlpi_addr;
    for (int index = 0; index < object->dlpi_phnum; ++index) {
        const auto& header = object->dlpi_phdr[index];
        const std::uintptr_t begin = object->dlpi_addr + header.p_vaddr;
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            found.code = {begin, begin + header.p_memsz};
        } else if (header.p_type == PT_LOAD && (header.p_flags & PF_W) != 0) {
            found.data = {begin, begin + header.p_memsz};
        }
    }
    return 1;
}

Segments segmentsOf(std::string_view name) {
    Segments found;
    found.name = name;
    if (dl_iterate_phdr(collect, &found) == 0) {
        throw std::runtime_error(std::string(name) + " is not loaded");
    }
    return found;
}

} // namespace

Sites& Sites::instance() {
    return immortal<Sites>();
}

void Sites::load(const std::string& file) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> fields = split(line, "|");
        sites.push_back({std::stoul(fields.at(0), nullptr, 16), fields.at(1), fields.at(2), std::stoi(fields.at(3)),
                         !fields.at(4).empty()});
    }
    std::sort(sites.begin(), sites.end(), [](const Site& a, const Site& b) { return a.offset < b.offset; });
    const Segments own = segmentsOf("librk-socket.so");
    base = own.base;
    library = own.code;
    writable.push_back(own.data);
    for (const std::string_view name : carrierNames) {
        const Segments segments = segmentsOf(name);
        carriers.push_back(segments.code);
        writable.push_back(segments.data);
    }
}

int Sites::of(const void* address) const {
    const auto caller = reinterpret_cast<std::uintptr_t>(address);
    if (library.holds(caller)) {
        return at(caller);
    }
    return isCarrier(caller) ? ofStack() : elsewhere;
}

int Sites::at(std::uintptr_t address) const {
    const auto found = std::lower_bound(sites.begin(), sites.end(), address - base,
                                        [](const Site& site, std::uintptr_t offset) { return site.offset < offset; });
    return found != sites.end() && found->offset == address - base ? static_cast<int>(found - sites.begin()) : unlisted;
}

int Sites::ofStack() const {
    struct Walk {
        const Sites* sites;
        bool reachedCarrier;
        int found;
    } walk{this, false, elsewhere};
    _Unwind_Backtrace(
        [](_Unwind_Context* context, void* argument) {
            auto& state = *static_cast<Walk*>(argument);
            const std::uintptr_t address = _Unwind_GetIP(context);
            if (state.sites->isCarrier(address)) {
                state.reachedCarrier = true;
                return _URC_NO_REASON;
            }
            if (!state.reachedCarrier) {
                return _URC_NO_REASON; // the harness's own frames
            }
            if (state.sites->library.holds(address)) {
                state.found = state.sites->at(address);
            }
            return _URC_END_OF_STACK;
        },
        &walk);
    return walk.found;
}

bool Sites::isCarrier(std::uintptr_t address) const {
    return std::any_of(carriers.begin(), carriers.end(), [&](const Range& range) { return range.holds(address); });
}

} // namespace rk::tests
