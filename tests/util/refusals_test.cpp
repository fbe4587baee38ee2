// Files that are refused, damaged or cannot be replaced: they keep every byte, nothing is left
// beside them, and the run goes on unless the message says fatal.
#include <cinttypes>
#include <gtest/gtest.h>

#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

// Runs on a bad file and a good one. The bad one must stay as it is, and the good one be stripped
// if the run goes on. What was said must be one line that begins with the text, and be no longer
// if the text is a whole line. Returns it.
std::string refuse(const std::string& bad, const std::string& expected,
                   const std::string& options = "") {
    work_place place;
    const std::string good = build_elf(sample_draft(elf_forms[3], false));
    place.put("bad.elf", bad);
    place.put("good.elf", good);
    const file_state before = place.state("bad.elf");
    const run_result result = place.trim(options + " bad.elf good.elf");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.substr(0, expected.size()), expected);
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1);
    EXPECT_TRUE(place.state("bad.elf") == before);
    EXPECT_EQ(place.list(), split("bad.elf good.elf"));
    EXPECT_EQ(place.get("good.elf") == good, expected.find("fatal") != std::string::npos);
    return result.err;
}

std::string in_hex(uint64_t value) {
    char text[20];
    snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

const std::string error = "objtrim: error: ";
const std::string damaged = error + "file 'bad.elf' is damaged: ";
const std::string empty_names = error + "string table empty for 'bad.elf'\n";
const std::string no_sections = error + "file 'bad.elf' has no sections\n";
const std::string end_of_file = "objtrim: fatal: read failed, unexpected EOF\n";

// A field of a header is set to a value, or to that behind the value of another field.
struct refusal {
    const char* section;
    field which;
    uint64_t value;
    std::string said = damaged;
    const char* other_section = "";
    field other = field::word; // none
};

const refusal refusals[] = {
    {"", field::e_shoff, 50, damaged, "", field::e_shoff}, // the table is the end of the file
    {"", field::e_shoff, UINT64_MAX - 63},
    {"", field::e_shnum, 0xFEFF},
    {"", field::e_shnum, 0, no_sections},
    {"", field::e_shentsize, 39},
    {"", field::e_phnum, 0x7FFF},
    {"", field::e_phoff, UINT64_MAX - 55},
    {"", field::e_shstrndx, 0, damaged, "", field::e_shnum},
    {"", field::e_shstrndx, 0xFFFE},
    {"", field::e_shstrndx, 0, empty_names},
    {"", field::e_type, et::rel, error + "Unable to strip relocatable ELF file 'bad.elf'\n"},
    {"", field::sh_type, 1},
    {"", field::sh_name, 1},
    {"", field::sh_flags, 4},
    {"", field::sh_offset, 64},
    {"", field::sh_addralign, 1},
    {"", field::sh_addr, 1},
    {"", field::sh_entsize, 1},
    {".data", field::sh_name, 0, damaged, ".shstrtab", field::sh_size},
    {".bss", field::sh_name, UINT64_MAX},
    {".debug_info", field::sh_offset, 8}, // on the file header
    {".debug_info", field::sh_offset, 4, damaged, "", field::e_shoff},
    {".debug_info", field::sh_offset, 4, damaged, "", field::e_phoff},
    {".debug_info", field::sh_offset, 0, damaged, ".text", field::sh_offset},
    {".linfix", field::sh_offset, 8, damaged, ".stab", field::sh_offset},
    {".stab", field::sh_size, 4, damaged, ".stab", field::sh_size},
    {".debug_info", field::sh_size, UINT64_MAX - 7},
    {".shstrtab", field::sh_size, 0, empty_names},
    {".shstrtab", field::sh_size, 0x7FFFFFFF, end_of_file},
};

TEST(refusals, wrong_numbers) {
    for (const elf_form& form : elf_forms)
        for (const refusal& one : refusals) {
            std::string file = build_elf(sample_draft(form));
            const uint64_t other =
                get_field(file, one.other, section_index(file, one.other_section));
            SCOPED_TRACE(form.name + (", row " + std::to_string(&one - refusals)));
            const uint32_t section = section_index(file, one.section);
            set_field(file, one.which, one.value + (one.other == field::word ? 0 : other), section);
            const std::string said = refuse(file, one.said);
            // Damage is told with the value of the field, as it was read.
            const uint64_t value = get_field(file, one.which, section);
            if (one.said == damaged)
                EXPECT_TRUE(said.find(in_hex(value)) != std::string::npos ||
                            said.find(" " + std::to_string(value) + " ") != std::string::npos)
                    << said;
        }
}

TEST(refusals, files_wrong_in_other_ways) {
    for (const elf_form& form : elf_forms) {
        SCOPED_TRACE(form.name);
        const std::string file = build_elf(sample_draft(form));
        refuse(file.substr(0, 20), damaged);
        std::string changed = file;
        set_field(changed, field::e_shnum, 0);
        set_field(changed, field::sh_size, 0xFFFFFFFF);
        refuse(changed, damaged);
        set_field(changed, field::e_shoff, 0);
        refuse(changed, no_sections);
        changed = file + std::string(0xFFFF * 56, '\0'); // room for all that 0xFFFF could mean
        set_field(changed, field::e_phoff, file.size());
        set_field(changed, field::e_phnum, 0xFFFF);
        refuse(changed, damaged);
        changed = file;
        set_field(changed, field::e_phentsize, 31);
        refuse(changed, std::string("objtrim: fatal: elf") + (form.is_64() ? "64_" : "_") +
                            "readprogheader(): phentsize\n");
    }
}

} // namespace
