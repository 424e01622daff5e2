#include "traffic/Gatekeeper.h"

#include "traffic/Frames.h"
#include "traffic/Keys.h"

#include <rk/detail/SignalMask.h>

#include <zmq.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace rk::tools {

namespace {

constexpr std::size_t mostRefusals = 1000;

// The frames of a request: version, id, domain, address, identity, mechanism, key.
constexpr std::size_t idPlace = 1;
constexpr std::size_t addressPlace = 3;
constexpr std::size_t keyPlace = 6;

std::string textOf(std::string_view key) {
    constexpr std::size_t size = 32;
    std::array<char, 41> text{};
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(key.data());
    return key.size() == size && zmq_z85_encode(text.data(), bytes, size) ? text.data() : "";
}

} // namespace

Gatekeeper::Gatekeeper(void* context, const Keys& keysToUse) : keys(keysToUse), socket(zmq_socket(context, ZMQ_REP)) {
    if (socket == nullptr || zmq_bind(socket, "inproc://zeromq.zap.01") != 0) {
        const std::string reason = zmq_strerror(zmq_errno());
        zmq_close(socket);
        throw std::runtime_error("cannot admit clients: " + reason);
    }
    // Signals have to interrupt the main thread.
    const rk::detail::SignalMask mask(SIG_SETMASK, rk::detail::asynchronousSignals());
    thread = std::thread([this] {
        for (Frames request; request.receiveFrom(socket, 0);) {
            answer(request);
        }
        zmq_close(socket);
    });
}

Gatekeeper::~Gatekeeper() {
    thread.join();
}

std::vector<std::string> Gatekeeper::takeRefusals() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(refusals, {});
}

void Gatekeeper::answer(const Frames& request) {
    const auto& frames = request.parts();
    const std::string key = frames.size() > keyPlace ? textOf(frames[keyPlace]) : "";
    const bool isTrusted = keys.trusted.admits(key);
    // After 300 the client tries again. After 400 it would not, even once it is trusted.
    const std::array<std::string_view, 6> reply = {"1.0", frames.at(idPlace), isTrusted ? "200" : "300", "", "", ""};
    for (const std::string_view& frame : reply) {
        zmq_send(socket, frame.data(), frame.size(), &frame == &reply.back() ? 0 : ZMQ_SNDMORE);
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (!isTrusted && refusedKeys.size() < mostRefusals && refusedKeys.insert(key).second) {
        refusals.push_back("refused a client at " + std::string(frames.at(addressPlace)) + ", whose key is not in " +
                           keys.trustFile + ": " + key);
    }
}

} // namespace rk::tools
