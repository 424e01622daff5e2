#include "Commands.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    CLI::App program{"Measures what the library costs. Each sample is a line of JSON."};
    program.require_subcommand(1);
    rk::benchmarks::addComparison(program);
    rk::benchmarks::addEncryption(program);
    rk::benchmarks::addGrowth(program);
    rk::benchmarks::addRepair(program);
    rk::benchmarks::addCap(program);
    rk::benchmarks::addTool(program);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& wrong) {
        return program.exit(wrong);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
