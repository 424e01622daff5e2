#include <rk/socket/detail/FileDescriptor.h>
#include <rk/socket/detail/KeyFile.h>
#include <rk/socket/detail/Lines.h>
#include <rk/socket/detail/ProtectedFile.h>
#include <rk/socket/detail/SecretText.h>

#include <zmq.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace rk::socket::detail {

namespace {

constexpr std::size_t keyLength = 40;
constexpr std::size_t keySize = 32;

void takeKey(Lines& lines, std::string& key) {
    key = lines.next().value_or("");
    if (!isKey(key)) {
        lines.refuse("not a key");
    }
}

[[noreturn]] void refuseToWrite(const std::string& path, const char* reason) {
    throw std::runtime_error("Security: Cannot write " + path + ": " + reason);
}

/// A new file with a unique name in the same folder as `target`. Removed on scope exit.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& target)
        : path(target + ".XXXXXX"), descriptor(mkostemp(path.data(), O_CLOEXEC)) {}

    ~TemporaryFile() {
        if (isOpen()) {
            unlink(path.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // On failure, the following functions return false and set `errno`.

    bool isOpen() const { return descriptor.isOpen(); }

    bool write(const std::string& text) const {
        errno = ENOSPC; // the cause of a short write, which does not set errno
        return ::write(descriptor.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
               fsync(descriptor.get()) == 0;
    }

    /// Gives the file the second name `target`. Never replaces a file.
    bool appearAs(const std::string& target) const { return link(path.c_str(), target.c_str()) == 0; }

private:
    std::string path;
    FileDescriptor descriptor;
};

} // namespace

bool isKey(const std::string& text) {
    std::uint8_t bytes[keySize];
    // ZeroMQ would stop decoding at an embedded zero.
    const bool decoded = text.size() == keyLength && std::strlen(text.c_str()) == keyLength &&
                         zmq_z85_decode(bytes, text.c_str()) != nullptr;
    explicit_bzero(bytes, sizeof bytes);
    return decoded;
}

bool isPair(const Security::KeyPair& keys) {
    char expected[keyLength + 1];
    return isKey(keys.publicKey) && isKey(keys.secretKey) && zmq_curve_public(expected, keys.secretKey.c_str()) == 0 &&
           keys.publicKey == expected;
}

Security::KeyPair readKeyFile(const std::string& path) {
    SecretText content;
    readProtectedFile(path, {S_IRWXG | S_IRWXO, "other users can access it"}, content.text);
    Lines lines(content.text, path);
    Security::KeyPair keys;
    takeKey(lines, keys.publicKey);
    takeKey(lines, keys.secretKey);
    if (!isPair(keys)) {
        lines.refuse("the secret key does not belong to the public key");
    }
    if (lines.next()) {
        lines.refuse("more than two lines");
    }
    return keys;
}

void writeKeyFile(const Security::KeyPair& keys, const std::string& path) {
    if (!isPair(keys)) {
        throw std::invalid_argument("Security: Cannot write " + path + ": not a key pair");
    }
    SecretText content;
    content.text.reserve(2 * (keyLength + 1));
    content.text.append(keys.publicKey).append("\n").append(keys.secretKey).append("\n");
    const TemporaryFile file(path);
    if (!file.isOpen() || !file.write(content.text) || !file.appearAs(path)) {
        refuseToWrite(path, std::strerror(errno));
    }
}

} // namespace rk::socket::detail
