#include <rk/utils/detail/LogBackend.h>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <mutex>

namespace rk::utils::detail {

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
    /// The backend of the process. It is never destroyed, because lines are written until the process is gone.
    static Backend& instance() {
        static Backend* const backend = std::make_unique<Backend>().release();
        return *backend;
    }

    Logger logger() {
        const std::lock_guard<std::mutex> lock(mutex);
        Logger found = registryGone ? lastRegistered : spdlog::get(loggerName);
        if (found) {
            return found;
        }
        if (!ownLogger) {
            ownLogger = makeStandardErrorLogger();
        }
        return ownLogger;
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
    Logger ownLogger;
};

/// Constructed after spdlog's registry, hence destroyed before it.
class RegistryWatch {
public:
    RegistryWatch() { spdlog::get(loggerName); }
    ~RegistryWatch() {
        try {
            Backend::instance().registryEnds();
        } catch (const std::exception&) {
            // The last lines of the process are lost, and nothing else.
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
    const int error = errno;
    try {
        prepareForExit();
        Backend::instance().logger()->log(toSpdlog(level), spdlog::string_view_t(text));
    } catch (...) {
        // A line that cannot be written has nobody to be reported to.
    }
    errno = error;
}

} // namespace rk::utils::detail
