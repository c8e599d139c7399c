#include "platform/symbols/elf_file.h"

#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <new>

namespace symbols {
namespace {

std::string build_id_path(const std::string& id) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string path = "/usr/lib/debug/.build-id/";
    for (std::size_t i = 0; i < id.size(); ++i) {
        const auto byte = static_cast<unsigned char>(id[i]);
        path += {digits[byte >> 4], digits[byte & 15]};
        if (i == 0) path += '/';
    }
    return path + ".debug";
}

// libdw would end the process.
__attribute__((noreturn)) void throw_no_memory() {
    throw std::bad_alloc();
}

}  // namespace

std::unique_ptr<ELF_FILE> ELF_FILE::open(const std::string& path) {
    elf_version(EV_CURRENT);
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) return nullptr;
    // Whatever a debug link names: a pipe would be waited for.
    struct stat status {};
    const bool is_file = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    Elf* elf = is_file ? elf_begin(descriptor, ELF_C_READ_MMAP, nullptr) : nullptr;
    std::unique_ptr<ELF_FILE> file;
    if (elf != nullptr && elf_kind(elf) == ELF_K_ELF) {
        file.reset(new ELF_FILE(path, elf));
        file->decode_sections();
        elf = file->handle;
        // While the descriptor is open: libdw notes the folder of the file by it.
        file->debug_info = dwarf_begin_elf(elf, DWARF_C_READ, nullptr);
        elf_cntl(elf, ELF_C_FDREAD);
        if (file->debug_info != nullptr) {
            dwarf_new_oom_handler(file->debug_info, throw_no_memory);
            file->attach_shared_debug_file();
        }
    } else {
        elf_end(elf);
    }
    close(descriptor);
    return file;
}

ELF_FILE::~ELF_FILE() {
    if (debug_info != nullptr) dwarf_end(debug_info);
    elf_end(handle);
}

void ELF_FILE::decode_sections() {
    decoded_image = image_with_decoded_sections(handle);
    if (decoded_image.bytes == nullptr) return;
    Elf* decoded = elf_memory(decoded_image.bytes.get(), decoded_image.size);
    if (decoded == nullptr) return;
    elf_end(handle);
    handle = decoded;
}

bool ELF_FILE::has_units() const {
    Dwarf_CU* first = nullptr;
    return debug_info != nullptr &&
           dwarf_get_units(debug_info, nullptr, &first, nullptr, nullptr, nullptr, nullptr) == 0;
}

std::string ELF_FILE::build_id() const {
    const void* id = nullptr;
    const ssize_t size = dwelf_elf_gnu_build_id(handle, &id);
    return size > 0 ? std::string(static_cast<const char*>(id), static_cast<std::size_t>(size))
                    : std::string();
}

DEBUG_LINK ELF_FILE::debug_link() const {
    GElf_Word checksum = 0;
    const char* file = dwelf_elf_gnu_debuglink(handle, &checksum);
    return file == nullptr ? DEBUG_LINK{} : DEBUG_LINK{.file = file, .checksum = checksum};
}

bool ELF_FILE::holds_code_at(std::uint64_t file_address) const {
    std::size_t count = 0;
    if (elf_getphdrnum(handle, &count) != 0) return false;
    for (std::size_t i = 0; i < count; ++i) {
        GElf_Phdr segment;
        if (gelf_getphdr(handle, static_cast<int>(i), &segment) == nullptr) continue;
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 && file_address >= segment.p_vaddr &&
            file_address - segment.p_vaddr < segment.p_memsz)
            return true;
    }
    return false;
}

// libdw would find the file by itself, but keep a descriptor open that a started program inherits.
void ELF_FILE::attach_shared_debug_file() {
    const char* name = nullptr;
    const void* id = nullptr;
    const ssize_t id_size = dwelf_dwarf_gnu_debugaltlink(debug_info, &name, &id);
    if (id_size <= 0) return;
    const std::string wanted(static_cast<const char*>(id), static_cast<std::size_t>(id_size));
    shared_debug_file = open_by_build_id(wanted);
    if (shared_debug_file == nullptr)
        shared_debug_file = open((std::filesystem::path(file_path).parent_path() / name).string());
    if (shared_debug_file != nullptr && shared_debug_file->build_id() != wanted) shared_debug_file.reset();
    lacks_shared_debug_file = shared_debug_file == nullptr;
    if (shared_debug_file != nullptr) dwarf_setalt(debug_info, shared_debug_file->dwarf());
}

std::unique_ptr<ELF_FILE> open_by_build_id(const std::string& build_id) {
    if (build_id.size() < 2) return nullptr;
    auto file = ELF_FILE::open(build_id_path(build_id));
    return file != nullptr && file->build_id() == build_id ? std::move(file) : nullptr;
}

}  // namespace symbols
