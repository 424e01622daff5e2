#include <rk/detail/SignalMask.h>
#include <rk/socket/detail/RefusalLog.h>
#include <rk/utils/Log.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <future>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace rk::socket::detail {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes period{1};
constexpr std::chrono::milliseconds patienceAtEnd{100};
constexpr std::size_t mostLines = 64;
constexpr std::size_t mostAddresses = 64;

} // namespace

struct RefusalLog::Shared {
    struct Line {
        std::string address;
        std::string text;
    };

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Line> lines;
    unsigned long dropped = 0;
    bool ending = false;
    std::promise<void> ended;
};

/// What the thread does. It holds no lock while it logs.
class RefusalLog::Writer {
    using Line = Shared::Line;

public:
    explicit Writer(std::shared_ptr<Shared> sharedState) : shared(std::move(sharedState)) {}

    void run() {
        while (!ending) {
            try {
                writeNext();
            } catch (const std::exception&) {
                // There is no memory for these lines.
            }
        }
        shared->ended.set_value();
    }

private:
    void writeNext() {
        for (const Line& line : take()) {
            write(line);
        }
        const Clock::time_point now = Clock::now();
        if (count > 0 && (ending || now - countedSince >= period)) {
            rk::utils::logWarning("Security: Refused " + std::to_string(std::exchange(count, 0)) + " more connections");
        }
    }

    /// Waits for lines, or for the end.
    std::vector<Line> take() {
        std::unique_lock<std::mutex> lock(shared->mutex);
        shared->changed.wait(lock, [this] { return shared->ending || !shared->lines.empty(); });
        ending = shared->ending;
        add(std::exchange(shared->dropped, 0));
        return std::exchange(shared->lines, {});
    }

    void write(const Line& line) {
        const Clock::time_point now = Clock::now();
        for (auto entry = logged.begin(); entry != logged.end();) {
            entry = now - entry->second < period ? std::next(entry) : logged.erase(entry);
        }
        if (logged.size() < mostAddresses && logged.emplace(line.address, now).second) {
            rk::utils::logWarning(line.text);
        } else {
            add(1);
        }
    }

    void add(unsigned long refusals) {
        if (count == 0) {
            countedSince = Clock::now();
        }
        count += refusals;
    }

    const std::shared_ptr<Shared> shared;
    bool ending = false;
    std::map<std::string, Clock::time_point> logged; ///< when each address had its line
    unsigned long count = 0;                         ///< of refusals without a line
    Clock::time_point countedSince;
};

RefusalLog::RefusalLog() : shared(std::make_shared<Shared>()) {
    const rk::detail::SignalMask mask(SIG_SETMASK, rk::detail::asynchronousSignals());
    thread = std::thread([writer = Writer(shared)]() mutable { writer.run(); });
}

RefusalLog::~RefusalLog() {
    tell([this] { shared->ending = true; });
    if (shared->ended.get_future().wait_for(patienceAtEnd) == std::future_status::ready) {
        thread.join();
    } else {
        thread.detach();
    }
}

void RefusalLog::add(const std::string& address, const std::string& text) noexcept {
    tell([&] {
        if (shared->lines.size() < mostLines) {
            shared->lines.push_back({address, text});
        } else {
            ++shared->dropped;
        }
    });
}

/// Best effort: without memory or lock, a line is lost, or the thread stays behind.
template <class Change>
void RefusalLog::tell(const Change& change) noexcept {
    try {
        const std::lock_guard<std::mutex> lock(shared->mutex);
        change();
    } catch (const std::exception&) {
        return;
    }
    shared->changed.notify_one();
}

} // namespace rk::socket::detail
