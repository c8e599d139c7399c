#include "tools/memrun/libraries.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <vector>

#include "tools/memrun/failure.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

constexpr const char* allocator_name = "libtcmalloc_minimal.so.4";

// LD_LIBRARY_PATH and the system's own folders, as the loader searches them for this executable.
std::vector<fs::path> loader_folders() {
    void* self = dlopen(nullptr, RTLD_LAZY);
    Dl_serinfo size;
    std::vector<fs::path> folders;
    if (dlinfo(self, RTLD_DI_SERINFOSIZE, &size) == 0) {
        const auto storage =
            std::make_unique<std::max_align_t[]>(size.dls_size / sizeof(std::max_align_t) + 1);
        auto* info = reinterpret_cast<Dl_serinfo*>(storage.get());
        *info = size;
        if (dlinfo(self, RTLD_DI_SERINFO, info) == 0)
            for (unsigned i = 0; i < info->dls_cnt; ++i) folders.emplace_back(info->dls_serpath[i].dls_name);
    }
    dlclose(self);
    folders.emplace_back("/usr/local/lib");
    return folders;
}

std::string find_allocator() {
    for (const fs::path& folder : loader_folders())
        if (std::error_code ignored; fs::exists(folder / allocator_name, ignored))
            return fs::absolute(folder / allocator_name).string();
    throw Failure(status_launcher_fault,
                  std::string("the allocator ") + allocator_name +
                      " is not installed, and without it no allocation can be seen: apt-get install "
                      "libtcmalloc-minimal4, or name its folder in LD_LIBRARY_PATH");
}

// Beside the folder of this executable, in an installation as in a build tree.
std::string find_own(const char* name) {
    const fs::path root = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
    for (const char* folder : {KTL_MEM_LIBDIR, "lib"})
        if (std::error_code ignored; fs::exists(root / folder / name, ignored))
            return (root / folder / name).string();
    throw Failure(status_launcher_fault, (root / KTL_MEM_LIBDIR / name).string() +
                                             " is missing: build or install ktl_mem as a whole");
}

void require_preloadable(const std::string& path) {
    if (path.find_first_of(" :$") != std::string::npos)
        throw Failure(status_launcher_fault,
                      "'" + path +
                          "' cannot be preloaded: its path holds a blank or a colon, at which the "
                          "loader cuts, or a dollar sign, which it replaces; install it elsewhere");
}

}  // namespace

Libraries find_libraries() {
    Libraries libraries{find_allocator(), find_own("libktl_mem.so.1"), find_own("libktl_memrun_agent.so"),
                        find_own("libktl_memrun_early_start.so"), find_own("libktl_memrun_fill_guard.so")};
    for (const std::string* path : {&libraries.allocator, &libraries.tracker, &libraries.agent,
                                    &libraries.early_start, &libraries.fill_guard})
        require_preloadable(*path);
    return libraries;
}

}  // namespace memrun
