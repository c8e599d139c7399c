#include "platform/symbols/package_file.h"

#include <dwarf.h>

#include <array>
#include <cstring>
#include <string_view>

namespace symbols {
namespace {

// By the numbers of the columns; the older form numbers the first four and the sixth alike.
constexpr std::array<const char*, 9> column_sections = {
    nullptr,           ".debug_info",        nullptr, ".debug_abbrev",  ".debug_line",
    ".debug_loclists", ".debug_str_offsets", nullptr, ".debug_rnglists"};

std::map<std::string, std::string_view> sections_of(Elf* elf) {
    std::map<std::string, std::string_view> sections;
    std::size_t names = 0;
    if (elf_getshdrstrndx(elf, &names) != 0) return sections;
    for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr;
         section = elf_nextscn(elf, section)) {
        GElf_Shdr header;
        if (gelf_getshdr(section, &header) == nullptr || header.sh_type == SHT_NOBITS) continue;
        if ((header.sh_flags & SHF_COMPRESSED) != 0) elf_compress(section, 0, 0);
        const char* name = elf_strptr(elf, names, header.sh_name);
        const Elf_Data* data = elf_getdata(section, nullptr);
        if (name != nullptr && data != nullptr && data->d_buf != nullptr)
            sections[name] = {static_cast<const char*>(data->d_buf), data->d_size};
    }
    return sections;
}

std::string_view find(const std::map<std::string, std::string_view>& sections, const std::string& name) {
    const auto found = sections.find(name);
    return found == sections.end() ? std::string_view() : found->second;
}

template <class NUMBER>
NUMBER number_at(std::string_view bytes, std::size_t at) {
    NUMBER value{};
    if (at <= bytes.size() && sizeof value <= bytes.size() - at)
        std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

std::uint64_t attribute_of(Dwarf_Die& entry, unsigned name, unsigned older_name) {
    Dwarf_Attribute attribute;
    Dwarf_Word value = 0;
    if (dwarf_attr(&entry, name, &attribute) == nullptr &&
        dwarf_attr(&entry, older_name, &attribute) == nullptr)
        return 0;
    return dwarf_formudata(&attribute, &value) == 0 ? value : 0;
}

std::string_view behind(std::string_view bytes, std::uint64_t offset) {
    return offset < bytes.size() ? bytes.substr(offset) : std::string_view();
}

// An ELF file of debug sections.
class IMAGE {
  public:
    IMAGE() { add("", {}, SHT_NULL); }

    void add(const std::string& name, std::string_view content, std::uint32_t type = SHT_PROGBITS) {
        Elf64_Shdr header{};
        header.sh_name = static_cast<std::uint32_t>(names.size());
        header.sh_type = type;
        header.sh_offset = sizeof(Elf64_Ehdr) + body.size();
        header.sh_size = content.size();
        header.sh_addralign = 1;
        headers.push_back(header);
        names += name + '\0';
        body += content;
        body.resize((body.size() + 7) / 8 * 8);
    }

    std::string finish() {
        const std::string name = ".shstrtab";
        add(name, names + name + '\0', SHT_STRTAB);
        Elf64_Ehdr file{};
        std::memcpy(file.e_ident, ELFMAG, SELFMAG);
        file.e_ident[EI_CLASS] = ELFCLASS64;
        file.e_ident[EI_DATA] = ELFDATA2LSB;
        file.e_ident[EI_VERSION] = EV_CURRENT;
        file.e_type = ET_REL;
        file.e_machine = EM_X86_64;
        file.e_version = EV_CURRENT;
        file.e_ehsize = sizeof file;
        file.e_shentsize = sizeof(Elf64_Shdr);
        file.e_shoff = sizeof file + body.size();
        file.e_shnum = static_cast<std::uint16_t>(headers.size());
        file.e_shstrndx = static_cast<std::uint16_t>(headers.size() - 1);
        std::string all(reinterpret_cast<const char*>(&file), sizeof file);
        all += body;
        all.append(reinterpret_cast<const char*>(headers.data()), headers.size() * sizeof headers[0]);
        return all;
    }

  private:
    std::string names;
    std::string body;
    std::vector<Elf64_Shdr> headers;
};

// A skeleton's unit has the same header as a split one. libdw takes a split unit without its skeleton for
// damaged, but a skeleton without its split unit as it is.
std::string as_skeleton(std::string_view info) {
    std::string changed(info);
    constexpr std::size_t version_at = 4, type_at = 6;
    const bool has_type = number_at<std::uint16_t>(info, version_at) >= 5;
    if (has_type && changed.size() > type_at) changed[type_at] = DW_UT_skeleton;
    return changed;
}

}  // namespace

std::unique_ptr<PACKAGE_FILE> PACKAGE_FILE::find(const ELF_FILE& skeletons) {
    std::unique_ptr<ELF_FILE> file = ELF_FILE::open(skeletons.path() + ".dwp");
    if (file == nullptr) return nullptr;
    return std::unique_ptr<PACKAGE_FILE>(new PACKAGE_FILE(std::move(file), skeletons));
}

PACKAGE_FILE::PACKAGE_FILE(std::unique_ptr<ELF_FILE> opened, const ELF_FILE& described)
    : file(std::move(opened)), sections(sections_of(file->elf())), program(sections_of(described.elf())) {
    read_index();
}

PACKAGE_FILE::~PACKAGE_FILE() {
    for (const auto& opened : opened_units) {
        dwarf_end(opened->dwarf);
        elf_end(opened->elf);
    }
}

// The index is a hash table of the units' ids with the numbers of their rows, and behind it two tables with a
// row for each unit and a column for each section: where its part begins, and how large that is.
void PACKAGE_FILE::read_index() {
    const std::string_view index = symbols::find(sections, ".debug_cu_index");
    constexpr std::size_t header = 16;
    const std::uint64_t columns = number_at<std::uint32_t>(index, 4);
    const std::uint64_t units = number_at<std::uint32_t>(index, 8);
    const std::uint64_t slots = number_at<std::uint32_t>(index, 12);
    const std::uint64_t numbers_at = header + slots * 8;
    const std::uint64_t columns_at = numbers_at + slots * 4;
    const std::uint64_t offsets_at = columns_at + columns * 4;
    const std::uint64_t sizes_at = offsets_at + columns * units * 4;
    if (columns > 16 || slots > index.size() || units > slots ||
        sizes_at + columns * units * 4 > index.size())
        return;
    for (std::uint64_t slot = 0; slot < slots; ++slot) {
        const auto row = number_at<std::uint32_t>(index, numbers_at + slot * 4);
        if (row == 0 || row > units) continue;
        ROW& parts = rows[number_at<std::uint64_t>(index, header + slot * 8)];
        for (std::uint64_t column = 0; column < columns; ++column) {
            const auto kind = number_at<std::uint32_t>(index, columns_at + column * 4);
            const std::uint64_t cell = ((row - 1) * columns + column) * 4;
            if (kind < column_sections.size() && column_sections[kind] != nullptr)
                parts[column_sections[kind]] = {number_at<std::uint32_t>(index, offsets_at + cell),
                                                number_at<std::uint32_t>(index, sizes_at + cell)};
        }
    }
}

std::string_view PACKAGE_FILE::part_of(const ROW& row, const std::string& section) const {
    const auto part = row.find(section);
    const std::string_view whole = symbols::find(sections, section + ".dwo");
    if (part == row.end() || part->second.offset > whole.size()) return {};
    return whole.substr(part->second.offset, part->second.size);
}

Dwarf_Die PACKAGE_FILE::open_image(std::string image) {
    Dwarf_Die entry{};
    auto opened = std::make_unique<OPENED>();
    opened->image = std::move(image);
    opened->elf = elf_memory(opened->image.data(), opened->image.size());
    opened->dwarf = dwarf_begin_elf(opened->elf, DWARF_C_READ, nullptr);
    Dwarf_CU* unit = nullptr;
    if (opened->dwarf != nullptr)
        dwarf_get_units(opened->dwarf, nullptr, &unit, nullptr, nullptr, &entry, nullptr);
    opened_units.push_back(std::move(opened));
    return entry;
}

PACKAGE_UNIT PACKAGE_FILE::open(std::uint64_t unit_id, Dwarf_Die& skeleton) {
    PACKAGE_UNIT unit;
    const auto row = rows.find(unit_id);
    if (row == rows.end()) return unit;
    const std::string_view info = part_of(row->second, ".debug_info");
    const auto image_of = [&](std::string_view info_part) {
        IMAGE image;
        image.add(".debug_info", info_part);
        for (const char* section :
             {".debug_abbrev", ".debug_line", ".debug_str_offsets", ".debug_rnglists"}) {
            const std::string_view part = part_of(row->second, section);
            if (!part.empty()) image.add(section, part);
        }
        image.add(".debug_str", symbols::find(sections, ".debug_str.dwo"));
        // The unit's own addresses and ranges stand at the beginning, where it looks for them without a base.
        image.add(".debug_addr", behind(symbols::find(program, ".debug_addr"),
                                        attribute_of(skeleton, DW_AT_addr_base, DW_AT_GNU_addr_base)));
        image.add(".debug_ranges",
                  behind(symbols::find(program, ".debug_ranges"),
                         attribute_of(skeleton, DW_AT_GNU_ranges_base, DW_AT_GNU_ranges_base)));
        return image.finish();
    };
    unit.contents = open_image(image_of(as_skeleton(info)));
    const bool has_files =
        !part_of(row->second, ".debug_line").empty() && number_at<std::uint16_t>(info, 4) >= 5;
    if (has_files) unit.files = open_image(image_of(info));
    return unit;
}

}  // namespace symbols
