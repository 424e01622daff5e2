#include "traffic/Gatekeeper.h"

#include "traffic/Frames.h"
#include "traffic/Keys.h"

#include <zmq.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace rk::tools {

namespace {

constexpr std::size_t mostRefusals = 1000;
constexpr std::size_t keySize = 32; // in bytes

std::string textOf(std::string_view key) {
    std::array<char, 41> text{};
    return key.size() == keySize &&
                   zmq_z85_encode(text.data(), reinterpret_cast<const std::uint8_t*>(key.data()), keySize)
               ? text.data()
               : "";
}

} // namespace

Gatekeeper::Gatekeeper(void* context, const Keys& keysToUse) : keys(keysToUse), socket(zmq_socket(context, ZMQ_REP)) {
    if (socket == nullptr || zmq_bind(socket, "inproc://zeromq.zap.01") != 0) {
        const std::string reason = zmq_strerror(zmq_errno());
        zmq_close(socket);
        throw std::runtime_error("cannot admit clients: " + reason);
    }
    // Signals are for the thread that waits for messages.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { run(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Gatekeeper::~Gatekeeper() {
    thread.join();
}

std::vector<std::string> Gatekeeper::takeRefusals() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(refusals, {});
}

void Gatekeeper::run() {
    Frames request;
    while (request.receiveFrom(socket, 0)) {
        answer(request);
    }
    zmq_close(socket);
}

/// A request is: version, number, domain, address, identity, mechanism, key.
void Gatekeeper::answer(const Frames& request) {
    const auto& parts = request.parts();
    const std::string key = parts.size() == 7 ? textOf(parts[6]) : "";
    const bool isTrusted = keys.admits(key);
    // With 400, the client would not try again once it is trusted.
    const std::array<std::string_view, 6> reply = {
        "1.0", parts.size() > 1 ? parts[1] : "", isTrusted ? "200" : "300", isTrusted ? "OK" : "not trusted", "", ""};
    for (std::size_t place = 0; place < reply.size(); ++place) {
        const std::string_view part = reply[place];
        zmq_send(socket, part.data(), part.size(), place + 1 < reply.size() ? ZMQ_SNDMORE : 0);
    }
    if (!isTrusted && parts.size() == 7) {
        noteRefusal(key, std::string(parts[3]));
    }
}

void Gatekeeper::noteRefusal(const std::string& key, const std::string& address) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (refusedKeys.size() < mostRefusals && refusedKeys.insert(key).second) {
        refusals.push_back("refused a client at " + address + ", whose key is not in " + keys.trustFile() + ": " + key);
    }
}

} // namespace rk::tools
