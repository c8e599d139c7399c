#include "tools/memrun/elf_check.h"

#include <elf.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <vector>

#include "tools/memrun/sanitizers.h"

namespace memrun {

namespace {

bool starts_like_elf(const unsigned char* ident) {
    return std::memcmp(ident, ELFMAG, SELFMAG) == 0;
}

bool has_interpreter(std::ifstream& file, const Elf64_Ehdr& header) {
    std::vector<Elf64_Phdr> segments(header.e_phnum);
    file.seekg(static_cast<std::streamoff>(header.e_phoff));
    file.read(reinterpret_cast<char*>(segments.data()),
              static_cast<std::streamsize>(segments.size() * sizeof(Elf64_Phdr)));
    if (!file) return false;
    for (const Elf64_Phdr& segment : segments)
        if (segment.p_type == PT_INTERP) return true;
    return false;
}

std::string why_not_loadable(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return "cannot be read, so that it cannot be checked";
    Elf64_Ehdr header{};
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    if (!starts_like_elf(header.e_ident)) return "is no executable of this system";
    if (header.e_ident[EI_CLASS] != ELFCLASS64)
        return "is a 32-bit program; only x86-64 programs can be tracked";
    if (header.e_machine != EM_X86_64)
        return "is built for another architecture; only x86-64 programs can be tracked";
    if (header.e_phentsize != sizeof(Elf64_Phdr)) return "has a damaged ELF header";
    if (!has_interpreter(file, header))
        return "is statically linked, so that nothing can be loaded into it; link it dynamically";
    return "";
}

// The loader drops preloaded objects for a program that gains privileges.
std::string why_privileged(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return "";
    if ((status.st_mode & S_ISUID) != 0 && status.st_uid != getuid())
        return "is set-uid, and the loader lets nobody load objects into it; run it as its owner, or a copy "
               "without that bit";
    if ((status.st_mode & S_ISGID) != 0 && status.st_gid != getgid())
        return "is set-gid, and the loader lets nobody load objects into it; run a copy without that bit";
    if (getuid() != 0 && getxattr(path.c_str(), "security.capability", nullptr, 0) > 0)
        return "has file capabilities, and the loader lets nobody load objects into it; run a copy without "
               "them";
    return "";
}

}  // namespace

bool is_elf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    unsigned char magic[SELFMAG] = {};
    file.read(reinterpret_cast<char*>(magic), sizeof magic);
    return file && starts_like_elf(magic);
}

std::string why_not_trackable(const std::string& path) {
    if (std::string reason = why_not_loadable(path); !reason.empty()) return reason;
    if (std::string reason = why_privileged(path); !reason.empty()) return reason;
    const std::string sanitizer = sanitizer_of(path);
    if (sanitizer.empty()) return "";
    return "is built with " + sanitizer + ", which brings its own allocator; build it without";
}

}  // namespace memrun
