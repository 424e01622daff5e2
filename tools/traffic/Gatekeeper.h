#pragma once

#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace rk::tools {

class Frames;
class Keys;

/// Answers ZeroMQ's questions about clients in a thread of its own: those whose keys are trusted are admitted.
class Gatekeeper {
public:
    /// Begins before the first encrypted endpoint is bound. Throws std::runtime_error with the reason.
    Gatekeeper(void* context, const Keys& keys);

    /// Waits for the thread, which ends when the termination of the context has begun.
    ~Gatekeeper();
    Gatekeeper(const Gatekeeper&) = delete;
    Gatekeeper& operator=(const Gatekeeper&) = delete;

    /// Who has been refused since the last call, for people. Each key is named once.
    std::vector<std::string> takeRefusals();

private:
    void run();
    void answer(const Frames& request);
    void noteRefusal(const std::string& key, const std::string& address);

    const Keys& keys;
    void* socket;
    std::mutex mutex;
    std::set<std::string> refusedKeys;
    std::vector<std::string> refusals;
    std::thread thread;
};

} // namespace rk::tools
