// One target under clang's fuzzer. With FUZZ_SEEDS set to a folder it only writes the seeds there.
#include <cstdlib>
#include <fstream>

#include "tests/fuzz/targets.h"

namespace {

constexpr const fuzz::Target& target = fuzz::FUZZ_TARGET;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* const folder = std::getenv("FUZZ_SEEDS");
    if (folder == nullptr) return 0;
    int number = 0;
    for (const std::string& seed : target.seeds())
        std::ofstream(std::string(folder) + "/seed" + std::to_string(number++), std::ios::binary) << seed;
    std::exit(0);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    target.take({data, size});
    return 0;
}
