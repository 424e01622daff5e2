#pragma once

#include <CLI/CLI.hpp>

namespace rk::benchmarks {

void addComparison(CLI::App& program);
void addEncryption(CLI::App& program);
void addGrowth(CLI::App& program);
void addRepair(CLI::App& program);
void addCap(CLI::App& program);
void addTool(CLI::App& program);

} // namespace rk::benchmarks
