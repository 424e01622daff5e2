#pragma once

namespace rk::tools {

class StopSignals;

/// The ZeroMQ context of a subcommand.
class Context {
public:
    explicit Context(const StopSignals& stop);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    void* native() const { return context; }

    /// Waits until the sockets, which are closed, have sent what their close policies want sent. A signal ends the wait.
    void terminate();

private:
    const StopSignals& stop;
    void* context;
};

} // namespace rk::tools
