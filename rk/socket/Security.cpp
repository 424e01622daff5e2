#include <rk/detail/Immortal.h>
#include <rk/socket/Security.h>
#include <rk/socket/detail/Credentials.h>
#include <rk/socket/detail/KeyFile.h>
#include <rk/socket/detail/SecretText.h>

#include <zmq.h>

#include <mutex>
#include <stdexcept>

namespace rk::socket {

namespace {

using detail::Credentials;

struct ProcessSecurity {
    std::mutex enabling; ///< locked during `enable`
    std::mutex mutex;    ///< guards the other members, and is never locked for long
    std::shared_ptr<const Credentials> credentials;
    bool hasPlainTcp = false;
};

/// Never destroyed, because sockets can be rebuilt until the process ends.
ProcessSecurity& processSecurity() {
    static rk::detail::Immortal<ProcessSecurity> security;
    return *security;
}

} // namespace

std::shared_ptr<const Credentials> detail::Credentials::ofProcess() {
    ProcessSecurity& process = processSecurity();
    const std::lock_guard<std::mutex> lock(process.mutex);
    return process.credentials;
}

std::shared_ptr<const Credentials> detail::Credentials::forEndpoint(const SocketEndpoint& endpoint) {
    ProcessSecurity& process = processSecurity();
    const std::lock_guard<std::mutex> lock(process.mutex);
    if (endpoint.transport == Transport::Tcp && !process.credentials) {
        process.hasPlainTcp = true;
    }
    return process.credentials;
}

Security::KeyPair::~KeyPair() {
    detail::wipe(secretKey);
}

Security::KeyPair Security::generateKeyPair() {
    constexpr std::size_t size = 40; // ZeroMQ also writes the terminating zero
    KeyPair keys{std::string(size, '\0'), std::string(size, '\0')};
    if (zmq_curve_keypair(keys.publicKey.data(), keys.secretKey.data()) != 0) {
        const int error = zmq_errno();
        throw std::runtime_error(std::string("Security: Cannot generate keys: ") + zmq_strerror(error));
    }
    return keys;
}

void Security::writeKeyFile(const KeyPair& keys, const std::string& path) {
    detail::writeKeyFile(keys, path);
}

Security::KeyPair Security::readKeyFile(const std::string& path) {
    return detail::readKeyFile(path);
}

void Security::enable(const std::string& keyFile, const std::string& trustedKeysFile) {
    ProcessSecurity& process = processSecurity();
    // Otherwise a concurrent call that has read older files could finish last and undo a revocation.
    const std::lock_guard<std::mutex> order(process.enabling);
    const auto next = std::make_shared<Credentials>(
        Credentials{readKeyFile(keyFile), detail::TrustedKeys(trustedKeysFile), generateKeyPair()});
    const std::lock_guard<std::mutex> lock(process.mutex);
    if (process.hasPlainTcp) {
        throw std::logic_error("Security: Cannot be enabled after a TCP endpoint was connected in plain");
    }
    if (process.credentials) {
        next->wakeUp = process.credentials->wakeUp;
    }
    process.credentials = next;
}

} // namespace rk::socket
