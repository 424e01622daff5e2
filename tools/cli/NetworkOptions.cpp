#include "cli/NetworkOptions.h"

#include "cli/Validators.h"

#include <rk/socket/Network.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace rk::tools {

namespace {

namespace Network = rk::socket::Network;

constexpr const char* group = "Network";

/// Adds the option `name`, whose value `set` passes on to the library.
template <class Value, class Set>
CLI::Option* addSetting(CLI::App& command, const std::string& name, const char* placeholder, const Set& set,
                        const std::string& description) {
    const auto apply = [name, set](const Value& value) {
        try {
            set(value);
        } catch (const std::invalid_argument& refusal) {
            throw CLI::ValidationError(name, refusal.what());
        }
    };
    return command.add_option_function<Value>(name, apply, description)->type_name(placeholder)->group(group);
}

} // namespace

void addNetwork(CLI::App& command, bool listens) {
    if (listens) {
        addSetting<std::string>(command, "--listen-on", "HOST", Network::listenOn,
                                "on TCP, listen on this address or interface alone, for instance localhost")
            ->check(notEmpty());
        addSetting<std::int64_t>(command, "--max-message-size", "SIZE", Network::setMaxMessageSize,
                                 "disconnect a peer that sends a longer message")
            ->transform(size(std::numeric_limits<std::int64_t>::max()));
    }
    addSetting<double>(
        command, "--peer-timeout", "TIME",
        [](double seconds) { Network::setPeerTimeout(static_cast<unsigned int>(std::ceil(std::min(seconds, 1e9)))); },
        "notice within TIME, in whole seconds, that a peer's machine has vanished")
        ->transform(duration());
    command.add_flag_callback("--ipv6", [] { Network::setIpv6(true); }, "use IPv6, too")->group(group);
}

} // namespace rk::tools
