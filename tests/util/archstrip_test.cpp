// Archive libraries of this machine's compilers and archivers, stripped and rebuilt by the archiver
// beside the program: judged by ar, nm, the linker and a run of what it links.
#include <filesystem>
#include <gtest/gtest.h>

#include "support/ar_builder.h"
#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

const std::string keeps_symbols = "-x -stripreloc -bl=dropped_by_name ";
const std::string text = "no object, and of odd size";

// Objects in C, and a program that needs them all.
const char* const sources = R"(
for name in one two member_with_a_long_name; do cat >$name.c <<TEXT
static __attribute__((used)) int dropped_by_name;
int common_$name;
int $name(void) { return (int)sizeof("$name") + common_$name; }
TEXT
done
cat >main.c <<TEXT
#include <stdio.h>
int one(void), two(void), member_with_a_long_name(void);
int main(void) { return printf("%d", one() + 10 * two() + 100 * member_with_a_long_name()), 0; }
TEXT
)";

struct library : testing::Test {
    library() {
        place.put("scratch/keep", "");
        place.put("notes.txt", text);
    }
    void SetUp() override {
        if (!host_has_tools)
            GTEST_SKIP() << "this host has no archiver to make libraries with";
    }
    void must(const std::string& line) {
        const run_result result = place.command(line);
        ASSERT_EQ(result.status, 0) << line << result.err;
    }
    std::string linked() {
        must("cc -o prog main.o lib.a");
        return place.command("./prog").out;
    }
    // The program has its scratch files in "scratch".
    run_result trim(const std::string& line, const std::string& program = OBJTRIM_PROGRAM) {
        const run_result result =
            place.command("TMP=" + place.path("scratch") + " " + program + " " + line);
        EXPECT_EQ(place.list("scratch"), split("keep"));
        return result;
    }
    std::string object() { // of an executable kind, so that it is stripped without an option
        return build_elf(sample_draft(elf_forms[0], false));
    }

    work_place place;
};

TEST_F(library, is_rebuilt_and_links_as_before) {
    for (const std::string archiver : {"ar qc", "llvm-ar qc"}) {
        if (place.command(archiver + " probe.a notes.txt").status != 0)
            GTEST_SKIP() << "this machine cannot do: " << archiver;
        must(sources + std::string("gcc -g -fcommon -c *.c"));
        std::filesystem::remove(place.path("lib.a"));
        must(archiver + std::string(" lib.a notes.txt one.o member_with_a_long_name.o"
                                    " notes.txt two.o two.o"));
        const std::string before = linked(), names = place.command("ar t lib.a").out;
        const std::string index = place.command("nm -s lib.a").out;
        const auto size = place.get("lib.a").size();
        const run_result result = trim(keeps_symbols + "lib.a");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_LT(place.get("lib.a").size(), size);
        EXPECT_EQ(place.command("ar t lib.a").out, names);
        EXPECT_EQ(place.command("ar p lib.a notes.txt").out, text);
        EXPECT_EQ(linked(), before);
        const auto map = [](const std::string& listing) {
            return listing.substr(0, listing.find("\n\n"));
        };
        EXPECT_EQ(map(place.command("nm -s lib.a").out), map(index));
        // Each member is what stripping the object by itself gives.
        for (const char* name : {"one.o", "two.o", "member_with_a_long_name.o"}) {
            EXPECT_EQ(trim(keeps_symbols + name).err, "");
            const std::string member = place.command(std::string("ar p lib.a ") + name).out;
            EXPECT_EQ(member.substr(0, place.get(name).size()), place.get(name)) << name;
        }
    }
}

// The result of the last member decides whether the archiver runs; what failed before has been
// said. An archive that is not rebuilt keeps everything.
TEST_F(library, the_last_member_decides) {
    std::string strange = object(), relocatable = object(), broken = object();
    set_field(strange, field::e_machine, 0xBEEF);
    set_field(relocatable, field::e_type, et::rel);
    for (const char* name : {"elf", "dont_delete", "objfiles"})
        place.put(name, object());
    set_field(broken, field::e_phentsize, 1);
    place.put("strange", strange);
    place.put("broken/objfiles", broken);
    place.put("relocatable", relocatable);
    const std::string failed = "objtrim: error: failed to strip file 'lib.a'\n";
    const std::string unknown = "objtrim: error: file lib.a(strange) is not a known ELF type\n";
    struct {
        const char* members;
        int status;
        std::string err;
        bool rebuilt;
    } const rows[] = {
        {"elf", 0, "", true},
        {"notes.txt elf", 0, "", true},
        {"elf notes.txt", 1, failed, false},
        {"notes.txt", 1, failed, false},
        {"strange elf", 1, unknown, true},
        {"elf strange", 1, unknown + failed, false},
        {"elf elf elf", 0, "", true},
        {"dont_delete objfiles dont_delete", 0, "", true}, // the scratch directory's own files
        {"elf broken/objfiles", 1, "objtrim: fatal: elf64_readprogheader(): phentsize\n", false},
    };
    for (const auto& row : rows) {
        std::filesystem::remove(place.path("lib.a"));
        must(std::string("ar qcS lib.a ") + row.members);
        const file_state before = place.state("lib.a");
        const run_result result = trim("lib.a");
        EXPECT_EQ(result.status, row.status) << row.members;
        EXPECT_EQ(result.err, row.err) << row.members;
        EXPECT_EQ(place.state("lib.a") != before, row.rebuilt) << row.members;
        if (row.rebuilt)
            EXPECT_LT(place.get("lib.a").size(), before.bytes.size()) << row.members;
    }
    must("ar qcS refused.a relocatable");
    const std::string bytes = place.get("refused.a");
    EXPECT_EQ(trim("refused.a").status, 1);
    EXPECT_EQ(place.get("refused.a"), bytes); // rebuilt of an unchanged copy
}

