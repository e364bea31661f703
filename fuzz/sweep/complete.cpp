// SPDX-License-Identifier: MIT
//
// Every exported operation has a scenario that names it.
#include "complete.h"

#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <fnmatch.h>

namespace sweep {

namespace {

/// What no scenario need name: variables.
constexpr const char* variables =
    "badThreadHandle badProcHandle badIOCtrlHandle SystemAssigned *::eventKind "
    "*::nullHandle *::noFork ProfilePoint::currentPoint bdtBase::byteOrderProbePending "
    "bdtBase::hostIsNetworkOrder";

/// `Class<A>::operation` of a demangled name: without parameters, spaces and what follows.
std::string NameOf(const std::string& symbol) {
    std::size_t depth = 0, end = 0;
    for (; end < symbol.size(); ++end) {
        const bool isOperator = symbol.substr(0, end).ends_with("operator") ||
                                symbol.substr(0, end).ends_with("operator<") ||
                                symbol.substr(0, end).ends_with("operator>");
        if (symbol[end] == '<' && !isOperator)
            ++depth;
        else if (symbol[end] == '>' && !isOperator)
            --depth;
        else if (symbol[end] == '(' && depth == 0)
            break;
    }
    return symbol.substr(0, end);
}

} // namespace

int Uncovered(std::span<const Family* const> families, const char* list, std::FILE* report) {
    std::set<std::string> patterns, unused;
    const auto take = [&](const char* words) {
        std::istringstream stream(words);
        for (std::string word; stream >> word;)
            patterns.insert(word);
    };
    take(variables);
    for (const Family* const family : families)
        for (const Scenario& scenario : family->scenarios)
            take(scenario.operations);
    unused = patterns;

    std::ifstream stream(list);
    std::set<std::string> missing;
    int count = 0;
    for (std::string symbol; std::getline(stream, symbol); ++count) {
        const std::string name = NameOf(symbol);
        bool covered = name.find('~') != name.npos;
        for (const std::string& pattern : patterns)
            if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) {
                covered = true;
                unused.erase(pattern);
            }
        if (!covered)
            missing.insert(name);
    }
    for (const std::string& name : missing)
        std::fprintf(report, "no scenario: %s\n", name.c_str());
    for (const std::string& pattern : unused)
        std::fprintf(report, "nothing of that name: %s\n", pattern.c_str());
    std::fprintf(report, "%d exported, %zu without a scenario, %zu patterns\n", count,
                 missing.size(), patterns.size());
    return count != 0 && missing.empty() && unused.empty() ? 0 : 1;
}

} // namespace sweep
