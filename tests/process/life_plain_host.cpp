// A program that knows nothing of the library and allocates on line 6.
#include <cstdlib>

int main() {
    for (int i = 0; i < 10; ++i) {
        void* block = std::malloc(1000);
        asm volatile("" : "+r"(block));
    }
}
