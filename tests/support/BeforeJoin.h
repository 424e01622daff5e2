#pragma once

#include <functional>

namespace rk::tests {

/// Runs `action` once, during its lifetime, before the calling thread joins another one or waits for a listener's.
class BeforeJoin {
public:
    explicit BeforeJoin(std::function<void()> action);
    ~BeforeJoin();
    BeforeJoin(const BeforeJoin&) = delete;
    BeforeJoin& operator=(const BeforeJoin&) = delete;
};

/// Makes the next join by the calling thread fail with the given error number after it has waited, during its lifetime.
class JoinFault {
public:
    explicit JoinFault(int error);
    ~JoinFault();
    JoinFault(const JoinFault&) = delete;
    JoinFault& operator=(const JoinFault&) = delete;
};

} // namespace rk::tests
