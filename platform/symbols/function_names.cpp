#include "platform/symbols/function_names.h"

#include <dwarf.h>
// The C library declares basename already, and differently.
#define HAVE_DECL_BASENAME 1
#include <libiberty/demangle.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace symbols {
namespace {

struct FREE_TEXT {
    void operator()(char* text) const { std::free(text); }
};

// The demangler keeps 80 bytes for each character on the stack, and this much fits the one that it runs on. A
// longer name is put together from the debug information, or else stays as the linker knows it.
constexpr std::size_t longest_mangled_name = 8192;

// Compilers mark the copies that they make of a function behind a full stop: ".cold", ".constprop.0".
std::string without_clone_marks(const char* name) {
    const std::string_view text = name;
    return std::string(text.substr(0, text.find('.', 1)));
}

// Of the present form, or of the older one, which ends in a hash.
bool is_rust(std::string_view name) {
    if (name.size() > longest_mangled_name) return false;
    constexpr std::size_t hash = sizeof "17h0123456789abcdefE" - 1;
    return name.starts_with("_R") || (name.starts_with("_ZN") && name.size() > hash &&
                                      name.substr(name.size() - hash).starts_with("17h"));
}

bool is_mangled(const std::string& name) {
    return name.starts_with("_Z") && name.size() <= longest_mangled_name;
}

bool is_c_language(int language) {
    switch (language) {
        case DW_LANG_C:
        case DW_LANG_C89:
        case DW_LANG_C99:
        case DW_LANG_C11:
            return true;
        default:
            return false;
    }
}

Dwarf_Die unit_of(Dwarf_Die& entry) {
    Dwarf_Die unit;
    dwarf_cu_die(entry.cu, &unit, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    return unit;
}

const char* text_of(Dwarf_Die& entry, unsigned int name) {
    Dwarf_Attribute attribute;
    return dwarf_attr_integrate(&entry, name, &attribute) == nullptr ? nullptr : dwarf_formstring(&attribute);
}

// More links than this in a row, or functions within functions, are a damaged file.
constexpr int deepest_chain = 16;

// The entry that declares the function: the parents of that one name it, whereas copies and definitions can
// lie anywhere.
Dwarf_Die declaration_of(Dwarf_Die entry) {
    for (int links = 0; links < deepest_chain; ++links) {
        Dwarf_Attribute attribute;
        Dwarf_Die target;
        if (dwarf_attr(&entry, DW_AT_abstract_origin, &attribute) == nullptr &&
            dwarf_attr(&entry, DW_AT_specification, &attribute) == nullptr)
            break;
        if (dwarf_formref_die(&attribute, &target) == nullptr) break;
        entry = target;
    }
    return entry;
}

std::string name_at_depth(Dwarf_Die& function, int depth);

std::string name_of_parent(Dwarf_Die& parent, std::string_view child, int depth) {
    const char* name = dwarf_diename(&parent);
    switch (dwarf_tag(&parent)) {
        case DW_TAG_namespace:
            return name == nullptr ? "(anonymous namespace)" : name;
        case DW_TAG_structure_type:
        case DW_TAG_class_type:
        case DW_TAG_union_type:
            if (name != nullptr) return name;
            return child == "operator()" ? "{lambda}" : "{unnamed}";
        case DW_TAG_subprogram:
            return name_at_depth(parent, depth + 1);
        default:
            return {};
    }
}

// Puts the parents of the entry in front of its own name. Entries know no parents, but lie in the order of
// their offsets, so the way down from the unit leads through the last entry in front of each.
std::string qualified(Dwarf_Die entry, const char* name, int depth) {
    const Dwarf_Off wanted = dwarf_dieoffset(&entry);
    std::string result;
    Dwarf_Die scope = unit_of(entry);
    while (dwarf_dieoffset(&scope) < wanted) {
        Dwarf_Die child;
        if (dwarf_child(&scope, &child) != 0) break;
        for (Dwarf_Die next; dwarf_siblingof(&child, &next) == 0 && dwarf_dieoffset(&next) <= wanted;)
            child = next;
        if (dwarf_dieoffset(&child) >= wanted) break;
        const std::string parent = name_of_parent(child, name, depth);
        // A function as parent already brings all that stands in front of it.
        if (dwarf_tag(&child) == DW_TAG_subprogram) result.clear();
        if (!parent.empty()) result += parent + "::";
        scope = child;
    }
    return result + name;
}

std::string name_at_depth(Dwarf_Die& function, int depth) {
    if (depth > deepest_chain) return {};
    const char* plain = text_of(function, DW_AT_name);
    Dwarf_Die declaration = declaration_of(function);
    Dwarf_Die unit = unit_of(declaration);
    if (plain != nullptr && is_c_language(dwarf_srclang(&unit))) return plain;
    const char* linkage = linkage_name_of(function);
    if (linkage != nullptr && (plain == nullptr || std::strlen(linkage) <= longest_mangled_name))
        return demangled(linkage);
    return plain == nullptr ? std::string() : qualified(declaration, plain, depth);
}

}  // namespace

std::string demangled(const char* linkage_name) {
    if (is_rust(linkage_name)) {
        const std::unique_ptr<char, FREE_TEXT> text(rust_demangle(linkage_name, 0));
        if (text != nullptr) return text.get();
    }
    std::string name = without_clone_marks(linkage_name);
    if (!is_mangled(name)) return name;
    constexpr int options = DMGL_PARAMS | DMGL_ANSI | DMGL_RET_DROP | DMGL_NO_RECURSE_LIMIT;
    const std::unique_ptr<char, FREE_TEXT> text(cplus_demangle_v3(name.c_str(), options));
    return text == nullptr ? name : std::string(text.get());
}

const char* linkage_name_of(Dwarf_Die& function) {
    const char* name = text_of(function, DW_AT_linkage_name);
    return name != nullptr ? name : text_of(function, DW_AT_MIPS_linkage_name);
}

std::string function_name(Dwarf_Die& function) {
    return name_at_depth(function, 0);
}

}  // namespace symbols
