#include "tools/memrun/names/debug_server.h"

#include <dlfcn.h>
#include <elfutils/debuginfod.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace memrun::names {

namespace {

constexpr std::chrono::seconds longest_fetch{60};

std::function<void()> on_progress;

struct Fetch {
    std::string module;
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    bool has_shown = false;
};

// Bound at run time: the client brings two dozen libraries along, which no other run has to load.
class Client {
  public:
    Client() : library_(dlopen("libdebuginfod.so.1", RTLD_NOW)) {
        if (library_ == nullptr) {
            std::fputs(
                "ktl_memrun: debug files cannot be fetched: libdebuginfod.so.1 is not installed "
                "(apt-get install libdebuginfod1)\n",
                stderr);
            return;
        }
        const auto begin = bind<decltype(&debuginfod_begin)>("debuginfod_begin");
        client_ = begin == nullptr ? nullptr : begin();
    }

    debuginfod_client* get() const { return client_; }

    template <class Function>
    Function bind(const char* name) const {
        return reinterpret_cast<Function>(dlsym(library_, name));
    }

  private:
    void* library_;
    debuginfod_client* client_ = nullptr;
};

const Client& client() {
    static const Client& instance = *new Client;
    return instance;
}

void show(Fetch& fetch, long done, long all) {
    if (isatty(STDERR_FILENO) == 0) return;
    constexpr double mebibyte = 1 << 20;
    std::fprintf(stderr, "\rktl_memrun: fetching debug symbols of %s: %.1f of %.1f MiB\033[K",
                 fetch.module.c_str(), static_cast<double>(done) / mebibyte,
                 static_cast<double>(all) / mebibyte);
    fetch.has_shown = true;
}

Fetch* current = nullptr;

// What it returns other than 0 ends the fetch.
int on_client_progress(debuginfod_client*, long done, long all) {
    if (std::chrono::steady_clock::now() - current->begin > longest_fetch) return 1;
    on_progress();
    show(*current, done, all);
    return 0;
}

}  // namespace

void prepare_fetching(std::function<void()> progress) {
    on_progress = std::move(progress);
}

std::string fetch_debug_file(const std::string& build_id, const std::string& module_path) {
    if (client().get() == nullptr) return {};
    static const auto find = client().bind<decltype(&debuginfod_find_debuginfo)>("debuginfod_find_debuginfo");
    static const auto set_progress =
        client().bind<decltype(&debuginfod_set_progressfn)>("debuginfod_set_progressfn");
    if (find == nullptr || set_progress == nullptr) return {};
    Fetch fetch{std::filesystem::path(module_path).filename().string()};
    current = &fetch;
    set_progress(client().get(), on_client_progress);
    char* path = nullptr;
    const int file = find(client().get(), reinterpret_cast<const unsigned char*>(build_id.data()),
                          static_cast<int>(build_id.size()), &path);
    const std::unique_ptr<char, decltype(&std::free)> owned(path, std::free);
    if (fetch.has_shown) std::fputs("\r\033[K", stderr);
    if (file < 0) return {};
    close(file);
    return path;
}

}  // namespace memrun::names
