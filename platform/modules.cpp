#include "platform/modules.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/dbghelp.h"
#include "platform/last_error.h"
#include "platform/module_name.h"
#include "platform/symbols/loaded_image.h"

namespace {

// The handle of the symbol services, which are a module by name only and are linked in. Asking for them
// must not reach the loader, since a symbolizer binds them on the event path.
char dbghelp_module;

struct MODULE_SEARCH {
    std::string_view wanted;
    bool found = false;
    std::string path;  // empty for the executable
};

std::string executable_path() {
    char path[4096];
    const std::uint32_t length = GetModuleFileNameA(nullptr, path, sizeof path);
    return {path, length};
}

// A loader that is called by its name has mapped the program itself; the system takes the loader for the
// executable.
bool loader_is_executable() {
    return getauxval(AT_BASE) == 0;
}
std::string program_of_loader() {
    return symbols::mapped_file_at(getauxval(AT_PHDR));
}

struct EXECUTABLE {
    char path[4096];
    std::size_t length = 0;
    int error = 0;
};

EXECUTABLE read_executable() {
    EXECUTABLE read;
    const ssize_t got = loader_is_executable()
                            ? static_cast<ssize_t>(program_of_loader().copy(read.path, sizeof read.path))
                            : readlink("/proc/self/exe", read.path, sizeof read.path);
    if (got < 0) {
        read.error = errno;
        return read;
    }
    std::string_view text(read.path, static_cast<std::size_t>(got));
    constexpr std::string_view gone = " (deleted)";  // the kernel's mark when the file was removed meanwhile
    if (text.ends_with(gone)) text.remove_suffix(gone.size());
    read.length = text.size();
    return read;
}

// The name that the process was started by, also when the file is moved.
const EXECUTABLE& executable() {
    static const EXECUTABLE known = read_executable();
    return known;
}

int compare_module(dl_phdr_info* info, std::size_t, void* argument) {
    auto& search = *static_cast<MODULE_SEARCH*>(argument);
    const std::string path = info->dlpi_name[0] == '\0' ? executable_path() : info->dlpi_name;
    if (module_base_name(path) != search.wanted) return 0;
    search.found = true;
    search.path = info->dlpi_name;
    return 1;
}

}  // namespace

HMODULE GetModuleHandleA(const char* name) {
    if (name == nullptr) return nullptr;
    MODULE_SEARCH search{.wanted = name, .path = {}};
    if (search.wanted.ends_with(".dll")) search.wanted.remove_suffix(4);
    if (search.wanted == "dbghelp") return &dbghelp_module;
    dl_iterate_phdr(compare_module, &search);
    if (!search.found) return nullptr;
    void* handle = dlopen(search.path.empty() ? nullptr : search.path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    // The handle names the module without holding it, so the reference that dlopen added goes back.
    if (handle != nullptr) dlclose(handle);
    return handle;
}

void* GetProcAddress(HMODULE module, const char* symbol) {
    if (module == nullptr || symbol == nullptr) return nullptr;
    if (module == &dbghelp_module) return dbghelp_entry(symbol);
    return dlsym(module, symbol);
}

void* thr_drl_find_function(HMODULE module, const char* symbol) {
    return GetProcAddress(module, symbol);
}

std::string executable_file() {
    return loader_is_executable() ? program_of_loader() : "/proc/self/exe";
}

std::uint32_t GetModuleFileNameA(HMODULE module, char* buffer, std::uint32_t size) {
    if (module != nullptr || buffer == nullptr || size == 0) return 0;
    const EXECUTABLE& known = executable();
    if (known.error != 0) SetLastError(static_cast<std::uint32_t>(known.error));
    const std::size_t length = std::min<std::size_t>(known.length, size - 1);
    std::memcpy(buffer, known.path, length);
    buffer[length] = '\0';
    return static_cast<std::uint32_t>(length);
}
