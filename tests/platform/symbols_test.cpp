#include <dlfcn.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "fixture/probed.h"
#include "platform/symbol_services.h"
#include "platform/symbols/call_instruction.h"
#include "platform/symbols/own_stack.h"

namespace {

[[maybe_unused]] const bool are_files_open = [] {
    symbols::open_files();
    return symbols::has_open_files();
}();

using testing::ElementsAre;
using testing::IsEmpty;

// The levels of an address as "function at file:line".
using LEVELS = std::vector<std::string>;
LEVELS levels_of(std::uint64_t address) {
    LEVELS levels;
    for (const symbols::FRAME& frame : symbols::find_frames(address))
        levels.push_back(frame.function + " at " + frame.file + ":" + std::to_string(frame.line));
    return levels;
}

using ADDRESSES = std::map<std::string, std::uint64_t>;
ADDRESSES noted;
void note_address(const char* name) {
    noted[name] = reinterpret_cast<std::uint64_t>(__builtin_return_address(0));
}

// One of the forms of the probed library, loaded, with the return addresses of its calls of the probe.
struct PROBED_LIBRARY {
    explicit PROBED_LIBRARY(const std::string& form) : PROBED_LIBRARY(PROBED, "libprobed_" + form + ".so") {}
    PROBED_LIBRARY(const std::string& folder, const std::string& file)
        : handle(dlopen((folder + "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL)) {
        start = dlsym(handle, "run_probes");
        reinterpret_cast<void (*)(PROBE)>(start)(note_address);
        addresses = std::exchange(noted, {});
    }
    ~PROBED_LIBRARY() { dlclose(handle); }
    void* handle;
    void* start = nullptr;
    ADDRESSES addresses;
};

// A level of an address at a marked line of the fixture. Some functions have no linker's name where one of
// the compilers inlined them; its name lacks the parameters then.
std::string at(const std::string& mark, const std::string& function, const std::string& file = "probed.cpp") {
    const std::string path = FIXTURE "/" + file;
    std::ifstream input(path);
    std::string text;
    for (std::uint32_t line = 1; std::getline(input, text); ++line) {
        const std::size_t found = text.find("@" + mark);
        if (found != std::string::npos && text.find_first_not_of(" */", found + 1 + mark.size()) == text.npos)
            return function + " at " + path + ":" + std::to_string(line);
    }
    ADD_FAILURE() << "no mark " << mark;
    return {};
}

std::size_t times_mapped(const std::string& file) {
    std::ifstream maps("/proc/self/maps");
    std::size_t times = 0;
    for (std::string line; std::getline(maps, line);) times += line.ends_with(file) ? 1 : 0;
    return times;
}

// As GCC and clang tell of the same code.
void expect_full_information(const PROBED_LIBRARY& library, bool is_clang) {
    const std::string third = is_clang ? "third(char const*)" : "third";
    const std::string lambda = is_clang ? "$_0" : "{lambda(long)#1}";
    const std::string merged_lambda = is_clang ? "$_1::operator()(long) const" : "{lambda}::operator()";
    const std::map<std::string, LEVELS> expected = {
        {"hidden", {at("hidden", "outer::(anonymous namespace)::hidden(int)")}},
        {"inlined",
         {at("third", "outer::(anonymous namespace)::" + third),
          at("second", "outer::BOX::second(char const*)"), at("inlining", "outer::inlining(outer::BOX&)")}},
        {"member", {at("member", "outer::BOX::put(int const&)")}},
        {"template", {at("template", "outer::templated<int>(int)")}},
        {"lambda", {at("lambda", "outer::with_lambda(int)::" + lambda + "::operator()(long) const")}},
        {"merged lambda",
         {at("merged lambda", "outer::with_lambda(int)::" + merged_lambda),
          at("lambda caller", "outer::with_lambda(int)")}},
        {"c linkage", {at("c linkage", "run_probes")}},
        {"c", {at("c", "helper", "plain.c")}},
    };
    for (const auto& [probe, levels] : expected)
        EXPECT_EQ(levels_of(library.addresses.at(probe)), levels) << probe;
    // The start of a function is no return address.
    EXPECT_THAT(levels_of(reinterpret_cast<std::uint64_t>(library.start)),
                ElementsAre(at("start", "run_probes")));
}

TEST(full_information, names_every_level_of_every_call) {
    for (const std::string form :
         {"gcc_O0", "gcc_O2", "gcc_dwarf4", "gcc_compressed", "gcc_lto", "gcc_split", "gcc_packed4",
          "clang_O0", "clang_O2", "clang_dwarf4", "clang_lto", "clang_packed", "separate", "checksum"}) {
        SCOPED_TRACE(form);
        expect_full_information(PROBED_LIBRARY(form), form.starts_with("clang"));
    }
}

// At the end of a function a call that does not return is followed by the start of the next one.
TEST(call_instructions, are_told_by_the_bytes_in_front) {
    const std::pair<std::vector<unsigned char>, bool> cases[] = {
        {{0xE8, 0x00, 0x00, 0x00, 0x00}, true},              // call to the next instruction
        {{0xE8, 0x00, 0x00, 0x00, 0x40}, false},             // out of the module
        {{0xFF, 0xD0}, true},                                // *%rax
        {{0x41, 0xFF, 0xD4}, true},                          // *%r12
        {{0xFF, 0x50, 0x08}, true},                          // *8(%rax)
        {{0xFF, 0x54, 0x24, 0x08}, true},                    // *8(%rsp)
        {{0xFF, 0x15, 0x11, 0x22, 0x33, 0x00}, true},        // *0x332211(%rip)
        {{0xFF, 0x14, 0xC5, 0x11, 0x22, 0x33, 0x00}, true},  // *0x332211(,%rax,8)
        {{0xFF, 0x14, 0xC0}, true},                          // *(%rax,%rax,8)
        {{0xFF, 0x94, 0x24, 0x11, 0x22, 0x33, 0x00}, true},  // *0x332211(%rsp)
        {{0xFF, 0xE0}, false},                               // jmp *%rax
        {{0xC9, 0xC3}, false},                               // leave, ret
        {{0x66, 0x0F, 0x1F, 0x44, 0x00, 0x00}, false},       // padding
    };
    for (const auto& [instruction, is_call] : cases) {
        std::vector<unsigned char> code(16, 0x90);
        code.insert(code.end(), instruction.begin(), instruction.end());
        const auto begin = reinterpret_cast<std::uint64_t>(code.data());
        const std::uint64_t end = begin + code.size();
        // One address among many that cannot be read, in several turns.
        std::vector<std::uint64_t> addresses(100, 16);
        addresses[70] = end;
        std::vector<bool> expected(addresses.size());
        expected[70] = is_call;
        EXPECT_EQ(symbols::are_behind_calls(addresses, begin, end + 1), expected)
            << testing::PrintToString(instruction);
    }
}

TEST(names, of_rust_are_demangled) {
    EXPECT_EQ(symbols::readable_name("_RNvNtCslNYArtu3iFV_5alloc5alloc5alloc"), "alloc::alloc::alloc");
    EXPECT_EQ(symbols::readable_name("_ZN4core3fmt5write17h0123456789abcdefE"), "core::fmt::write");
}

TEST(stripped, symbol_tables_name_the_outermost_function) {
    const std::tuple<const char*, const char*, LEVELS> cases[] = {
        {"strip_g", "hidden", {"outer::(anonymous namespace)::hidden(int) at :0"}},
        {"strip_g", "inlined", {"outer::inlining(outer::BOX&) at :0"}},
        {"strip_s", "member", {"outer::BOX::put(int const&) at :0"}},
        {"strip_s", "hidden", {}}};
    for (const auto& [form, probe, levels] : cases)
        EXPECT_EQ(levels_of(PROBED_LIBRARY(form).addresses.at(probe)), levels) << form;
}

TEST(modules, keep_their_names_when_unloaded_and_give_way_to_the_next_at_their_place) {
    ADDRESSES first;
    {
        const PROBED_LIBRARY library("gcc_O2");
        first = library.addresses;
        symbols::find_module(first.at("hidden"), symbols::LISTING::CURRENT);
    }
    EXPECT_THAT(levels_of(first.at("template")), ElementsAre(at("template", "outer::templated<int>(int)")));
    const PROBED_LIBRARY next("gcc_dwarf4");
    EXPECT_EQ(symbols::find_module(next.addresses.at("hidden"), symbols::LISTING::CURRENT)->name,
              "probed_gcc_dwarf4");
}

TEST(modules, have_their_names_once_their_files_can_be_opened) {
    const PROBED_LIBRARY library("gcc_unopened");
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const LEVELS unnamed = levels_of(library.addresses.at("template"));
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_THAT(unnamed, IsEmpty());
    EXPECT_THAT(levels_of(library.addresses.at("template")),
                ElementsAre(at("template", "outer::templated<int>(int)")));
}

// Somewhere else each time, since another mapping takes the place.
TEST(modules, that_come_back_do_not_have_their_files_read_again) {
    std::vector<void*> taken;
    std::set<std::uint64_t> places;
    std::vector<std::size_t> mapped;
    for (int load = 0; load < 8; ++load) {
        std::uint64_t place = 0;
        {
            const PROBED_LIBRARY library("gcc_O0");
            place = library.addresses.at("template");
            EXPECT_THAT(levels_of(place), ElementsAre(at("template", "outer::templated<int>(int)")));
            mapped.push_back(times_mapped("libprobed_gcc_O0.so"));
        }
        places.insert(place);
        taken.push_back(mmap(reinterpret_cast<void*>(place & ~4095ULL), 4096, PROT_NONE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0));
    }
    EXPECT_GT(places.size(), 1U);
    EXPECT_EQ(mapped.front(), mapped.back());
    for (void* page : taken) munmap(page, 4096);
}

// A pipe that a debug link or a split unit names would be waited for.
TEST(debug_files, are_files) {
    namespace fs = std::filesystem;
    const fs::path folder = testing::TempDir() + "piped";
    const std::tuple<const char*, const char*, LEVELS> cases[] = {
        {"libprobed_separate.so", "libprobed_separate.debug", {"outer::BOX::put(int const&) at :0"}},
        {"libprobed_gcc_split.so", "gcc_split_probed.dwo", {at("member", "outer::BOX::put(int const&)")}}};
    for (const auto& [file, pipe, levels] : cases) {
        fs::create_directory(folder);
        fs::copy_file(PROBED "/" + std::string(file), folder / file);
        ASSERT_EQ(mkfifo((folder / pipe).c_str(), 0600), 0);
        const PROBED_LIBRARY library(folder, file);
        EXPECT_EQ(levels_of(library.addresses.at("member")), levels) << pipe;
        fs::remove_all(folder);
    }
}

// Wrong names would be worse than none for a file that another build has replaced; relative paths outlive a
// change of folder.
TEST(modules, are_read_from_the_file_that_was_loaded) {
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path(), replaced = fs::path(testing::TempDir()) / "libreplaced.so";
    fs::copy_file(PROBED "/libprobed_gcc_O0.so", replaced, fs::copy_options::overwrite_existing);
    const PROBED_LIBRARY library(replaced.parent_path(), "libreplaced.so");
    fs::remove(replaced);
    fs::copy_file(PROBED "/libprobed_gcc_O2.so", replaced);
    fs::current_path(PROBED);
    const PROBED_LIBRARY relative(".", "libprobed_clang_O0.so");
    fs::current_path(before);
    EXPECT_THAT(levels_of(library.addresses.at("hidden")), IsEmpty());
    EXPECT_THAT(levels_of(relative.addresses.at("member")),
                ElementsAre(at("member", "outer::BOX::put(int const&)")));
    fs::remove(replaced);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// As coroutines and the threads of some servers have; reading a table of lines takes more than twice that.
TEST(small_stacks, suffice) {
    const PROBED_LIBRARY library("gcc_unread");
    pthread_attr_t usual, small;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 65536);
    ASSERT_EQ(pthread_setattr_default_np(&small), 0);
    LEVELS levels;
    std::thread([&] { levels = levels_of(library.addresses.at("template")); }).join();
    pthread_setattr_default_np(&usual);
    EXPECT_THAT(levels, ElementsAre(at("template", "outer::templated<int>(int)")));
}

const char* handled_at = nullptr;

TEST(own_stack, a_signal_waits_until_it_is_left) {
    const auto before =
        std::signal(SIGUSR1, [](int) { handled_at = static_cast<const char*>(__builtin_frame_address(0)); });
    const char* handled_meanwhile = nullptr;
    symbols::run_on_own_stack([&] {
        std::raise(SIGUSR1);
        handled_meanwhile = handled_at;
    });
    std::signal(SIGUSR1, before);
    EXPECT_EQ(handled_meanwhile, nullptr);
    // Right below the frame that changed the stack.
    EXPECT_LT(static_cast<const char*>(__builtin_frame_address(0)) - handled_at, 65536);
    EXPECT_GT(static_cast<const char*>(__builtin_frame_address(0)) - handled_at, 0);
}
#endif

TEST(readable_name, has_parameters_and_no_return_type) {
    // A template of 600 arguments: beyond the 1,024 characters that the demangler takes unasked.
    std::string mangled, arguments;
    for (int i = 0; i < 600; ++i) mangled += "1X", arguments += i == 0 ? "X" : ", X";
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"_Z", "_Z"},
        {"_Znotmangled", "_Znotmangled"},
        {"_Z3fooi.cold", "foo(int)"},
        {"ternary_op.constprop.0", "ternary_op"},
        {"_Z1fI" + mangled + "Evv", "f<" + arguments + ">()"},
    };
    for (const auto& [linkage_name, readable] : cases)
        EXPECT_EQ(symbols::readable_name(linkage_name), readable);
}

}  // namespace
