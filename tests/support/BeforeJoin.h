#pragma once

#include <functional>

namespace rk::tests {

/// Runs `action` when the calling thread joins another one, or waits for a listener's, before it waits. Once, and only
/// while this lives.
class BeforeJoin {
public:
    explicit BeforeJoin(std::function<void()> action);
    ~BeforeJoin();
    BeforeJoin(const BeforeJoin&) = delete;
    BeforeJoin& operator=(const BeforeJoin&) = delete;
};

/// The next join by the calling thread waits as ever, and then fails with the given error number; only while this lives.
class JoinFault {
public:
    explicit JoinFault(int error);
    ~JoinFault();
    JoinFault(const JoinFault&) = delete;
    JoinFault& operator=(const JoinFault&) = delete;
};

} // namespace rk::tests
