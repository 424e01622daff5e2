#pragma once

#include "support/TemporaryFolder.h"

#include <rk/socket/Security.h>

#include <fstream>
#include <string>
#include <sys/stat.h>

namespace rk::tests {

/// A folder with key files and trusted-keys files.
class KeyFiles {
public:
    std::string pathOf(const std::string& name) const { return folder.path() + "/" + name; }

    /// Writes a file that only its owner can access.
    std::string write(const std::string& name, const std::string& content, mode_t mode = S_IRUSR | S_IWUSR) const {
        const std::string path = pathOf(name);
        std::ofstream(path) << content;
        chmod(path.c_str(), mode);
        return path;
    }

    std::string write(const std::string& name, const socket::Security::KeyPair& keys) const {
        return write(name, keys.publicKey + "\n" + keys.secretKey + "\n");
    }

private:
    TemporaryFolder folder;
};

} // namespace rk::tests
