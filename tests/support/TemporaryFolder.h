#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace rk::tests {

/// A new folder, removed with its contents on scope exit.
class TemporaryFolder {
public:
    TemporaryFolder() {
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary folder");
        }
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(pattern, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return pattern; }

private:
    std::string pattern = "/tmp/rk-socket-test-XXXXXX";
};

} // namespace rk::tests
