// A program that knows nothing of the library and allocates on line 7.
#include <cstdlib>

#include "tests/process/kept.h"

int main() {
    for (int i = 0; i < 10; ++i) kept(std::malloc(1000));
}
