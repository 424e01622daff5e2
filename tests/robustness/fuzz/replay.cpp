#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(const fs::path& path) {
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files(fs::directory_iterator{path}, {});
    std::sort(files.begin(), files.end());
    return files;
}

void replay(const fs::path& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    const std::string content = bytes.str();
    std::fprintf(stderr, "%s\n", path.filename().c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
}

} // namespace

/// Runs a fuzz target on files, without libFuzzer. usage: NAME FILE_OR_FOLDER...
int main(int count, char** arguments) {
    std::size_t replayed = 0;
    for (int index = 1; index < count; ++index) {
        for (const fs::path& file : filesOf(arguments[index])) {
            replay(file);
            ++replayed;
        }
    }
    std::fprintf(stderr, "%zu inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
