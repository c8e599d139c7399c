// A plugin of the tests' subject.
#include <cstdlib>

extern "C" __attribute__((visibility("default"))) void work() {
    void* volatile block = std::malloc(500);
    std::free(block);
}
