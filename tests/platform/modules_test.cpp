#include "platform/modules.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "platform/dbghelp.h"
#include "platform/module_name.h"

namespace {

TEST(module_base_name, leaves_out_folder_prefix_and_suffix) {
    const std::pair<const char*, const char*> cases[] = {
        {"/usr/lib/libtbb.so.12", "tbb"},
        {"libtcmalloc_minimal.so.4.5.9", "tcmalloc_minimal"},
        {"libtcmalloc_minimal_debug.so.4", "tcmalloc_minimal_debug"},
        {"/lib64/ld-linux-x86-64.so.2", "ld-linux-x86-64"},
        {"/a/_json.cpython-311-x86_64-linux-gnu.so", "_json.cpython-311-x86_64-linux-gnu"},
        {"/opt/lib.d/tool.bin", "tool"},
        {"/usr/bin/python3.11", "python3"},
        {"/usr/bin/libtool", "libtool"},
        {"/home/libmy.sofa", "libmy"},
        {"my.sofa/libx.so", "x"},
        {"/home/.hidden", ".hidden"},
        {"", ""},
    };
    for (const auto& [path, name] : cases) EXPECT_EQ(module_base_name(path), name) << path;
}

TEST(modules, are_found_by_base_name_and_never_loaded) {
    const HMODULE c_library = GetModuleHandleA("c");
    ASSERT_NE(c_library, nullptr);
    EXPECT_EQ(GetModuleHandleA("c.dll"), c_library);
    EXPECT_EQ(GetProcAddress(c_library, "gnu_get_libc_version"), dlsym(RTLD_DEFAULT, "gnu_get_libc_version"));
    EXPECT_EQ(thr_drl_find_function(c_library, "no_such_function"), nullptr);
    for (const char* name : {"libc", "C", "", "probed_gcc_O0"})
        EXPECT_EQ(GetModuleHandleA(name), nullptr) << name;
    EXPECT_EQ(GetModuleHandleA(nullptr), nullptr);
    EXPECT_EQ(GetProcAddress(nullptr, "malloc"), nullptr);

    void* plugin = dlopen(PROBED "/libprobed_gcc_O0.so", RTLD_NOW | RTLD_LOCAL);
    EXPECT_EQ(GetProcAddress(GetModuleHandleA("probed_gcc_O0"), "run_probes"), dlsym(plugin, "run_probes"));
    dlclose(plugin);
    EXPECT_EQ(GetModuleHandleA("probed_gcc_O0"), nullptr);  // the look-up holds nothing
}

TEST(modules, the_executable_has_a_path_that_is_cut_to_the_buffer) {
    char path[4096];
    const std::uint32_t length = GetModuleFileNameA(nullptr, path, sizeof path);
    EXPECT_EQ(length, std::strlen(path));
    EXPECT_EQ(std::filesystem::path(path), std::filesystem::canonical("/proc/self/exe"));
    char cut[5];
    EXPECT_EQ(GetModuleFileNameA(nullptr, cut, sizeof cut), 4u);
    EXPECT_EQ(std::string(cut), std::string(path, 4));
    EXPECT_EQ(GetModuleFileNameA(nullptr, cut, 0), 0u);
}

TEST(dbghelp, names_are_decorated_until_asked_otherwise_and_cut_to_their_room) {
    SymRefreshModuleList(GetCurrentProcess());
    struct {
        SYMBOL_INFO info{};
        char rest[3] = {};
    } symbol;
    symbol.info.MaxNameLen = 4;
    const auto address = reinterpret_cast<std::uint64_t>(&GetModuleHandleA) + 4;
    std::uint64_t displacement = 0;
    ASSERT_TRUE(SymFromAddr(GetCurrentProcess(), address, &displacement, &symbol.info));
    EXPECT_STREQ(symbol.info.Name, "_Z1");
    EXPECT_EQ(symbol.info.NameLen, std::strlen("_Z16GetModuleHandleAPKc"));
    EXPECT_EQ(displacement, 4u);
    char readable[4];
    EXPECT_EQ(UnDecorateSymbolName("_Z3fooIiET_S0_", readable, 4, UNDNAME_NO_FUNCTION_RETURNS), 3u);
    EXPECT_STREQ(readable, "foo");
}

}  // namespace
