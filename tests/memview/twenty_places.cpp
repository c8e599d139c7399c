// One helper that is called from twenty places of one function: the 13th holds nearly all that it gave.

#include <memory>
#include <vector>

namespace {

constexpr std::size_t SIZE = 1024;
constexpr int ROUNDS = 1000;

int calls = 0;

using Buffer = std::unique_ptr<char[]>;
using Buffers = std::vector<Buffer>;

[[gnu::noinline]] Buffer make_buffer() {
    return Buffer(new char[SIZE]);
}

void keep(Buffers& kept, Buffer buffer, bool is_kept) {
    if (is_kept) kept.push_back(std::move(buffer));
}

[[gnu::noinline]] void work(Buffers& kept, bool all, int again) {
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), true);  // the one
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    keep(kept, make_buffer(), all);
    if (again > 0) work(kept, all, again - 1);
    ++calls;  // so that the call above is none at the end
}

}  // namespace

int main() {
    Buffers kept;
    kept.reserve(4 * ROUNDS);
    for (int round = 0; round < ROUNDS; ++round) work(kept, round == 0, 1);
}
