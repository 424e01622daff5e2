// A child process of Log_test.cpp that logs in the way its argument names.

#include "support/ThreadFaults.h"

#include <rk/socket/Socket.h>
#include <rk/utils/Log.h>

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <cerrno>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace rk;

/// The sink of an application, which prefixes each line with "app".
class ApplicationSink : public spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        std::cerr << "app " << spdlog::level::to_string_view(message.level).data() << ": "
                  << std::string(message.payload.data(), message.payload.size()) << std::endl;
    }
    void flush_() override {}
};

class ThrowingSink : public spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(const spdlog::details::log_msg& /*message*/) override { throw 1; }
    void flush_() override {}
};

template <class Sink>
void registerLogger() {
    auto logger = std::make_shared<spdlog::logger>("rk", std::make_shared<Sink>());
    logger->set_level(spdlog::level::trace);
    spdlog::register_logger(logger);
}

void logEachLevel() {
    utils::logDebug("a debug line with {} and %d");
    utils::logWarning("a warning");
    utils::logError("an error");
}

void logToTheApplication() {
    utils::logDebug("before");
    registerLogger<ApplicationSink>();
    logEachLevel();
    spdlog::drop("rk");
    utils::logDebug("after");
}

void keepErrno() {
    for (const int error : {0, EAGAIN, ENOMEM}) {
        errno = error;
        utils::logDebug("line");
        if (errno != error) {
            std::cerr << "errno is lost" << std::endl;
        }
    }
}

void surviveASinkThatThrows() {
    registerLogger<ThrowingSink>();
    logEachLevel();
    std::cerr << "survived" << std::endl;
}

/// Logs when it is destroyed.
struct LastWord {
    ~LastWord() { utils::logDebug("last word"); }
};

void logAfterEverything() {
    static const LastWord word;
    spdlog::get("rk");
    utils::logDebug("first word");
}

void logToTheApplicationAfterEverything() {
    static const LastWord word;
    registerLogger<ApplicationSink>();
    utils::logDebug("first word");
}

/// Lets the library's next lock fail when it is destroyed.
struct LastLockFails {
    ~LastLockFails() { fault.emplace(EAGAIN); }
    std::optional<tests::MutexFault>& fault;
};

void endWithoutALock() {
    static std::optional<tests::MutexFault> outlivesTheLog;
    utils::logDebug("first word");
    static const LastLockFails lastLockFails{outlivesTheLog};
}

/// Logs no line before the context ends, and creates the registry after the context.
void logFirstWhenTheContextEnds() {
    socket::Socket("cmd", socket::ClosePolicy::DropPending).create(socket::Protocol::Req);
    registerLogger<ApplicationSink>();
}

} // namespace

int main(int argumentCount, char** arguments) {
    const std::map<std::string, void (*)()> scenarios{
        {"each-level", logEachLevel},
        {"application", logToTheApplication},
        {"errno", keepErrno},
        {"throwing-sink", surviveASinkThatThrows},
        {"after-everything", logAfterEverything},
        {"application-after-everything", logToTheApplicationAfterEverything},
        {"last-lock-fails", endWithoutALock},
        {"first-when-the-context-ends", logFirstWhenTheContextEnds},
    };
    const auto scenario = scenarios.find(argumentCount == 2 ? arguments[1] : "");
    if (scenario == scenarios.end()) {
        return 2;
    }
    scenario->second();
    return 0;
}
