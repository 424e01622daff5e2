#include "traffic/Probe.h"

#include "messages/Text.h"
#include "system/StopSignals.h"
#include "traffic/Endpoint.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <set>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace rk::tools {

namespace {

using rk::socket::SocketEndpoint;

constexpr std::size_t greetingSize = 64;
constexpr std::size_t signatureSize = 10;
constexpr std::size_t versionPlace = 10;
constexpr std::size_t mechanismPlace = 12;
constexpr std::size_t mechanismSize = 20;

/// Why an endpoint cannot be probed further, for people.
class Trouble : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A connection on which nobody is waited for longer than the limit.
class Line {
public:
    Line(std::chrono::milliseconds limitOfStep, const StopSignals& stopSignals)
        : limit(limitOfStep), stop(stopSignals) {}
    ~Line() { close(); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    void connectTo(const SocketEndpoint& endpoint) {
        if (endpoint.transport == rk::socket::Transport::Ipc) {
            connectToFile(endpoint.address);
        } else {
            connectToHost(endpoint);
        }
    }

    void write(std::string_view bytes) const {
        static_cast<void>(!::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    /// Up to `size` bytes. Fewer when no more come in time, or when the other side closes the connection.
    std::string read(std::size_t size) {
        std::string bytes(size, '\0');
        std::size_t got = 0;
        while (got < size && await(POLLIN)) {
            const ssize_t result = ::recv(descriptor, &bytes[got], size - got, 0);
            closed = result == 0 || (result < 0 && errno != EAGAIN && errno != EINTR);
            if (closed) {
                break;
            }
            got += static_cast<std::size_t>(std::max<ssize_t>(result, 0));
        }
        bytes.resize(got);
        return bytes;
    }

    bool isClosed() const { return closed; }

private:
    void close() {
        if (descriptor >= 0) {
            ::close(descriptor);
            descriptor = -1;
        }
    }

    /// False when the limit is over, or when told to stop.
    bool await(short event) const {
        std::array<pollfd, 2> items = {{{descriptor, event, 0}, {stop.descriptor(), POLLIN, 0}}};
        return ::poll(items.data(), items.size(), static_cast<int>(limit.count())) > 0 && !stop.requested();
    }

    /// The error number, or 0.
    int tryAddress(int family, const sockaddr* address, socklen_t length) {
        close();
        descriptor = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (descriptor < 0) {
            return errno;
        }
        if (::connect(descriptor, address, length) == 0) {
            return 0;
        }
        if (errno != EINPROGRESS) {
            return errno;
        }
        int error = 0;
        socklen_t size = sizeof error;
        if (!await(POLLOUT)) {
            return ETIMEDOUT;
        }
        ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
        return error;
    }

    void connectToFile(const std::string& path) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path) {
            throw Trouble("the path is too long");
        }
        path.copy(address.sun_path, path.size());
        const bool isAbstract = path.front() == '@';
        if (isAbstract) {
            address.sun_path[0] = '\0';
        }
        const auto length = offsetof(sockaddr_un, sun_path) + path.size() + (isAbstract ? 0 : 1);
        refuse(tryAddress(AF_UNIX, reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(length)));
    }

    void connectToHost(const SocketEndpoint& endpoint) {
        addrinfo hints = {};
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_family = AF_INET;
        addrinfo* found = nullptr;
        const std::string port = std::to_string(endpoint.port);
        const int failure = ::getaddrinfo(endpoint.address.c_str(), port.c_str(), &hints, &found);
        const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, ::freeaddrinfo);
        if (failure != 0) {
            throw Trouble("there is no host '" + endpoint.address + "': " + ::gai_strerror(failure));
        }
        int error = 0;
        for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
            error = tryAddress(address->ai_family, address->ai_addr, address->ai_addrlen);
            if (error == 0) {
                return;
            }
        }
        refuse(error);
    }

    static void refuse(int error) {
        if (error == ECONNREFUSED || error == ENOENT) {
            throw Trouble(std::string("nothing listens there: ") + std::strerror(error));
        }
        if (error == ETIMEDOUT || error == EAGAIN) {
            throw Trouble(
                "no answer to the attempt to connect: the host is down, a firewall drops it, or the listener is "
                "stuck");
        }
        if (error != 0) {
            throw Trouble(std::string("cannot connect: ") + std::strerror(error));
        }
    }

    std::chrono::milliseconds limit;
    const StopSignals& stop;
    int descriptor = -1;
    bool closed = false;
};

/// What we say of ourselves: ZMTP 3.0 without security.
std::string greeting() {
    std::string bytes(greetingSize, '\0');
    bytes[0] = '\xFF';
    bytes[signatureSize - 1] = '\x7F';
    bytes[versionPlace] = '\3';
    bytes.replace(mechanismPlace, 4, "NULL");
    return bytes;
}

/// The value of a property in the metadata of a READY command.
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

void examine(Line& line, Findings& findings) {
    // A socket that wants another mechanism says so when it knows our version, and hangs up when it knows our mechanism.
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
    const std::string mechanism = rest.substr(mechanismPlace - signatureSize, mechanismSize).c_str();
    findings.description =
        "ZMTP " + std::to_string(rest[0]) + "." + std::to_string(rest[1]) + ", mechanism " + printable(mechanism);
    if (mechanism != "NULL") {
        throw Trouble("the other side wants security of the kind " + printable(mechanism));
    }
    line.write(ours.substr(versionPlace + 1));
    readReady(line, findings);
    findings.description += ", a " + printable(findings.socketType) + " socket";
}

struct Peers {
    const char* self;
    std::set<std::string> others;
};

const Peers& peersOf(Pattern pattern) {
    static const std::map<Pattern, Peers> peers = {
        {Pattern::Publish, {"publisher", {"SUB", "XSUB"}}}, {Pattern::Subscribe, {"subscriber", {"PUB", "XPUB"}}},
        {Pattern::Request, {"client", {"REP", "ROUTER"}}},  {Pattern::Reply, {"server", {"REQ", "DEALER"}}},
        {Pattern::Push, {"PUSH socket", {"PULL"}}},         {Pattern::Pull, {"PULL socket", {"PUSH"}}}};
    return peers.at(pattern);
}

} // namespace

Findings probe(const std::string& endpoint, std::chrono::milliseconds limit, const StopSignals& stop) {
    Findings findings;
    try {
        Line line(limit, stop);
        line.connectTo(endpointFromText(endpoint));
        examine(line, findings);
    } catch (const Trouble& trouble) {
        findings.trouble = trouble.what();
    }
    return findings;
}

std::optional<std::string> troubleAt(const std::string& endpoint, Pattern pattern, const StopSignals& stop) {
    const Findings findings = probe(endpoint, std::chrono::milliseconds(500), stop);
    if (findings.trouble || findings.socketType.empty()) {
        return findings.trouble;
    }
    const Peers& peers = peersOf(pattern);
    if (peers.others.count(findings.socketType) == 0) {
        return "a " + printable(findings.socketType) + " socket listens there, which does not talk to a " + peers.self;
    }
    return std::nullopt;
}

} // namespace rk::tools
