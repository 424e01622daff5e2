#include "traffic/Probe.h"

#include "messages/Text.h"
#include "traffic/Handshake.h"
#include "traffic/Keys.h"

#include <zmq.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace rk::tools {

namespace {

using rk::socket::SocketEndpoint;

constexpr std::size_t signatureSize = 10;
constexpr std::size_t versionPlace = 10;
constexpr std::size_t mechanismPlace = 12;
constexpr std::size_t mechanismSize = 20;

/// Our greeting: ZMTP 3.0 without security.
std::string greeting() {
    std::string bytes(greetingSize, '\0');
    bytes[0] = '\xFF';
    bytes[signatureSize - 1] = '\x7F';
    bytes[versionPlace] = '\3';
    bytes.replace(mechanismPlace, 4, "NULL");
    return bytes;
}

/// Returns a property from the metadata of a READY command.
std::string property(std::string_view metadata, std::string_view name) {
    while (metadata.size() > 5) {
        const auto nameSize = static_cast<unsigned char>(metadata[0]);
        if (metadata.size() < nameSize + 5U) {
            break;
        }
        const std::string_view key = metadata.substr(1, nameSize);
        metadata.remove_prefix(1U + nameSize);
        std::size_t size = 0;
        for (int place = 0; place < 4; ++place) {
            size = size << 8U | static_cast<unsigned char>(metadata[static_cast<std::size_t>(place)]);
        }
        const std::string_view value = metadata.substr(4, size);
        if (key == name) {
            return std::string(value);
        }
        metadata.remove_prefix(4 + value.size());
    }
    return {};
}

void readReady(Line& line, Findings& findings) {
    constexpr char command = 4;
    const std::string_view name = "\5READY";
    const std::string head = line.read(2);
    const std::string body = head.size() == 2 ? line.read(static_cast<unsigned char>(head[1])) : std::string();
    if (head.size() != 2 || head[0] != command || body.compare(0, name.size(), name) != 0) {
        throw Trouble(line.isClosed() ? "the other side closes the connection: does it refuse this client?"
                                      : "the other side greets as ZeroMQ does, and then is silent");
    }
    findings.socketType = property(std::string_view(body).substr(name.size()), "Socket-Type");
}

void describeOtherThings(const Line& line, const std::string& answer) {
    if (!answer.empty()) {
        throw Trouble("something listens there that is no ZeroMQ socket: it says \"" + printable(answer) + "\"");
    }
    throw Trouble(line.isClosed() ? "something listens there that is no ZeroMQ socket: it closes the connection"
                                  : "something listens there that is no ZeroMQ socket, or is stuck: it says nothing");
}

/// Exchanges greetings. Returns the security mechanism of the other side.
std::string greet(Line& line, Findings& findings) {
    // A socket with another mechanism names it once it knows our version, and hangs up once it knows our mechanism.
    const std::string ours = greeting();
    line.write(ours.substr(0, versionPlace + 1));
    const std::string start = line.read(signatureSize);
    if (start.size() < signatureSize || start[0] != '\xFF' || start[signatureSize - 1] != '\x7F') {
        describeOtherThings(line, start + line.read(start.empty() ? 0 : greetingSize));
    }
    const std::string rest = line.read(greetingSize - signatureSize);
    if (rest.size() < greetingSize - signatureSize) {
        throw Trouble("a ZeroMQ socket of a version before 3.0, or one that is stuck, listens there");
    }
    const char* const name = rest.data() + (mechanismPlace - signatureSize);
    const std::string mechanism(name, strnlen(name, mechanismSize));
    findings.description =
        "ZMTP " + std::to_string(rest[0]) + "." + std::to_string(rest[1]) + ", mechanism " + printable(mechanism);
    return mechanism;
}

void describe(Line& line, const std::string& mechanism, Findings& findings) {
    if (mechanism != "NULL") {
        throw Trouble("the other side wants security of the kind " + printable(mechanism));
    }
    line.write(greeting().substr(versionPlace + 1));
    readReady(line, findings);
    findings.description += ", a " + printable(findings.socketType) + " socket";
}

struct Candidate {
    int type;         ///< of our socket
    const char* peer; ///< what it connects to
    const char* description;
};

// Any other type could take a message from the other side.
const std::array<Candidate, 4> candidates = {{{ZMQ_SUB, "PUB", "a PUB or XPUB socket"},
                                              {ZMQ_REQ, "REP", "a REP or ROUTER socket"},
                                              {ZMQ_PUSH, "PULL", "a PULL socket"},
                                              {ZMQ_PUB, "SUB", "a SUB or XSUB socket"}}};

/// Tests whether both sides trust each other.
void authenticate(const Line& line, const SocketEndpoint& endpoint, const std::string& mechanism, const Keys& keys,
                  Findings& findings) {
    if (mechanism != "CURVE") {
        throw Trouble("the other side does not encrypt, its security is of the kind " + printable(mechanism));
    }
    auto outcome = Handshake::Refused;
    for (const Candidate& candidate : candidates) {
        Line server = line.another();
        server.connectTo(endpoint);
        outcome = shakeHands(server, endpoint, keys, candidate.type);
        if (outcome == Handshake::Done) {
            findings.socketType = candidate.peer;
            findings.description += std::string(", keys trusted by both sides, ") + candidate.description;
            return;
        }
        if (outcome != Handshake::Refused) {
            break;
        }
    }
    if (outcome == Handshake::WrongKey) {
        throw Trouble("the other side has another key than the one in " + keys.trustFile);
    }
    if (outcome == Handshake::Unanswered) {
        throw Trouble("the other side greets as ZeroMQ does, and then is silent");
    }
    throw Trouble("the other side does not trust this key, or is a PUSH, DEALER, REQ or PAIR socket: " +
                  keys.own.publicKey);
}

} // namespace

Findings probe(const SocketEndpoint& endpoint, const Keys* keys, Line line) {
    Findings findings;
    try {
        line.connectTo(endpoint);
        const std::string mechanism = greet(line, findings);
        if (keys != nullptr) {
            authenticate(line, endpoint, mechanism, *keys, findings);
        } else {
            describe(line, mechanism, findings);
        }
    } catch (const Trouble& trouble) {
        findings.trouble = trouble.what();
    }
    return findings;
}

std::optional<std::string> troubleOf(const Findings& findings, const Pattern& pattern) {
    const bool isKnown = !findings.trouble && !findings.socketType.empty();
    if (isKnown && std::count(pattern.others.begin(), pattern.others.end(), findings.socketType) == 0) {
        return "a " + printable(findings.socketType) + " socket listens there, which does not talk to a " +
               pattern.name;
    }
    return findings.trouble;
}

} // namespace rk::tools
