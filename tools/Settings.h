#pragma once

#include <rk/socket/ClosePolicy.h>
#include <rk/socket/Protocol.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

/// How received blocks are written.
enum class Format {
    Text,
    Hex,
    Raw
};

/// What the command line asks for. A subcommand leaves what it has no option for as it is here.
struct Settings {
    rk::socket::Protocol::Protocol protocol = rk::socket::Protocol::Undef;
    std::vector<std::string> endpoints;
    bool verbose = false;

    // Contents
    std::vector<std::string> messages;
    std::vector<std::string> files;
    bool lines = false;
    bool whole = false;
    bool hex = false;
    Format format = Format::Text;
    std::vector<std::string> protoFiles;
    std::vector<std::string> protoPaths;
    std::string type;
    std::string replyType;
    bool allFields = false;

    // When and how much
    std::optional<std::uint64_t> count;
    std::optional<std::chrono::nanoseconds> timeout;
    std::chrono::nanoseconds interval{0};
    std::chrono::nanoseconds delay{0};
    double speed = 1.0;
    std::uint64_t maxSize = 64ULL * 1024 * 1024;

    // The socket
    unsigned int rate = 0;
    std::optional<int> fifo;
    rk::socket::ClosePolicy::ClosePolicy closePolicy = rk::socket::ClosePolicy::DropPending;

    // What else a subscriber or publisher does
    bool stats = false;
    std::string record;
    std::string replay;

    // How a request is answered
    std::optional<std::string> reply;
    std::string replyFile;
    bool echo = false;
    std::string command;
};

} // namespace rk::tools
