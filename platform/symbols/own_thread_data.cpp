#include "platform/symbols/own_thread_data.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace symbols {
namespace {

// What the libraries' code hands over: the number of its module, and where in the module's data to look.
struct TLS_INDEX {
    std::uint64_t module;
    std::uint64_t offset;
};

constexpr std::size_t most_data = 64;

struct LIBRARY {
    std::uint64_t module = 0;  // 0: not taken over
    std::array<char, most_data> image{};
};

struct THREAD_DATA {
    bool is_made = false;
    alignas(16) std::array<char, most_data> data{};
};

constexpr std::size_t library_count = 2;
constinit std::array<LIBRARY, library_count> libraries;
constinit thread_local std::array<THREAD_DATA, library_count> data_of_libraries
    __attribute__((tls_model("initial-exec")));

// Stands for __tls_get_addr.
void* address_of_data(const TLS_INDEX* index) {
    const std::size_t at = index->module == libraries[0].module ? 0 : 1;
    THREAD_DATA& of_thread = data_of_libraries[at];
    if (!of_thread.is_made) {
        of_thread.is_made = true;
        of_thread.data = libraries[at].image;
    }
    return of_thread.data.data() + index->offset;
}

// A loaded object by its dynamic section, and by its headers, which lie at its start.
class OBJECT {
  public:
    // False for one that cannot be read.
    bool open(const void* code) {
        dl_find_object found;
        if (_dl_find_object(const_cast<void*>(code), &found) != 0) return false;
        bias_ = found.dlfo_link_map->l_addr;
        header_ = static_cast<const Elf64_Ehdr*>(found.dlfo_map_start);
        if (std::memcmp(header_->e_ident, ELFMAG, SELFMAG) != 0) return false;
        for (const Elf64_Dyn* entry = found.dlfo_link_map->l_ld; entry->d_tag != DT_NULL; ++entry)
            note(*entry);
        return names_ != nullptr && symbols_ != nullptr;
    }

    const Elf64_Phdr* segment(Elf64_Word type) const {
        const auto* segments =
            reinterpret_cast<const Elf64_Phdr*>(reinterpret_cast<const char*>(header_) + header_->e_phoff);
        for (int i = 0; i < header_->e_phnum; ++i)
            if (segments[i].p_type == type) return &segments[i];
        return nullptr;
    }

    template <class T>
    T* at(std::uint64_t file_address) const {
        return reinterpret_cast<T*>(bias_ + file_address);
    }

    // The word that a relocation of the type fills in; of a function with that name, where one is given. Null
    // when there is none, or more than one.
    std::uint64_t* relocated_word(std::initializer_list<Elf64_Xword> types, std::string_view name) const {
        std::uint64_t* word = nullptr;
        for (const RELOCATIONS& table : {data_, calls_}) {
            for (std::size_t i = 0; i < table.size / sizeof(Elf64_Rela); ++i) {
                const Elf64_Rela& entry = table.entries[i];
                const Elf64_Xword type = ELF64_R_TYPE(entry.r_info);
                if (std::ranges::find(types, type) == types.end()) continue;
                const Elf64_Sym& symbol = symbols_[ELF64_R_SYM(entry.r_info)];
                if (names_ + symbol.st_name != name) continue;
                if (word != nullptr) return nullptr;
                word = at<std::uint64_t>(entry.r_offset);
            }
        }
        return word;
    }

  private:
    struct RELOCATIONS {
        const Elf64_Rela* entries = nullptr;
        std::size_t size = 0;
    };

    // The loader adds where the object lies to the addresses of its dynamic section, where it can write
    // there.
    template <class T>
    const T* address(const Elf64_Dyn& entry) const {
        return at<const T>(entry.d_un.d_ptr < bias_ ? entry.d_un.d_ptr : entry.d_un.d_ptr - bias_);
    }

    void note(const Elf64_Dyn& entry) {
        switch (entry.d_tag) {
            case DT_STRTAB:
                names_ = address<char>(entry);
                break;
            case DT_SYMTAB:
                symbols_ = address<Elf64_Sym>(entry);
                break;
            case DT_RELA:
                data_.entries = address<Elf64_Rela>(entry);
                break;
            case DT_RELASZ:
                data_.size = entry.d_un.d_val;
                break;
            case DT_JMPREL:
                calls_.entries = address<Elf64_Rela>(entry);
                break;
            case DT_PLTRELSZ:
                calls_.size = entry.d_un.d_val;
                break;
            default:
                break;
        }
    }

    std::uint64_t bias_ = 0;
    const Elf64_Ehdr* header_ = nullptr;
    const char* names_ = nullptr;
    const Elf64_Sym* symbols_ = nullptr;
    RELOCATIONS data_;
    RELOCATIONS calls_;
};

// The word may lie where the loader has taken the right to write away again.
bool make_writable(std::uint64_t* word) {
    const auto page_size = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    const std::uint64_t page = reinterpret_cast<std::uint64_t>(word) & ~(page_size - 1);
    return mprotect(reinterpret_cast<void*>(page), page_size, PROT_READ | PROT_WRITE) == 0;
}

void take_over(const void* code, LIBRARY& library) {
    OBJECT object;
    if (!object.open(code)) return;
    const Elf64_Phdr* const data = object.segment(PT_TLS);
    if (data == nullptr || data->p_memsz > most_data || data->p_align > 16) return;
    std::uint64_t* const module = object.relocated_word({R_X86_64_DTPMOD64}, "");
    std::uint64_t* const call =
        object.relocated_word({R_X86_64_JUMP_SLOT, R_X86_64_GLOB_DAT}, "__tls_get_addr");
    if (module == nullptr || call == nullptr || !make_writable(call)) return;
    std::memcpy(library.image.data(), object.at<const char>(data->p_vaddr), data->p_filesz);
    library.module = *module;
    std::atomic_ref(*call).store(reinterpret_cast<std::uint64_t>(&address_of_data),
                                 std::memory_order_release);
}

}  // namespace

void take_over_thread_data(const std::array<const void*, 2>& codes) {
    if (libraries[0].module != 0 || libraries[1].module != 0) return;
    for (std::size_t i = 0; i < library_count; ++i) take_over(codes[i], libraries[i]);
}

}  // namespace symbols
