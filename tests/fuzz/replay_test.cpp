// A few seconds of each fuzzer in every run of the tests: what makes sense, and many changes to it. To look
// longer, and with a fuzzer that is led by the code that it reaches, see scripts/fuzz.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "tests/fuzz/mutations.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr int most_mutants = 20000;
constexpr std::chrono::seconds longest{2};

fuzz::Bytes bytes_of(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

class Fuzz : public testing::TestWithParam<const fuzz::Target*> {};

TEST_P(Fuzz, TakesAnyBytes) {
    const std::vector<std::string> seeds = GetParam()->seeds();
    for (const std::string& seed : seeds) GetParam()->take(bytes_of(seed));
    fuzz::Mutator mutator(1);
    const auto end = std::chrono::steady_clock::now() + longest;
    for (int i = 0; i < most_mutants && std::chrono::steady_clock::now() < end; ++i) {
        const std::string mutant = mutator.mutant_of(seeds);
        // Shown by what ends the process; too large for a trace of each.
        std::ofstream("fuzz_" + std::string(GetParam()->name) + ".last", std::ios::binary) << mutant;
        GetParam()->take(bytes_of(mutant));
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, Fuzz, testing::ValuesIn(fuzz::all_targets),
                         [](const auto& one) { return one.param->name; });

}  // namespace
