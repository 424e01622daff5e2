// Loads the given library and prints how this has changed the process. Prints nothing without a change.

#include <dlfcn.h>
#include <filesystem>
#include <iostream>
#include <iterator>

namespace {

auto entries(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

} // namespace

int main(int, char** arguments) {
    const auto threads = entries("/proc/self/task");
    const auto descriptors = entries("/proc/self/fd");
    if (dlopen(arguments[1], RTLD_NOW) == nullptr) {
        std::cerr << dlerror() << '\n';
        return 1;
    }
    if (entries("/proc/self/task") != threads) {
        std::cerr << "a thread was started\n";
        return 1;
    }
    if (entries("/proc/self/fd") != descriptors) {
        std::cerr << "a descriptor was opened\n";
        return 1;
    }
}