// A name is data: whatever it says, nothing is made outside the scratch directory.
TEST_F(library, names_that_lead_elsewhere) {
    place.put("x", object());
    must("ar qcS good.a x");
    for (const char* name : {"../x", "..", ".", "a\\b", "C:x", "NUL", "aux.o", "com1", "a\001b"}) {
        std::string bytes = place.get("good.a");
        std::string field = std::string(name) + "/";
        field.resize(16, ' ');
        place.put("lib.a", bytes.replace(8, 16, field));
        const run_result result = trim("lib.a");
        EXPECT_NE(result.err.find("objtrim does not support archived objects in multiple "
                                  "directories\n"),
                  std::string::npos)
            << name << result.err;
        EXPECT_EQ(place.get("lib.a"), bytes) << name;
    }
    EXPECT_EQ(place.list(), split("good.a lib.a notes.txt scratch x"));
}

// The archiver is looked for in the tools' directory, which a file beside the program may name. It
// is handed one line, which no shell sees, and its status is the result.
TEST_F(library, the_archiver_is_a_program_of_its_own) {
    place.put("x", object());
    must("ar qcS lib.a x");
    must("ar qcS 'a;b$c.a' x");
    const std::string program = place.path("bin/objtrim");
    place.put("bin/note", "");
    std::filesystem::copy(OBJTRIM_PROGRAM, program);
    const run_result without = trim("lib.a", program);
    EXPECT_EQ(without.status, 1);
    EXPECT_EQ(without.err, "objtrim: error: cannot exec \"" + place.path("bin/lbm") +
                               "\"\nobjtrim: error: failed to strip file 'lib.a'\n");
    place.put("bin/.redirect_host32", "../tools\r\nignored\n");
    place.put("tools/lbm",
              "#!/bin/sh\necho \"$#|$1|$2|${3##*/}\"\n"
              "while read -r name; do echo \"${name##*/}\"; done <\"${3#@}\"\nexit $((5 * (${#2} > "
              "5)))\n",
              0755);
    for (const auto& [archive, status] : {std::pair("lib.a", 0), {"a;b$c.a", 1}}) {
        std::filesystem::remove(place.path("out"));
        const run_result result = trim("'" + std::string(archive) + "'", program);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_EQ(result.out, "3|-rc|" + std::string(archive) + "|objfiles\nx\n");
    }
}

// Archives as the tests build them, for hosts without an archiver of their own.
TEST(archive, members_are_stripped_and_put_back) {
    const elf_draft draft = sample_draft(elf_forms[1], false);
    for (const obj_kind kind : {OBJ_ARCHIVE, OBJ_ARCHIVE64}) {
        const ar_draft notes = {.name = "notes/", .data = "text"};
        const ar_draft one = {.name = "one.o/", .data = build_elf(draft), .mode = "100755"};
        const ar_draft two = {.name = "one.o/", .data = one.data, .mode = "100600"};
        const ar_draft protected_one = {.name = "one.o/", .data = one.data, .mode = "100444"};
        const std::vector<ar_draft> drafts = {one, notes, two, protected_one};
        work_place place;
        place.put("lib.a", build_archive(kind, drafts));
        const run_result result = place.trim("lib.a");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        const std::string after = place.get("lib.a");
        const std::string member = build_stripped(draft, sample_removed);
        EXPECT_EQ(after.size(),
                  build_archive(kind, drafts).size() - 3 * (one.data.size() - member.size()));
        for (const ar_draft& kept : drafts) // in the middle of blanks, as in the header
            EXPECT_NE(after.find(" " + kept.mode + " "), std::string::npos) << kept.mode;
        EXPECT_NE(after.find(member), after.rfind(member));
        EXPECT_NE(after.find(notes.data), std::string::npos);
        EXPECT_EQ(place.list(), words{"lib.a"});
    }
}

} // namespace
