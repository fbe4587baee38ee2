// Files that are refused, damaged or cannot be replaced: they keep every byte, nothing is left
// beside them, and the run goes on unless the message says fatal.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/elf_builder.h"
#include "support/elf_reader.h"
#include "support/runner.h"

namespace {

// Runs on a bad file and a good one. The bad one must stay as it is, and the good one be stripped
// if the run goes on. Gives what was said.
std::string refuse(const std::string& bad, const std::string& options = "", bool goes_on = true) {
    work_place place;
    std::string good = build_elf(sample_draft(elf_forms[3], false));
    place.put("bad.elf", bad);
    place.put("good.elf", good);
    file_state before = place.state("bad.elf");
    run_result result = place.trim(options + " bad.elf good.elf");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(place.state("bad.elf") == before);
    EXPECT_EQ(place.list(), split("bad.elf good.elf"));
    EXPECT_EQ(place.get("good.elf") != good, goes_on);
    return result.err;
}

uint64_t index_of(const std::string& file, const std::string& name) {
    return name.empty() ? 0 : read_elf(file).index_of(name);
}

const std::string error = "objtrim: error: ";
const std::string damaged = error + "file 'bad.elf' is damaged: ";
const std::string empty_names = error + "string table empty for 'bad.elf'\n";
const std::string no_sections = error + "file 'bad.elf' has no sections\n";
const std::string end_of_file = "objtrim: fatal: read failed, unexpected EOF\n";

// A header field set wrong: to a value, or relative to a place or size of the file.
struct refusal {
    const char* what;
    field which;
    const char* section; // whose header it is
    int64_t value;
    const char* relative_to = "";
    std::string said = damaged; // and, of damage, some words more
};

const refusal refusals[] = {
    {"section table half outside", field::e_shoff, "", -50, "file size"},
    {"section table far outside", field::e_shoff, "", -64},
    {"too many sections", field::e_shnum, "", 0xFEFF},
    {"short section headers", field::e_shentsize, "", 39},
    {"program table half outside", field::e_phoff, "", -50, "file size"},
    {"program table far outside", field::e_phoff, "", -56},
    {"section 0 has a type", field::sh_type, "", 1},
    {"section 0 has a name", field::sh_name, "", 1},
    {"section 0 has flags", field::sh_flags, "", 4},
    {"section 0 has an offset", field::sh_offset, "", 64},
    {"section 0 has an alignment", field::sh_addralign, "", 1},
    {"name table is no section", field::e_shstrndx, "", 0, "section count"},
    {"name table far outside", field::e_shstrndx, "", 0xFFFE},
    {"name just behind the name table", field::sh_name, ".data", 0, "size of names"},
    {"name far outside", field::sh_name, ".bss", -1},
    {"removed section on the file header", field::sh_offset, ".debug_info", 8},
    {"removed section on the section table", field::sh_offset, ".debug_info", 4, "sections"},
    {"removed section on the program table", field::sh_offset, ".debug_info", 4, "segments"},
    {"removed section in a kept one", field::sh_offset, ".debug_info", 0, ".text"},
    {"removed section in a removed one", field::sh_offset, ".linfix", 8, ".stab"},
    {"removed section reaches into the next", field::sh_size, ".stab", 0x4e},
    {"removed section of any size", field::sh_size, ".debug_info", -8},
    {"empty name table", field::sh_size, ".shstrtab", 0, "", empty_names},
    {"no name table", field::e_shstrndx, "", 0, "", empty_names},
    {"no sections, but a table", field::e_shnum, "", 0, "", no_sections},
    {"name table past the end", field::sh_size, ".shstrtab", 0x7FFFFFFF, "", end_of_file},
};

uint64_t value_of(const std::string& file, const std::string& name) {
    const std::pair<const char*, uint64_t> values[] = {
        {"", 0},
        {"file size", file.size()},
        {"section count", get_field(file, field::e_shnum)},
        {"sections", get_field(file, field::e_shoff)},
        {"segments", get_field(file, field::e_phoff)},
        {"size of names", get_field(file, field::sh_size, index_of(file, ".shstrtab"))}};
    for (const auto& [known, value] : values)
        if (name == known)
            return value;
    return get_field(file, field::sh_offset, index_of(file, name));
}

TEST(refusals, wrong_numbers) {
    for (const elf_form& form : elf_forms)
        for (const refusal& one : refusals) {
            SCOPED_TRACE(form.name + std::string(", ") + one.what);
            std::string file = build_elf(sample_draft(form));
            set_field(file, one.which,
                      value_of(file, one.relative_to) + static_cast<uint64_t>(one.value),
                      index_of(file, one.section));
            std::string said = refuse(file, "", one.said != end_of_file);
            EXPECT_EQ(said.substr(0, one.said.size()), one.said);
            EXPECT_EQ(said.size() > one.said.size() + 3, one.said == damaged);
            EXPECT_EQ(said.find('\n'), said.size() - 1);
        }
}

TEST(refusals, files_wrong_in_other_ways) {
    const std::string object = error + "Unable to strip relocatable ELF file 'bad.elf'\n";
    for (const elf_form& form : elf_forms) {
        SCOPED_TRACE(form.name);
        const std::string file = build_elf(sample_draft(form));
        std::string changed = file;
        set_field(changed, field::e_shnum, 0);
        set_field(changed, field::sh_size, 0xFFFFFFFF);
        EXPECT_EQ(refuse(changed).rfind(damaged, 0), 0u);
        set_field(changed, field::e_shoff, 0);
        EXPECT_EQ(refuse(changed), no_sections);
        EXPECT_EQ(refuse(file.substr(0, 20)).rfind(damaged, 0), 0u);
        changed = file + std::string(0xFFFF * 56, '\0'); // room for all that 0xFFFF could mean
        set_field(changed, field::e_phoff, file.size());
        set_field(changed, field::e_phnum, 0xFFFF);
        EXPECT_EQ(refuse(changed).rfind(damaged, 0), 0u);
        changed = file;
        set_field(changed, field::e_phentsize, form.is_64() ? 55 : 31);
        EXPECT_EQ(refuse(changed, "", false), std::string("objtrim: fatal: elf") +
                                                  (form.is_64() ? "64_" : "_") +
                                                  "readprogheader(): phentsize\n");
        changed = file;
        set_field(changed, field::e_type, et::rel);
        EXPECT_EQ(refuse(changed), object);
        EXPECT_EQ(refuse(changed, "-a"), object);
    }
}

// A symbol table that stays would have to be rewritten, which is not done yet.
TEST(refusals, a_symbol_table_that_stays) {
    std::string file = build_elf(sample_draft(elf_forms[0]));
    for (const char* option :
         {"-x", "-s", "-l", "-r=.comment", "--strip-orv-debug", "-stripreloc"}) {
        SCOPED_TRACE(option);
        std::string said = refuse(file, option);
        EXPECT_EQ(said.rfind(error, 0), 0u) << said;
        EXPECT_EQ(said.find('\n'), said.size() - 1);
    }
}

// Whatever a header says, the program ends by itself. Only a place that no file reaches is found
// while the output is written, which is then left behind.
TEST(refusals, hostile_numbers_do_no_harm) {
    for (size_t form : {0u, 3u}) {
        const std::string file = build_elf(sample_draft(elf_forms[form]));
        std::vector<uint64_t> headers = {16, field_offset(file, field::p_type, 5)};
        for (const char* name : {"", ".debug_info", ".rela.text", ".symtab", ".shstrtab"})
            headers.push_back(field_offset(file, field::sh_name, index_of(file, name)));
        for (uint64_t header : headers)
            for (uint64_t at = header; at < header + (form == 0 ? 64 : 40); at += 4)
                for (const char* bytes :
                     {"\xff\xff\xff\xff", at % 8 == 0 ? "\x7f\xff\xff\xf0" : "\1\0\0\1"}) {
                    work_place place;
                    std::string changed = file;
                    changed.replace(at, 4, bytes, 4);
                    place.put("bad.elf", changed);
                    run_result result = place.trim("bad.elf");
                    SCOPED_TRACE("at " + std::to_string(at) + ": " + result.err);
                    EXPECT_EQ(result.status, result.err.empty() ? 0 : 1);
                    if (result.err.find("fatal: seek failed") == std::string::npos)
                        EXPECT_EQ(place.list(), words{"bad.elf"});
                    else
                        EXPECT_TRUE(place.get("bad.elf") == changed);
                }
    }
}

TEST(refusals, failed_writes_leave_the_input) {
    elf_draft draft = sample_draft(elf_forms[0]);
    draft.section_table = PLACE_FIRST;
    draft.program_table = PLACE_LAST; // the last thing written
    work_place place;
    place.put("prog.elf", build_elf(draft));
    place.trim("-o=full prog.elf");
    file_state before = place.state("prog.elf");
    for (uint64_t limit : {uint64_t{0x80}, uint64_t{0x400}, place.get("full").size() - 1}) {
        run_result result = place.trim("prog.elf", {.file_size = limit});
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("objtrim: fatal: Error writing to '"), std::string::npos);
        EXPECT_TRUE(place.state("prog.elf") == before) << limit;
    }
    run_result result = place.trim("-o=/dev/full prog.elf");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.rfind(
                  "objtrim: fatal: Error writing to '/dev/full': No space left on device\n", 0),
              0u)
        << result.err;
    EXPECT_TRUE(place.state("prog.elf") == before);
}

