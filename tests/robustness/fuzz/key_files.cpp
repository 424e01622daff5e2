#include "robustness/fuzz/Require.h"
#include "support/Errors.h"

#include <rk/socket/Security.h>

#include <zmq.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

/// Reads any bytes as a key file and as a trusted-keys file. Messages about invalid files must not depend on the secret
/// key. Writes valid key pairs and reads them again.

namespace rk::tests {

namespace {

namespace Security = socket::Security;
using Security::KeyPair;

/// A file in memory that only this process can access.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content) : descriptor(memfd_create("input", MFD_CLOEXEC)) {
        require(fchmod(descriptor, S_IRUSR | S_IWUSR) == 0, "no permissions for the file");
        require(::write(descriptor, content.data(), content.size()) == static_cast<ssize_t>(content.size()),
                "no room for the file");
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    const int descriptor;
};

std::string contentOf(const KeyPair& keys) {
    return keys.publicKey + "\n" + keys.secretKey + "\n";
}

/// Returns whether the message names a line of the input, or the line after its last.
bool isOneOf(const std::string& text, const std::string& path, std::string_view input,
             std::initializer_list<const char*> reasons) {
    const auto lines = std::count(input.begin(), input.end(), '\n') + 2;
    for (auto line = decltype(lines){1}; line <= lines; ++line) {
        const std::string begin = "Security: " + path + ":" + std::to_string(line) + ": ";
        if (text.compare(0, begin.size(), begin) == 0) {
            const std::string reason = text.substr(begin.size());
            return std::any_of(reasons.begin(), reasons.end(), [&](const char* known) {
                return reason.compare(0, std::string(known).size(), known) == 0;
            });
        }
    }
    return false;
}

void readKeys(std::string_view input) {
    const MemoryFile file(input);
    KeyPair keys;
    const std::string text = textIfThrownBy([&] { keys = Security::readKeyFile(file.path()); });
    if (!text.empty()) {
        require(isOneOf(text, file.path(), input,
                        {"not a key", "the secret key does not belong to the public key", "more than two lines"}),
                text.c_str());
        return;
    }
    char publicKey[41];
    require(zmq_curve_public(publicKey, keys.secretKey.c_str()) == 0 && keys.publicKey == publicKey, "no pair");
    const std::string content = contentOf(keys);
    std::string plain(input);
    plain.erase(std::remove(plain.begin(), plain.end(), '\r'), plain.end());
    require(content == plain || content == plain + "\n", "another pair");
}

void readTrustedKeys(std::string_view input) {
    static const MemoryFile own(contentOf(Security::generateKeyPair()));
    const MemoryFile file(input);
    const std::string text = textIfThrownBy([&] { Security::enable(own.path(), file.path()); });
    require(text.empty() || isOneOf(text, file.path(), input,
                                    {"not a key", "no name or endpoint after the key", "a name that is not printable",
                                     "not an endpoint like", "a second key for tcp://"}),
            text.c_str());
}

} // namespace

} // namespace rk::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    rk::tests::readKeys(input);
    rk::tests::readTrustedKeys(input);
    return 0;
}
