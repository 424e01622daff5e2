#include "soak/ProcessUse.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace rk::tests::soak {

namespace {

double entries(const char* folder) {
    const std::filesystem::directory_iterator listing(folder);
    return static_cast<double>(std::distance(begin(listing), end(listing)));
}

double residentKiB() {
    std::ifstream file("/proc/self/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

ProcessUse processUse() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    ProcessUse use;
    use.residentKiB = residentKiB();
    const struct mallinfo2 memory = mallinfo2();
    use.allocatedKiB = static_cast<double>(memory.uordblks + memory.hblkhd) / 1024;
    use.descriptors = entries("/proc/self/fd");
    use.threads = entries("/proc/self/task");
    use.processorSeconds = seconds(used.ru_utime) + seconds(used.ru_stime);
    return use;
}

} // namespace rk::tests::soak
