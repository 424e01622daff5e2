#include <rk/socket/detail/RefusalLog.h>
#include <rk/utils/Log.h>

#include <zmq.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <future>
#include <iterator>
#include <map>
#include <mutex>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace rk::socket::detail {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes period{1};
constexpr std::chrono::milliseconds patienceAtEnd{100};
constexpr std::size_t mostLines = 64;
constexpr std::size_t mostAddresses = 64;

/// Returns whether a write to standard error would block. A thread that blocks there holds a lock of the C library that
/// process exit needs.
bool isStandardErrorFull() {
    pollfd items[]{{STDERR_FILENO, POLLOUT, 0}};
    return poll(items, std::size(items), 0) == 0;
}

} // namespace

struct RefusalLog::Shared {
    struct Line {
        std::string address;
        std::string key;
    };

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Line> lines;
    unsigned long dropped = 0;
    int failure = 0; ///< the error that has ended the authenticator, or 0 at process exit
    bool ending = false;
    std::promise<void> ended;
};

/// The body of the thread. Holds no lock while it logs.
class RefusalLog::Writer {
public:
    explicit Writer(std::shared_ptr<Shared> sharedState) : shared(std::move(sharedState)) {}

    void run() {
        while (!done) {
            try {
                writeNext();
            } catch (const std::exception&) {
                // Out of memory: drop this line.
            }
        }
        shared->ended.set_value();
    }

private:
    /// Waits for a line and logs or counts it. Writes the last one at the end.
    void writeNext() {
        std::unique_lock<std::mutex> lock(shared->mutex);
        shared->changed.wait(lock, [this] { return shared->ending || !shared->lines.empty(); });
        done = shared->lines.empty();
        if (done) {
            const int failure = shared->failure;
            lock.unlock();
            writeLast(failure);
            return;
        }
        const Shared::Line line = std::move(shared->lines.front());
        shared->lines.pop_front();
        const unsigned long dropped = std::exchange(shared->dropped, 0);
        lock.unlock();
        write(line, dropped, Clock::now());
    }

    static void writeLast(int failure) {
        if (failure != 0 && !isStandardErrorFull()) {
            rk::utils::logWarning(std::string("Security: Cannot authenticate clients any more: ") +
                                  zmq_strerror(failure));
        }
    }

    void write(const Shared::Line& line, unsigned long dropped, Clock::time_point now) {
        if (count == 0) {
            countedSince = now;
        }
        count += dropped;
        if (!isStandardErrorFull() && isDue(line.address, now)) {
            rk::utils::logWarning("Security: Refused the untrusted key " + line.key + " of " + line.address);
        } else {
            ++count;
        }
        if (now - countedSince >= period && !isStandardErrorFull()) {
            rk::utils::logWarning("Security: Refused " + std::to_string(std::exchange(count, 0)) + " more connections");
        }
    }

    /// Returns whether to log a line for the address, and records the time.
    bool isDue(const std::string& address, Clock::time_point now) {
        for (auto entry = logged.begin(); entry != logged.end();) {
            entry = now - entry->second < period ? std::next(entry) : logged.erase(entry);
        }
        return logged.size() < mostAddresses && logged.emplace(address, now).second;
    }

    const std::shared_ptr<Shared> shared;
    bool done = false;
    std::map<std::string, Clock::time_point> logged; ///< time of the last line for each address
    unsigned long count = 0;                         ///< refusals that were not logged
    Clock::time_point countedSince;
};

RefusalLog::RefusalLog() : shared(std::make_shared<Shared>()) {
    thread = std::thread([writer = Writer(shared)]() mutable { writer.run(); });
}

RefusalLog::~RefusalLog() {
    tell([this] { shared->ending = true; });
    if (shared->ended.get_future().wait_for(patienceAtEnd) == std::future_status::ready) {
        thread.join();
    } else {
        // The process is about to destroy the application's logger.
        tell([this] { shared->lines.clear(); });
        thread.detach();
    }
}

void RefusalLog::add(std::string_view address, std::string_view key) noexcept {
    tell([&] {
        if (shared->lines.size() < mostLines) {
            shared->lines.push_back({std::string(address), std::string(key)});
        } else {
            ++shared->dropped;
        }
    });
}

void RefusalLog::addEnd(int error) noexcept {
    tell([&] { shared->failure = error; });
}

/// Best effort: if memory or the lock fails, a line is lost, or the destructor detaches the thread.
template <class Change>
void RefusalLog::tell(const Change& change) noexcept {
    try {
        const std::lock_guard<std::mutex> lock(shared->mutex);
        change();
    } catch (const std::exception&) {
        // The writer finds nothing new.
    }
    shared->changed.notify_one();
}

} // namespace rk::socket::detail
