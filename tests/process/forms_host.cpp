// Allocates in every form there is, and prints for each one what the tracker says of it: the module, how far
// the line is from the marked one, the file, the function, and the counters as blocks/bytes.
//
// Each form runs three times from one place, and the first of the three is released again.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "forms_place.h"
#include "ktl_mem/mem.h"

extern "C" void* library_block();
extern "C" const unsigned library_block_line;

namespace forms {

constexpr int runs = 3;

const unsigned static_line = __LINE__ + 1;
void* const static_block = kept(std::malloc(200));

void* by_malloc(int) {
    return AT_THIS_LINE(kept(std::malloc(1000)));
}
void* by_calloc(int) {
    return AT_THIS_LINE(kept(std::calloc(10, 100)));
}
void* by_strdup(int) {
    return AT_THIS_LINE(kept(strdup("a text of twenty-nine letters")));
}
void* by_new(int) {
    return AT_THIS_LINE(kept(new long(1)));
}
void* by_new_array(int) {
    return AT_THIS_LINE(kept(new char[500]));
}
void* by_aligned_new(int) {
    return AT_THIS_LINE(kept(new (std::align_val_t(64)) char[512]));
}
void* by_nothrow_new(int) {
    return AT_THIS_LINE(kept(new (std::nothrow) char[500]));
}

void* by_posix_memalign(int) {
    void* block = nullptr;
    if (AT_THIS_LINE(posix_memalign(&block, 256, 1024)) != 0) std::abort();
    return kept(block);
}

void* volatile old_block = nullptr;
// Each grows or shrinks a block that is charged to another line.
void* realloc_in_place(int) {
    old_block = kept(std::malloc(1000));
    return AT_THIS_LINE(kept(std::realloc(old_block, 1020)));
}
void* realloc_moving(int) {
    old_block = kept(std::malloc(1000));
    return AT_THIS_LINE(kept(std::realloc(old_block, 8000)));
}
void* realloc_shrinking(int) {
    old_block = kept(std::malloc(8000));
    return AT_THIS_LINE(kept(std::realloc(old_block, 100)));
}

template <class T>
void* by_template(int) {
    return AT_THIS_LINE(kept(new T[10]));
}

void* by_lambda(int) {
    const auto allocate = [](std::size_t size) { return AT_THIS_LINE(kept(std::malloc(size))); };
    return allocate(320);
}

__attribute__((always_inline)) inline void* level_three() {
    return AT_THIS_LINE(kept(std::malloc(400)));
}
__attribute__((always_inline)) inline void* level_two() {
    return level_three();
}
__attribute__((always_inline)) inline void* level_one() {
    return level_two();
}
void* by_inlined(int) {
    return level_one();
}

void* thread_block = nullptr;
void in_thread() {
    thread_block = AT_THIS_LINE(kept(std::malloc(600)));
}
void* by_thread(int) {
    std::thread(in_thread).join();
    return thread_block;
}

volatile int thrown = 1;
void* by_catch(int) {
    try {
        if (thrown != 0) throw 1;
    } catch (int) {
        return AT_THIS_LINE(kept(std::malloc(700)));
    }
    return nullptr;
}

void* by_library(int) {
    void* block = kept(library_block());
    marked_line = library_block_line;
    return block;
}

void* plugin = nullptr;
void* by_plugin(int) {
    void* block = kept(reinterpret_cast<void* (*)()>(dlsym(plugin, "plugin_block"))());
    marked_line = *static_cast<const unsigned*>(dlsym(plugin, "plugin_block_line"));
    return block;
}

// Owners keep their blocks; the caller gets the address.
std::string strings[runs];
void* by_string(int run) {
    AT_THIS_LINE(strings[run].assign(100, 'x'));
    return strings[run].data();
}

std::vector<long> vectors[runs];
__attribute__((noinline)) void append(std::vector<long>& vector) {
    AT_THIS_LINE(vector.push_back(1));
}
void* by_vector(int run) {
    for (int i = 0; i < 5; ++i) append(vectors[run]);
    return vectors[run].data();
}

std::map<int, long> maps[runs];
void* by_map(int run) {
    long* value = AT_THIS_LINE(&maps[run][1]);
    return reinterpret_cast<char*>(value) - 40;  // behind the links of the node and its key
}

struct RECORD {
    char text[64];
};
std::shared_ptr<RECORD> shared[runs];
void* by_make_shared(int run) {
    AT_THIS_LINE(shared[run] = std::make_shared<RECORD>());
    return reinterpret_cast<char*>(shared[run].get()) - 16;  // behind the counts
}

std::function<std::size_t()> functions[runs];
void* by_function(int run) {
    const RECORD record{};
    const auto closure_of_record = [record] { return std::strlen(record.text); };
    AT_THIS_LINE(functions[run] = closure_of_record);
    void* closure = nullptr;
    std::memcpy(&closure, &functions[run], sizeof closure);
    return closure;
}

void by_free(void* block, int) {
    std::free(block);
}
void by_delete(void* block, int) {
    ::operator delete(block);
}
void by_aligned_delete(void* block, int) {
    ::operator delete(block, std::align_val_t(64));
}
void drop_string(void*, int run) {
    std::string().swap(strings[run]);
}
void drop_vector(void*, int run) {
    std::vector<long>().swap(vectors[run]);
}
void drop_map(void*, int run) {
    maps[run].clear();
}
void drop_shared(void*, int run) {
    shared[run].reset();
}
void drop_function(void*, int run) {
    functions[run] = nullptr;
}

void print(const char* name, const void* block, unsigned line) {
    MEM_ADDRESS_TRACKER site;
    if (!mem_get_address_tracker(block, site)) {
        std::printf("%s: unknown block\n", name);
        return;
    }
    const std::string_view file = site.frame.file;
    std::printf("%s: %s %s%+d %s made %lld/%lld asked %lld live %d/%lld most %d/%lld\n", name,
                site.frame.module, file.substr(file.rfind('/') + 1).data(),
                static_cast<int>(site.frame.line - line), site.frame.function,
                static_cast<long long>(site.cumulative_blocks), static_cast<long long>(site.cumulative_bytes),
                static_cast<long long>(site.cumulative_requested_bytes), site.current_blocks,
                static_cast<long long>(site.current_bytes), site.max_blocks,
                static_cast<long long>(site.max_bytes));
}

void run(const char* name, void* (*allocate)(int), void (*release)(void*, int)) {
    allocate = kept(allocate);  // or a compiler makes a copy of its code for each run
    void* blocks[runs];
    for (int i = 0; i < runs; ++i) blocks[i] = allocate(i);
    const unsigned line = marked_line;
    release(blocks[0], 0);
    print(name, blocks[runs - 1], line);
    MEM_ADDRESS_TRACKER site;
    if (mem_get_address_tracker(blocks[0], site))
        std::printf("%s: the released block is still known\n", name);
}

}  // namespace forms

