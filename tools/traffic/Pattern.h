#pragma once

namespace rk::tools {

/// The part that a subcommand plays.
enum class Pattern {
    Publish,
    Subscribe,
    Request,
    Reply,
    Push,
    Pull
};

} // namespace rk::tools
