#pragma once

#include <functional>

namespace rk::tests {

/// Runs `action` when the calling thread joins another one, before it waits; once, and only while this lives.
class BeforeJoin {
public:
    explicit BeforeJoin(std::function<void()> action);
    ~BeforeJoin();
    BeforeJoin(const BeforeJoin&) = delete;
    BeforeJoin& operator=(const BeforeJoin&) = delete;
};

} // namespace rk::tests
