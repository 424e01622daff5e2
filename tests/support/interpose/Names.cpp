#include "Names.h"

#include "Interpose.h"

using namespace rk::tests;

namespace {

ifaddrs* latest = nullptr;
addrinfo* latestOfName = nullptr;

} // namespace

namespace rk::tests {

ifaddrs* latestInterfaces() {
    return latest;
}

addrinfo* latestAddresses() {
    return latestOfName;
}

} // namespace rk::tests

extern "C" {

int getifaddrs(ifaddrs** list) noexcept {
    static auto* const real = next<int(ifaddrs**)>("getifaddrs");
    Call call{Function::Getifaddrs, __builtin_return_address(0)};
    const auto go = [&] {
        const int result = real(list);
        latest = *list;
        return result;
    };
    return static_cast<int>(perform(call, Real(go)));
}

int getaddrinfo(const char* __restrict name, const char* __restrict service, const addrinfo* __restrict hints,
                addrinfo** __restrict list) {
    static auto* const real = next<int(const char*, const char*, const addrinfo*, addrinfo**)>("getaddrinfo");
    Call call{Function::Getaddrinfo, __builtin_return_address(0), nullptr, name,
              hints != nullptr ? hints->ai_family : AF_UNSPEC};
    const auto go = [&] {
        const int result = real(name, service, hints, list);
        latestOfName = *list;
        return result;
    };
    return static_cast<int>(perform(call, Real(go)));
}

} // extern "C"
