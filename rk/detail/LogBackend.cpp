#include <rk/detail/ErrnoKeeper.h>
#include <rk/detail/Immortal.h>
#include <rk/detail/LogBackend.h>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <exception>
#include <memory>
#include <mutex>

namespace rk::detail {

namespace {

const char* const loggerName = "rk";

using Logger = std::shared_ptr<spdlog::logger>;

Logger makeStandardErrorLogger() {
    auto logger = std::make_shared<spdlog::logger>(loggerName, std::make_shared<spdlog::sinks::stderr_sink_mt>());
    logger->set_level(spdlog::level::trace);
    return logger;
}

class Backend {
public:
    /// Returns the backend of the process. It is never destroyed, because lines are written until the process ends.
    static Backend& instance() {
        static Immortal<Backend> backend;
        return *backend;
    }

    Logger logger() {
        const std::lock_guard<std::mutex> lock(mutex);
        const Logger registered = registryGone ? lastRegistered : spdlog::get(loggerName);
        return registered ? registered : ownLogger;
    }

    void registryEnds() {
        const std::lock_guard<std::mutex> lock(mutex);
        lastRegistered = spdlog::get(loggerName);
        registryGone = true;
    }

private:
    std::mutex mutex;
    bool registryGone = false;
    Logger lastRegistered;
    const Logger ownLogger = makeStandardErrorLogger();
};

/// Constructed after spdlog's registry, and therefore destroyed before it.
class RegistryWatch {
public:
    RegistryWatch() { spdlog::get(loggerName); }
    ~RegistryWatch() {
        try {
            Backend::instance().registryEnds();
        } catch (const std::exception&) {
            // Best effort: only the last lines of the process are lost.
        }
    }
    RegistryWatch(const RegistryWatch&) = delete;
    RegistryWatch& operator=(const RegistryWatch&) = delete;
};

spdlog::level::level_enum toSpdlog(Level level) {
    if (level == Level::Debug) {
        return spdlog::level::debug;
    }
    return level == Level::Warning ? spdlog::level::warn : spdlog::level::err;
}

} // namespace

void prepareForExit() {
    static const RegistryWatch watch;
}

void writeLine(Level level, const std::string& text) noexcept {
    const ErrnoKeeper keeper;
    try {
        prepareForExit();
        Backend::instance().logger()->log(toSpdlog(level), spdlog::string_view_t(text));
    } catch (...) {
        // Best effort: a failure to log cannot be logged.
    }
}

} // namespace rk::detail