TEST(refusals, files_and_directories_that_may_not_be_written) {
    if (!modes_can_bind())
        GTEST_SKIP() << "permission modes do not bind this user";
    work_place place;
    std::string file = build_elf(sample_draft(elf_forms[0]));
    place.put("locked", file, 0444);
    place.put("sub/prog.elf", file);
    file_state locked = place.state("locked");
    file_state inside = place.state("sub/prog.elf");
    run_result result = place.trim("locked sub/prog.elf", {.obey_modes = true});
    EXPECT_EQ(result.err, "objtrim: fatal: Unable to open executable 'locked' for input: "
                          "Permission denied\n");
    EXPECT_EQ(result.status, 1);
    chmod(place.path("sub").c_str(), 0555);
    result = place.trim("sub/prog.elf", {.obey_modes = true});
    EXPECT_EQ(result.err.rfind("objtrim: fatal: Unable to open output file 'sub/ov_", 0), 0u)
        << result.err;
    EXPECT_EQ(result.status, 1);
    chmod(place.path("sub").c_str(), 0755);
    EXPECT_TRUE(place.state("locked") == locked);
    EXPECT_TRUE(place.state("sub/prog.elf") == inside);
    EXPECT_EQ(place.list("sub"), words{"prog.elf"});
}

} // namespace