int main(int, char** argv) {
    using namespace forms;
    plugin = dlopen(argv[1], RTLD_NOW);
    if (plugin == nullptr) return 2;
    run("malloc", by_malloc, by_free);
    run("calloc", by_calloc, by_free);
    run("realloc in place", realloc_in_place, by_free);
    run("realloc moving", realloc_moving, by_free);
    run("realloc shrinking", realloc_shrinking, by_free);
    run("new", by_new, by_delete);
    run("new[]", by_new_array, by_delete);
    run("aligned new", by_aligned_new, by_aligned_delete);
    run("nothrow new", by_nothrow_new, by_delete);
    run("posix_memalign", by_posix_memalign, by_free);
    run("strdup", by_strdup, by_free);
    run("string", by_string, drop_string);
    run("vector", by_vector, drop_vector);
    run("map", by_map, drop_map);
    run("make_shared", by_make_shared, drop_shared);
    run("function", by_function, drop_function);
    run("template", by_template<int>, by_delete);
    run("lambda", by_lambda, by_free);
    run("inlined", by_inlined, by_free);
    run("thread", by_thread, by_free);
    run("catch", by_catch, by_free);
    run("library", by_library, by_free);
    run("plugin", by_plugin, by_free);
    print("static", static_block, static_line);
}
