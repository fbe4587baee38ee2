// Real programs of the compilers on this machine: the stripped ones are judged by readelf, and run
// where they can.
#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>

#include "support/elf_reader.h"
#include "support/runner.h"

namespace {

const char* const native_source = R"(
#include <stdio.h>
struct point { int x, y; };
static struct point points[] = {{1, 2}, {3, 4}};
char empty[100000];
int sum(struct point* at) { return at->x * 10 + at->y; }
int main(int argc, char** argv) {
    (void)argv;
    printf("%d %d %d\n", sum(points), sum(points + 1), empty[argc]);
    return 7;
}
)";

const char* const bare_source = R"(
struct point { int x, y; };
static struct point points[] = {{1, 2}, {3, 4}};
char empty[1000];
int sum(struct point* at) { return at->x * 10 + at->y; }
void _start(void) { empty[1] = (char)sum(points); for (;;) {} }
)";

const std::string clang = "clang -g -fuse-ld=lld -static -nostdlib -ffreestanding --target=";
const std::string gcc = "-gcc -g -static -nostdlib -ffreestanding";

struct toolchain {
    const char* name;
    std::string compile; // less the output and the source
    bool native = false;
};

const toolchain toolchains[] = {
    {"gcc", "gcc -g", true},
    {"gcc_relocs", "gcc -g -gdwarf-4 -no-pie -O2 -Wl,--emit-relocs", true},
    {"gcc_types", "gcc -g3 -gdwarf-4 -fdebug-types-section", true},
    {"clang", "clang -g", true},
    {"clang_lld", "clang -g -fuse-ld=lld -static", true},
    {"clang_i386", clang + "i386-linux-gnu"},
    {"clang_arm", clang + "armv7-linux-gnueabi"},
    {"clang_aarch64", clang + "aarch64-linux-gnu"},
    {"clang_powerpc", clang + "powerpc-linux-gnu"},
    {"clang_powerpc64le", clang + "powerpc64le-linux-gnu"},
    {"clang_mips", clang + "mips-linux-gnu"},
    {"clang_mips64el", clang + "mips64el-linux-gnuabi64"},
    {"clang_riscv32", clang + "riscv32-linux-gnu -mno-relax"},
    {"clang_riscv64", clang + "riscv64-linux-gnu -mno-relax"},
    {"gcc_arm", "arm-linux-gnueabihf" + gcc},
    {"gcc_aarch64", "aarch64-linux-gnu" + gcc},
    {"gcc_powerpc64", "powerpc64-linux-gnu" + gcc},
    {"gcc_mips", "mips-linux-gnu" + gcc},
    {"gcc_riscv64", "riscv64-linux-gnu" + gcc},
    {"gcc_s390x", "s390x-linux-gnu" + gcc},
};

// Removed without being asked, of what these compilers make.
const std::set<std::string> by_default = split_set(
    ".symtab .strtab .debug_info .debug_abbrev .debug_aranges .debug_ranges .debug_loc .debug_str "
    ".debug_line .debug_frame .debug_pubnames .rela.debug_info .rela.debug_aranges "
    ".rela.debug_ranges .rela.debug_loc .rela.debug_line");

// Lines that readelf complains with.
std::set<std::string> complaints(const work_place& place, const std::string& name) {
    run_result result = place.command("readelf -aW " + name);
    EXPECT_NE(result.out, ""); // it was there
    std::istringstream text(result.err);
    std::set<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.insert(line);
    return lines;
}

// Strips a file that has debugging information, in place, and checks it.
void strip_and_check(const work_place& place, const std::string& name, bool all) {
    std::string before = place.get(name);
    mode_t mode = place.state(name).mode;
    std::set<std::string> old_complaints = complaints(place, name);
    elf_view input = read_elf(before);
    ASSERT_NE(input.index_of(".debug_info"), 0u);
    ASSERT_NE(input.index_of(".symtab"), 0u);
    std::set<std::string> removed = by_default;
    if (all)
        for (const std::string& section : input.names())
            if (section != ".shstrtab")
                removed.insert(section); // less what is allocated
    run_result result = place.trim(all ? "-a " + name : name);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(check_stripped(before, place.get(name), removed), "");
    EXPECT_EQ(place.state(name).mode, mode);
    if (!all && input.index_of(".rela.text") != 0)
        return; // relocations that stay name symbols that are gone
    std::set<std::string> new_complaints = complaints(place, name);
    EXPECT_TRUE(std::includes(old_complaints.begin(), old_complaints.end(), new_complaints.begin(),
                              new_complaints.end()))
        << testing::PrintToString(new_complaints);
}

void PrintTo(const toolchain& tools, std::ostream* out) {
    *out << tools.compile;
}

struct real_program : testing::TestWithParam<toolchain> {};

TEST_P(real_program, survives) {
    const toolchain& tools = GetParam();
    for (bool all : {false, true}) {
        work_place place;
        place.put("prog.c", tools.native ? native_source : bare_source);
        run_result built = place.command(tools.compile + " -o prog prog.c");
        if (built.status == 127)
            GTEST_SKIP() << "not on this machine: " << tools.compile;
        if (built.status != 0 && !tools.native)
            GTEST_SKIP() << "cannot build for its target here: " << built.err.substr(0, 200);
        ASSERT_EQ(built.status, 0) << built.err;
        run_result before = tools.native ? place.command("./prog") : run_result{};
        strip_and_check(place, "prog", all);
        if (tools.native) {
            run_result after = place.command("./prog");
            EXPECT_EQ(after.out, before.out);
            EXPECT_EQ(after.status, 7);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(compilers, real_program, testing::ValuesIn(toolchains),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(real_programs, a_program_runs_with_its_stripped_library) {
    work_place place;
    place.put("lib.c", "int twice(int x) { static int calls; return 2 * x + calls++; }\n");
    place.put("main.c", "#include <stdio.h>\nint twice(int);\n"
                        "int main(void) { printf(\"%d\\n\", twice(20) + twice(1)); return 0; }\n");
    if (place.command("gcc -g -shared -fPIC -o libtwice.so lib.c").status != 0 ||
        place.command("gcc -g -o main main.c -L. -ltwice -Wl,-rpath,$ORIGIN").status != 0)
        GTEST_SKIP() << "gcc cannot build a shared object here";
    strip_and_check(place, "libtwice.so", false);
    strip_and_check(place, "main", true);
    run_result result = place.command("./main");
    EXPECT_EQ(result.out, "43\n");
    EXPECT_EQ(result.status, 0);
}

} // namespace
