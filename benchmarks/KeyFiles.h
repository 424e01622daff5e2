#pragma once

#include <fstream>
#include <sstream>
#include <string>

/// What encrypted peers find in the current folder.
namespace rk::benchmarks {

inline constexpr const char* keyFile = "benchmark.key"; ///< of all CURVE peers
inline constexpr const char* trustedKeysFile = "trusted";
inline constexpr const char* certificateFile = "certificate.pem"; ///< of all TLS servers, signed by itself
inline constexpr const char* certificateKeyFile = "certificate.key";
inline constexpr const char* certificateName = "localhost";

inline std::string contentOf(const char* path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

} // namespace rk::benchmarks
