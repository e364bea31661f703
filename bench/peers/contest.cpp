// SPDX-License-Identifier: MIT
//
// The main program of every row. Repetitions of all contenders are shuffled, so that none has the
// machine's quiet moments for itself, and are many and short rather than few and long: noise comes
// in moments. Options of the command line come last and have the last word.
#include "contest.h"

#include <vector>

int main(int argc, char** argv) {
    char program[] = "contest", interleaved[] = "--benchmark_enable_random_interleaving=true",
         repetitions[] = "--benchmark_repetitions=25", shortest[] = "--benchmark_min_time=0.01";
    std::vector<char*> arguments = {argc > 0 ? argv[0] : program, interleaved, repetitions,
                                    shortest};
    if (argc > 1)
        arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    Contestants();
    return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
