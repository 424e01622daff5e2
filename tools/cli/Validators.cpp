#include "cli/Validators.h"

#include <rk/socket/SocketEndpoint.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <map>
#include <string>

namespace rk::tools {

namespace {

const std::map<std::string, double> secondsByUnit = {{"us", 1e-6}, {"ms", 1e-3}, {"s", 1.0}, {"min", 60.0}};

using Rewrite = std::function<std::string(const std::string&)>;

/// Replaces a value by what `rewrite` makes of it. Where that throws, the value is no `thing`.
CLI::Validator rewriting(const Rewrite& rewrite, const std::string& thing) {
    return CLI::Validator(
        [rewrite, thing](std::string& text) {
            try {
                text = rewrite(text);
                return std::string();
            } catch (const std::exception&) {
                return "'" + text + "' is no " + thing;
            }
        },
        "");
}

/// `text` in the parser's own unit. Throws CLI::ValidationError.
std::string inBaseUnit(std::string text, const CLI::Validator& units, const CLI::Validator& range) {
    const bool startsWithDigit = !text.empty() && text.front() >= '0' && text.front() <= '9';
    for (const CLI::Validator* const validator : {&units, &range}) {
        if (const std::string error = (*validator)(text); !startsWithDigit || !error.empty()) {
            throw CLI::ValidationError(error);
        }
    }
    return text;
}

template <class Number>
std::string inRange(const std::string& text, Number least, Number most) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || !(value >= least && value <= most)) {
        throw CLI::ValidationError(text);
    }
    return text;
}

/// Returns why an endpoint is refused, or an empty text. The library would cut a wrong port, and inproc reaches no other
/// process.
std::string faultOf(const std::string& text) {
    rk::socket::SocketEndpoint parsed;
    try {
        parsed = rk::socket::SocketEndpoint::FromString(text);
    } catch (const std::runtime_error&) {
        // The address is empty.
    }
    if (parsed.address.empty()) {
        return "'" + text + "' is no endpoint: tcp://HOST:PORT or ipc://PATH";
    }
    if (parsed.transport == rk::socket::Transport::Inproc) {
        return text + ": inproc endpoints reach no other process";
    }
    const bool hasPort = parsed.port != 0 && text.substr(text.rfind(':') + 1) == std::to_string(parsed.port);
    return parsed.transport == rk::socket::Transport::Ipc || hasPort
               ? ""
               : text + ": the port has to be a number from 1 to 65535";
}

} // namespace

CLI::Validator notEmpty() {
    return CLI::Validator([](const std::string& text) { return text.empty() ? "must not be empty" : ""; }, "");
}

CLI::Validator host() {
    const auto fault = [](const std::string& text) {
        const bool hasPort = std::count(text.begin(), text.end(), ':') == 1;
        return text.empty() || hasPort || text.find('/') != std::string::npos
                   ? "must be an address or an interface, without a port"
                   : "";
    };
    return CLI::Validator(fault, "");
}

CLI::Validator endpoint() {
    return CLI::Validator(faultOf, "");
}

CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t most) {
    // Without leading zeros, which would make the parser read it as octal.
    return rewriting(
        [least, most](const std::string& text) { return std::to_string(std::stoull(inRange(text, least, most))); },
        "whole number from " + std::to_string(least) + " to " + std::to_string(most));
}

CLI::Validator number(double least, double most) {
    return rewriting([least, most](const std::string& text) { return inRange(text, least, most); },
                     "number from " + CLI::detail::to_string(least) + " to " + CLI::detail::to_string(most));
}

CLI::Validator duration(double least, double most) {
    const std::string range =
        least > 0.0 ? " from " + CLI::detail::to_string(least) + " to " + CLI::detail::to_string(most) + " s" : "";
    return rewriting(
        [units = CLI::AsNumberWithUnit(secondsByUnit, CLI::AsNumberWithUnit::CASE_SENSITIVE),
         limits = CLI::Range(least, most)](const std::string& text) { return inBaseUnit(text, units, limits); },
        "duration" + range + ": a number and us, ms, s (also without a unit) or min");
}

CLI::Validator size(std::uint64_t most) {
    return rewriting(
        [units = CLI::AsSizeValue(true), range = CLI::Range(std::uint64_t{1}, most)](const std::string& text) {
            return inBaseUnit(text, units, range);
        },
        "size: a number of bytes up to " + std::to_string(most) + ", or a number and KiB, MiB, GiB, kB, MB or GB");
}

} // namespace rk::tools
