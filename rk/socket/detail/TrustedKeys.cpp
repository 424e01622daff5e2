#include <rk/socket/detail/KeyFile.h>
#include <rk/socket/detail/Lines.h>
#include <rk/socket/detail/ProtectedFile.h>
#include <rk/socket/detail/TrustedKeys.h>

#include <algorithm>
#include <charconv>
#include <sys/stat.h>

namespace rk::socket::detail {

namespace {

constexpr std::string_view tcpPrefix = "tcp://";
constexpr std::string_view anyPort = "*";

/// Removes the next word from `line` and returns it.
std::string takeWord(std::string_view& line) {
    static constexpr char characters[] = {' ', '\t'};
    constexpr std::string_view blanks(characters, sizeof characters);
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return std::string(word);
}

bool isPrintable(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '!' && c <= '~'; });
}

std::string place(const std::string& host, std::string_view port) {
    return host + ":" + std::string(port);
}

/// Returns the port without leading zeros, or "*". Returns an empty string if it is neither.
std::string normalizedPort(std::string_view port) {
    unsigned short number = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (error == std::errc() && end == port.data() + port.size() && number != 0) {
        return std::to_string(number);
    }
    return port == anyPort ? std::string(port) : std::string();
}

} // namespace

TrustedKeys::TrustedKeys(const std::string& path) {
    std::string text;
    readProtectedFile(path, {S_IWGRP | S_IWOTH, "other users can change it"}, text);
    Lines lines(text, path);
    while (const auto line = lines.next()) {
        add(*line, lines);
    }
}

void TrustedKeys::add(std::string_view line, const Lines& lines) {
    const std::string key = takeWord(line);
    if (key.empty() || key.front() == '#') { // a comment: no key starts with '#', since its value would exceed 32 bits
        return;
    }
    if (!isKey(key)) {
        lines.refuse("not a key");
    }
    const std::string name = takeWord(line);
    if (name.empty() || name.front() == '#') {
        lines.refuse("no name or endpoint after the key");
    }
    if (!isPrintable(name)) {
        lines.refuse("a name that is not printable");
    }
    // A misspelled endpoint, such as "server:5555", must not admit a server's key as a client.
    if (name.find(':') == std::string::npos) {
        clients.insert(key);
    } else {
        addServer(key, name, lines);
    }
}

void TrustedKeys::addServer(const std::string& key, const std::string& endpoint, const Lines& lines) {
    const std::size_t colon = endpoint.rfind(':');
    const std::string port = normalizedPort(std::string_view(endpoint).substr(colon + 1));
    if (endpoint.compare(0, tcpPrefix.size(), tcpPrefix) != 0 || colon <= tcpPrefix.size() || port.empty()) {
        lines.refuse("not an endpoint like tcp://host:port or tcp://host:*");
    }
    const std::string host = endpoint.substr(tcpPrefix.size(), colon - tcpPrefix.size());
    const auto entry = servers.emplace(place(host, port), key).first;
    if (entry->second != key) {
        lines.refuse("a second key for " + endpoint);
    }
}

std::string TrustedKeys::serverKey(const SocketEndpoint& endpoint) const {
    for (const std::string& port : {std::to_string(endpoint.port), std::string(anyPort)}) {
        const auto found = servers.find(place(endpoint.address, port));
        if (found != servers.end()) {
            return found->second;
        }
    }
    return {};
}

} // namespace rk::socket::detail
