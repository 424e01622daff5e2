#pragma once

namespace rk::tests {

/// Makes what the functions in front of the library's need, so that the ledger does not take it for the library's.
void prepareInterposition();

} // namespace rk::tests
