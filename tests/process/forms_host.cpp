// Allocates in every form there is, and prints for each one what the tracker says of it: the module, how far
// the line is from the marked one, the file, the function, and the counters as blocks/bytes.
//
// Each form runs three times from one place, and the first of the three is released again.
#include <dlfcn.h>

#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "ktl_mem/mem.h"
#include "platform/rvm_barebones.h"
#include "tests/process/kept.h"
#include "tests/process/module.h"

namespace {

constexpr int runs = 3;
unsigned marked_line = 0;

// Notes the line of an expression.
#define HERE(...) (marked_line = __LINE__, __VA_ARGS__)

const unsigned static_line = __LINE__ + 1;
void* const static_block = kept(std::malloc(200));

struct RECORD {
    char text[64];
};

// Owners keep their blocks; the caller gets the address.
std::string strings[runs];
std::vector<long> vectors[runs];
std::map<int, long> maps[runs];
std::shared_ptr<RECORD> shared[runs];
std::function<std::size_t()> functions[runs];

void* thread_block = nullptr;
char mapped[runs];
void* plugin = nullptr;

void print(const void* block, unsigned line) {
    MEM_ADDRESS_TRACKER site;
    if (!mem_get_address_tracker(block, site)) std::cout << "unknown: ";
    const std::string_view file = site.frame.file;
    std::cout << site.frame.function << " in " << site.frame.module << ' ' << file.substr(file.rfind('/') + 1)
              << '+' << site.frame.line - line << " made " << site.cumulative_blocks << '/'
              << site.cumulative_bytes << " asked " << site.cumulative_requested_bytes << " live "
              << site.current_blocks << '/' << site.current_bytes << " most " << site.max_blocks << '/'
              << site.max_bytes << '\n';
}

void run_form(void* (*allocate)(int run), void (*release)(void* block, int run)) {
    void* blocks[runs];
    // Hidden, or a compiler makes a copy of the code for each run and says that a released block is used.
    for (int run = 0; run < runs; ++run) blocks[run] = kept(allocate)(run);
    const unsigned line = marked_line;
    kept(release)(blocks[0], 0);
    print(blocks[runs - 1], line);
    MEM_ADDRESS_TRACKER site;
    if (mem_get_address_tracker(blocks[0], site)) std::cout << "the released block is still known\n";
}

}  // namespace

struct forms {
    static void* by_malloc(int) { return HERE(kept(std::malloc(1000))); }
    static void* by_calloc(int) { return HERE(kept(std::calloc(10, 100))); }
    static void* by_strdup(int) { return HERE(kept(strdup("a text of twenty-nine letters"))); }
    static void* by_new(int) { return HERE(kept(new long(1))); }
    static void* by_new_array(int) { return HERE(kept(new char[500])); }
    static void* by_aligned_new(int) { return HERE(kept(new (std::align_val_t(64)) char[512])); }
    static void* by_nothrow_new(int) { return HERE(kept(new (std::nothrow) char[500])); }
    static void* by_posix_memalign(int) {
        void* block = nullptr;
        if (HERE(posix_memalign(&block, 256, 1024)) != 0) std::abort();
        return kept(block);
    }

    // Each grows or shrinks a block that is charged to another call.
    static void* realloc_in_place(int) { return HERE(kept(std::realloc(kept(std::malloc(1000)), 1020))); }
    static void* realloc_moving(int) { return HERE(kept(std::realloc(kept(std::malloc(1000)), 8000))); }
    static void* realloc_shrinking(int) { return HERE(kept(std::realloc(kept(std::malloc(8000)), 100))); }

    template <class T>
    static void* by_template(int) {
        return HERE(kept(new T[10]));
    }
    static void* by_lambda(int) {
        const auto allocate = [](std::size_t size) { return HERE(kept(std::malloc(size))); };
        return allocate(320);
    }
    [[gnu::always_inline]] static void* level_three() { return HERE(kept(std::malloc(400))); }
    [[gnu::always_inline]] static void* level_two() { return level_three(); }
    [[gnu::always_inline]] static void* level_one() { return level_two(); }
    static void* by_inlined(int) { return level_one(); }

    static void in_thread() { thread_block = HERE(kept(std::malloc(600))); }
    static void* by_thread(int) { return std::thread(in_thread).join(), thread_block; }
    static void* by_catch(int) {
        try {
            throw 1;
        } catch (int) {
            return HERE(kept(std::malloc(700)));
        }
    }

    static void* by_library(int) {
        marked_line = module_block_line;
        return kept(module_block(3000));
    }
    static void* by_plugin(int) {
        marked_line = *static_cast<const unsigned*>(dlsym(plugin, "module_block_line"));
        return kept(reinterpret_cast<decltype(&module_block)>(dlsym(plugin, "module_block"))(3000));
    }

    static void* by_string(int run) { return HERE(strings[run].assign(100, 'x')).data(); }
    [[gnu::noinline]] static void append(std::vector<long>& vector) { HERE(vector.push_back(1)); }
    static void* by_vector(int run) {
        for (int i = 0; i < 5; ++i) append(vectors[run]);
        return vectors[run].data();
    }
    static void* by_map(int run) {
        long* value = HERE(&maps[run][1]);
        return reinterpret_cast<char*>(value) - 40;  // behind the links of the node and its key
    }
    static void* by_make_shared(int run) {
        HERE(shared[run] = std::make_shared<RECORD>());
        return reinterpret_cast<char*>(shared[run].get()) - 16;  // behind the counts
    }
    static void* by_function(int run) {
        const auto closure_of_record = [record = RECORD{}] { return std::strlen(record.text); };
        HERE(functions[run] = closure_of_record);
        void* closure = nullptr;
        std::memcpy(&closure, &functions[run], sizeof closure);
        return closure;
    }

    static void* by_mapping(int run) {
        return HERE(mem_notify_memory_mapping_added(&mapped[run], 48)), &mapped[run];
    }
    static void* by_notifier(int run) {
        return HERE(RVM_BAREBONES_NOTIFIER::announce_added(&mapped[run], 48)), &mapped[run];
    }
    static void by_removal(void* block, int) { RVM_BAREBONES_NOTIFIER::announce_removed(block, 48); }

    static void by_free(void* block, int) { std::free(block); }
    static void by_delete(void* block, int) { ::operator delete(block); }
    static void by_aligned_delete(void* block, int) { ::operator delete(block, std::align_val_t(64)); }
    template <auto& owners>
    static void by_owner(void*, int run) {
        std::remove_reference_t<decltype(owners[run])>().swap(owners[run]);
    }

    static void run_all() {
        for (auto* form :
             {by_malloc, by_calloc, by_posix_memalign, by_strdup, realloc_in_place, realloc_moving,
              realloc_shrinking, by_lambda, by_inlined, by_thread, by_catch, by_library, by_plugin})
            run_form(form, by_free);
        for (auto* form : {by_new, by_new_array, by_nothrow_new, by_template<int>}) run_form(form, by_delete);
        for (auto* form : {by_mapping, by_notifier}) run_form(form, by_removal);
        run_form(by_aligned_new, by_aligned_delete);
        run_form(by_string, by_owner<strings>);
        run_form(by_vector, by_owner<vectors>);
        run_form(by_map, by_owner<maps>);
        run_form(by_make_shared, by_owner<shared>);
        run_form(by_function, by_owner<functions>);
    }
};

int main(int, char** argv) {
    plugin = dlopen(argv[1], RTLD_NOW);
    if (plugin == nullptr) return 2;
    forms::run_all();
    print(static_block, static_line);
}
