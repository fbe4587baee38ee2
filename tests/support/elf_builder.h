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
    std::string link = {}, info = "#21"; // the sections that these fields mean, for index_of
    uint64_t entsize = 0, gap = 0;       // gap: bytes of no section in front of it
    uint64_t offset = 0;                 // a place of its own in the file; 0: behind the one before
};

struct draft_segment {
    std::string section;                     // p_offset and p_filesz are those of this section,
    uint64_t skip = 0, offset = 0, size = 0; // less `skip` bytes; found when the file is built
};

struct elf_draft {
    elf_form form = elf_forms[0];
    std::vector<draft_section> sections = {};
    std::vector<draft_segment> segments = {};
    uint16_t type = et::exec;
    std::string order = "P12S"; // of both tables and both halves of the sections in the file
    uint16_t extra_entsize = 0; // bytes by which entries of both tables exceed the standard size
    std::string name_table = ".shstrtab"; // what it holds already serves section names, too
    uint64_t phoff = 0, shoff = 0;        // found when the file is built, unless set

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

// Each field by its name, and its offset, with its width as the last digit, for 32 bits and then
// for 64. The table is the tests' own, so that a mistake in the program's shows.
#define ELF_FIELDS(F)                                                                              \
    F(e_type, 162, 162), F(e_machine, 182, 182), F(e_version, 204, 204), F(e_entry, 244, 248),     \
        F(e_phoff, 284, 328), F(e_shoff, 324, 408), F(e_flags, 364, 484), F(e_ehsize, 402, 522),   \
        F(e_phentsize, 422, 542), F(e_phnum, 442, 562), F(e_shentsize, 462, 582),                  \
        F(e_shnum, 482, 602), F(e_shstrndx, 502, 622), F(p_type, 4, 4), F(p_flags, 244, 44),       \
        F(p_offset, 44, 88), F(p_vaddr, 84, 168), F(p_paddr, 124, 248), F(p_filesz, 164, 328),     \
        F(p_memsz, 204, 408), F(p_align, 284, 488), F(sh_name, 4, 4), F(sh_type, 44, 44),          \
        F(sh_flags, 84, 88), F(sh_addr, 124, 168), F(sh_offset, 164, 248), F(sh_size, 204, 328),   \
        F(sh_link, 244, 404), F(sh_info, 284, 444), F(sh_addralign, 324, 488),                     \
        F(sh_entsize, 364, 568), F(st_name, 4, 4), F(st_info, 121, 41), F(st_other, 131, 51),      \
        F(st_shndx, 142, 62), F(st_value, 44, 88), F(st_size, 84, 168), F(r_offset, 4, 8),         \
        F(r_info, 44, 88), F(r_addend, 84, 168)
#define ELF_FIELD_NAME(name, ...) name
enum class field : uint8_t { ELF_FIELDS(ELF_FIELD_NAME) };
field field_called(const std::string& name);

// A field of the file header, or of entry `index` of the table that the file header points to. A
// field outside the file reads as 0 and is not written.
uint64_t get_field(const std::string& file, field which, uint64_t index = 0);
void set_field(std::string& file, field which, uint64_t value, uint64_t index = 0);

// Sets fields that follow each other in the table, of an entry at `offset`.
void put_fields(std::string& bytes, const elf_form& form, uint64_t offset, field first,
                std::initializer_list<uint64_t> values);
// Appends an entry of `size` bytes with these fields.
void append_entry(std::string& table, const elf_form& form, uint64_t size,
                  const std::vector<std::pair<field, uint64_t>>& values);

// Of any file, as the tests read it.
std::vector<std::string> section_names(const std::string& file); // by index; section 0 has ""
std::string section_content(const std::string& file, const std::string& name);
