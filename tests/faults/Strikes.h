#pragma once

#include "Scenario.h"
#include "Sites.h"

#include <initializer_list>
#include <string_view>

/// \file
/// What is to be known of a fault to say what has to come of it.

namespace rk::tests {

constexpr std::string_view memory = "operator new";
constexpr std::string_view lock = "pthread_mutex_lock";

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> list);

const Site& siteOf(const Strike& strike);

/// That an address was given up cannot be noted, or that it is held: a later bind of it is not waited for.
bool leavesAddressUnnoted(const Strike& strike);

/// Whether it is one of the failures that nobody is told of.
bool isIgnored(const Strike& strike);

} // namespace rk::tests
