// Archive libraries: their members are stripped, and the archiver beside the program puts them
// back.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>

#include "support/ar_builder.h"
#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

struct library : testing::Test {
    library() { place.put("scratch/keep", ""); }
    // The program has its scratch files in "scratch", where the host has a shell to say so.
    run_result trim(const std::string& line, const std::string& program = OBJTRIM_PROGRAM) const {
        if (!host_has_tools)
            return place.trim(line);
        const run_result result =
            place.command("TMP=" + place.path("scratch") + " " + program + " " + line);
        EXPECT_EQ(place.list("scratch"), split("keep"));
        return result;
    }
    work_place place;
};

// Data of members: an executable, an object of no known machine, a damaged one, one that is not
// stripped without an option; another word is a text.
std::string data_of(const std::string& word, bool is_stripped) {
    const elf_draft draft = sample_draft(elf_forms[0], false);
    if (word.size() != 1)
        return word;
    if (word == "E" && is_stripped)
        return build_stripped(draft, sample_removed);
    std::string bytes = build_elf(draft);
    set_field(bytes, field::e_machine, word == "U" ? 0xBEEF : draft.form.machine);
    set_field(bytes, field::e_phentsize, word == "B" ? 1 : 56);
    set_field(bytes, field::e_type, word == "R" ? et::rel : et::exec);
    return bytes;
}

// The result of the last member decides whether the archiver runs; what failed before has been
// said. An archive that is not rebuilt keeps everything. A name is data: whatever it says, nothing
// is made outside the scratch directory.
TEST_F(library, members_are_stripped_and_put_back) {
    const std::string error = "objtrim: error: ";
    const std::map<char, std::string> sayings = {
        {'f', error + "failed to strip file 'lib.a'\n"},
        {'u', error + "file lib.a(u) is not a known ELF type\n"},
        {'d', error + "objtrim does not support archived objects in multiple directories\n"},
        {'b', "objtrim: fatal: elf64_readprogheader(): phentsize\n"},
        {'x', error + "failed to extract file elf from archive lib.a\n"},
        {'r', error + "Unable to strip relocatable ELF file '"}}; // in the scratch directory
    // It is rebuilt when the last letter of what is said is none of f and b.
    std::vector<std::pair<std::string, std::string>> rows = {
        {"elf/=E", ""},
        {"notes/=text|elf/@77%100755[5]6=E", ""},
        {"one.o/%100755=E|notes/=text|one.o/%100600=E|two.o/=E|one.o/%100444=E", ""},
        {"dont_delete/=E|objfiles/=E|dont_delete/=E", ""}, // the scratch directory's own files
        {"elf/=E|notes/=text", "f"},
        {"notes/=text", "f"},
        {"u/=U|elf/=E", "u"},
        {"elf/=E|u/=U", "uf"},
        {"elf/=E|objfiles/=B", "b"},
        {"elf/#2147483647=E", "xf"},
        {"rel/=R", "r"}};
    for (const char* name : {"../x", "..", ".", "a\\b", "C:x", "NUL", "aux.o", "a\001b"})
        rows.emplace_back(name + std::string("/=E"), "df");
    for (const obj_kind kind : {OBJ_ARCHIVE, OBJ_ARCHIVE64})
        for (const auto& [members, letters] : rows) {
            SCOPED_TRACE(members);
            const bool rebuilt = !letters.ends_with('f') && !letters.ends_with('b');
            std::string said;
            for (const char letter : letters)
                said += sayings.at(letter);
            std::vector<ar_draft> before = ar_members(members), after = before;
            for (size_t i = 0; i < before.size(); ++i) {
                after[i].data = data_of(before[i].data, rebuilt);
                before[i].data = data_of(before[i].data, false);
            }
            place.put("lib.a", build_archive(kind, before));
            const file_state old = place.state("lib.a");
            const run_result result = trim("lib.a");
            EXPECT_EQ(result.err.substr(0, said.ends_with("'") ? said.size() : 999), said);
            EXPECT_EQ(result.status, !said.empty());
            EXPECT_EQ(difference(place.get("lib.a"), build_archive(kind, after)), "");
            EXPECT_EQ(place.state("lib.a") != old, rebuilt);
            EXPECT_EQ(place.list(), split("lib.a scratch"));
        }
}

// The archiver is looked for in the tools' directory, which a file beside the program may name. It
// is handed one line, which no shell sees, and its status is the result.
TEST_F(library, the_archiver_is_a_program_of_its_own) {
    if (!host_has_tools)
        GTEST_SKIP() << "this host has no scripts to take the archiver's place";
    const std::string program = place.path("bin/objtrim"), tool = R"(#!/bin/sh
echo "$#|$1|$2|${3##*/}"
while read -r name; do echo "${name##*/}"; done <"${3#@}"
exit $((5 * (${#2} > 5)))
)";
    place.put("lib.a", build_archive(OBJ_ARCHIVE, {{.name = "x/", .data = data_of("E", false)}}));
    place.put("a;b$c.a", place.get("lib.a"));
    place.put("bin/note", "");
    std::filesystem::copy(OBJTRIM_PROGRAM, program);
    EXPECT_EQ(trim("lib.a", program).err, "objtrim: error: cannot exec \"" + place.path("bin/lbm") +
                                              "\"\nobjtrim: error: failed to strip file 'lib.a'\n");
    place.put("bin/.redirect_host32", "../tools\r\nignored\n");
    place.put("tools/lbm", tool, 0755);
    for (const auto& [archive, status] : {std::pair("lib.a", 0), {"a;b$c.a", 1}}) {
        const run_result result = trim("'" + std::string(archive) + "'", program);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_EQ(result.out, "3|-rc|" + std::string(archive) + "|objfiles\nx\n");
    }
}

} // namespace
