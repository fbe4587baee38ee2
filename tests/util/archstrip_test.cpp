// Archive libraries: their members are stripped, and the archiver beside the program puts them
// back.
#include <gtest/gtest.h>
#include <map>

#include "support/ar_builder.h"
#include "support/symbol_builder.h"

namespace {

struct library : testing::Test {
    library() { place.put("scratch/keep", ""); }
    // The program has its scratch files in "scratch".
    run_result trim(const std::string& line) const {
        const std::string program = "TMP=" + place.path("scratch") + " " OBJTRIM_PROGRAM " ";
        const run_result result = place.command(program + line);
        EXPECT_EQ(place.list("scratch"), split("keep"));
        return result;
    }
    work_place place;
};

// The result of the last member decides whether the archiver runs; what failed before has been
// said. An archive that is not rebuilt keeps everything. A name is data: whatever it says, nothing
// is made outside the scratch directory.
TEST_F(library, members_are_stripped_and_put_back) {
    // An executable, an object of no known machine, a damaged one.
    const elf_draft draft = sample_draft(elf_forms[0], false);
    const std::string stripped = build_stripped(draft, sample_removed), whole = build_elf(draft);
    std::map<std::string, std::string> data = {{"E", whole}, {"U", whole}, {"B", whole}};
    set_field(data["U"], field::e_machine, 0xBEEF);
    set_field(data["B"], field::e_phentsize, 1);
    const std::string error = "objtrim: error: ", fatal = "objtrim: fatal: ";
    const std::map<char, std::string> sayings = {
        {'f', error + "failed to strip file 'lib.a'\n"},
        {'u', error + "file lib.a(u) is not a known ELF type\n"},
        {'d', error + "objtrim does not support archived objects in multiple directories\n"},
        {'b', fatal + "elf64_readprogheader(): phentsize\n"},
        {'x', error + "failed to extract file elf from archive lib.a\n"},
        {'n', "objtrim: warning: b has negative size (-1)\n"},
        {'e', fatal + "error reading archive file 'lib.a'\n"}};
    // It is rebuilt when the letters of what is said have none of f, b and e.
    std::vector<std::pair<std::string, std::string>> rows = {
        {"one.o/%100755=E|notes/@77%100755[5]6=text|one.o/%100600=E|two/=E|one.o/%100444=E", ""},
        {"dont_delete/=E|objfiles/=E|dont_delete/=E", ""}, // the scratch directory's own files
        {"elf/=E|notes/=text", "f"},
        {"notes/=text", "f"},
        {"u/=U|elf/=E", "u"},
        {"elf/=E|u/=U", "uf"},
        {"elf/=E|objfiles/=B", "b"},
        {"elf/=E|b#-1", "ne"},
        {"elf/#2147483647=E", "xf"}};
    for (const char* name : {"../x", "..", ".", "a\\b", "C:x", "NUL", "aux.o", "a\001b"})
        rows.emplace_back(name + std::string("/=E"), "df");
    for (const obj_kind kind : {OBJ_ARCHIVE, OBJ_ARCHIVE64})
        for (const auto& [members, letters] : rows) {
            SCOPED_TRACE(members);
            const bool rebuilt = letters.find_first_of("fbe") == std::string::npos;
            std::string said;
            for (const char letter : letters)
                said += sayings.at(letter);
            std::vector<ar_draft> before = ar_members(members), after = before;
            for (size_t i = 0; i < before.size(); ++i)
                if (data.contains(after[i].data)) {
                    before[i].data = data[after[i].data];
                    after[i].data = rebuilt && after[i].data == "E" ? stripped : before[i].data;
                }
            place.put("lib.a", build_archive(kind, before));
            const file_state old = place.state("lib.a");
            const run_result result = place.trim("lib.a");
            EXPECT_EQ(result.err, said);
            EXPECT_EQ(result.status, !said.empty());
            EXPECT_EQ(difference(place.get("lib.a"), build_archive(kind, after)), "");
            EXPECT_EQ(place.state("lib.a") != old, rebuilt);
            EXPECT_EQ(place.list(), split("lib.a scratch"));
        }
}

// Whose name is one that no shell may see.
TEST_F(library, of_this_machines_tools_links_as_before) {
    const std::string make = R"(for name in one two a_member_of_a_long_name; do
echo "__attribute__((used)) static int dropped; int $name() { return sizeof \"$name\"; }" >$name.c
done; echo 'int one(void), two(void), a_member_of_a_long_name(void);
int main(void) { return one() + 4 * two() + a_member_of_a_long_name(); }' >main.c
gcc -g -c *.c && rm -f 'a;$b.a' && $ar qc 'a;$b.a' one.o a_member*.o two.o two.o)";
    const std::string show =
        "ar t a*.a; nm -s a*.a | grep ' in '; gcc main.o a*.a && ./a.out; echo $?";
    for (const std::string ar : {"ar", "llvm-ar"}) {
        if (!host_has_tools || place.command("ar=" + ar + ";" + make).status != 0)
            GTEST_SKIP() << "this machine cannot do: gcc, " << ar;
        const std::string shown = place.command(show).out;
        EXPECT_TRUE(shown.ends_with("44\n")) << shown;
        EXPECT_EQ(trim("-x -stripreloc -bl=dropped 'a;$b.a'").err, "") << ar;
        EXPECT_EQ(place.command(show).out, shown) << ar;
    }
}

} // namespace
