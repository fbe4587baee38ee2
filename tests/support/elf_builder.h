// Builds small ELF files for tests, of either class and byte order, a case in a few lines; and what
// stripping must make of them.
//
// A draft lists sections in index order, without section 0; the table of section names is filled
// in, and appended when the draft has none. Sections lie one behind the other unless the draft says
// otherwise. Nothing is checked: afterwards any header field can be set to anything.
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace sht {
constexpr uint32_t progbits = 1, symtab = 2, strtab = 3, rela = 4, nobits = 8, rel = 9, shndx = 18;
}
namespace shf {
constexpr uint64_t write = 1, alloc = 2, exec = 4;
}
namespace et {
constexpr uint16_t rel = 1, exec = 2, dyn = 3;
}

// The bytes of a number, and a number from bytes.
std::string number(uint64_t value, size_t width, bool big_endian = false);
uint64_t number_at(const std::string& bytes, size_t at, size_t width, bool big_endian);

struct elf_form {
    const char* name;
    int elfbits;
    bool big_endian;
    uint16_t machine;

    bool is_64() const { return elfbits == 64; }
    uint64_t word() const { return is_64() ? 8 : 4; }
    uint64_t head_size() const { return is_64() ? 64 : 52; }
};
// 64 and 32 bits in little-endian order, then both in big-endian: x86-64, i386, PowerPC64, PowerPC.
extern const std::array<elf_form, 4> elf_forms;

struct draft_section {
    std::string name;
    uint32_t type = sht::progbits;
    uint64_t flags = 0;
    std::string content = {}; // of sht::nobits only the size counts
    uint64_t align = 1;
    std::string link = {};    // the section that sh_link means, as index_of takes it
    std::string info = "#21"; // and that sh_info means
    uint64_t entsize = 0;
    uint64_t gap = 0;    // bytes of no section in front of it
    uint64_t offset = 0; // a place of its own in the file; 0: behind the one before
};

struct draft_segment {
    std::string section;           // p_offset and p_filesz are those of this section,
    uint64_t skip = 0;             // but begin so far inside it
    uint64_t offset = 0, size = 0; // found when the file is built, as are the tables' below
};

struct elf_draft {
    elf_form form = elf_forms[0];
    std::vector<draft_section> sections = {};
    std::vector<draft_segment> segments = {};
    uint16_t type = et::exec;
    std::string order = "P12S"; // of both tables and both halves of the sections in the file
    uint16_t extra_entsize = 0; // bytes by which entries of both tables exceed the standard size
    std::string name_table = ".shstrtab"; // what it holds already serves section names, too
    uint64_t phoff = 0, shoff = 0;

    uint64_t segment_size() const { return (form.is_64() ? 56u : 32u) + extra_entsize; }
    uint64_t section_size() const { return (form.is_64() ? 64u : 40u) + extra_entsize; }
};

// The section's number; "#n" is number n. 0: none.
uint32_t index_of(const elf_draft& draft, const std::string& section);
std::string build_elf(const elf_draft& draft);

// The draft with all section names in their table.
elf_draft complete(elf_draft draft);
// What stripping must make of the file of `before` to leave the sections of `after`, which are in
// the same order, with the contents that they have there. The rule: what lies behind data that
// shrinks or goes moves down by what is saved, that is by the old size rounded down to the word of
// the class, less the new one rounded up, to which its section is filled.
std::string build_moved(elf_draft before, elf_draft after);
// The same without the unallocated sections of these names.
std::string build_stripped(const elf_draft& before, const std::set<std::string>& removed);
// How one file differs from another, if it does.
std::string difference(const std::string& actual, const std::string& expected);

// A draft with a section for each rule of what goes and what stays, of odd sizes and with gaps, and
// segments in front of, behind and inside what goes. Without symbols it has a ".strtab" all the
// same, but no symbol table.
elf_draft sample_draft(const elf_form& form, bool with_symbols = true);
// What an option-less run removes from it.
extern const std::set<std::string> sample_removed;

// `size` bytes, none of them 0, that differ by `seed` and by position.
std::string filler(size_t size, size_t seed);

// clang-format off
enum class field : uint8_t {
    e_type, e_machine, e_version, e_entry, e_phoff, e_shoff, e_flags, e_ehsize, e_phentsize,
    e_phnum, e_shentsize, e_shnum, e_shstrndx,
    p_type, p_flags, p_offset, p_vaddr, p_paddr, p_filesz, p_memsz, p_align,
    sh_name, sh_type, sh_flags, sh_addr, sh_offset, sh_size, sh_link, sh_info, sh_addralign,
    sh_entsize,
    st_name, st_info, st_other, st_shndx, st_value, st_size, r_offset, r_info, r_addend, word
};
// clang-format on
field field_called(const std::string& name);

// A field of the file header, or of entry `index` of the table that the file header points to. A
// field outside the file reads as 0 and is not written.
uint64_t get_field(const std::string& file, field which, uint64_t index = 0);
void set_field(std::string& file, field which, uint64_t value, uint64_t index = 0);

using field_values = std::vector<std::pair<field, uint64_t>>;
// Appends an entry of `size` bytes with these fields.
void append_entry(std::string& table, const elf_form& form, uint64_t size,
                  const field_values& values);

// Of any file, as the tests read it.
std::vector<std::string> section_names(const std::string& file); // by index; section 0 has ""
