// Real programs of the compilers on this machine: the stripped ones are judged by readelf, and run
// where they can.
#include <algorithm>
#include <gtest/gtest.h>

#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

const char* const source = "int numbers[] = {1, 42}; int main(void) { return numbers[1]; }\n";
words compilers() {
    const std::string bare = " -g -static -nostdlib -ffreestanding -Dmain=_start";
    words list = {"gcc -g", "gcc -g -gdwarf-4 -no-pie -O2 -Wl,--emit-relocs",
                  "gcc -g -shared -fPIC -nostdlib", "gcc -g3 -gdwarf-4 -fdebug-types-section",
                  "clang -g -fuse-ld=lld -static"};
    for (const std::string& machine :
         split("arm-linux-gnueabihf powerpc64-linux-gnu mips-linux-gnu riscv64-linux-gnu"))
        list.push_back(machine + "-gcc" + bare);
    for (const std::string& machine :
         split("i386-linux-gnu armv7-linux-gnueabi aarch64-linux-gnu powerpc-linux-gnu "
               "powerpc64le-linux-gnu mips64el-linux-gnuabi64"))
        list.push_back("clang -fuse-ld=lld --target=" + machine + bare);
    return list;
}

// Removed without being asked, of what these compilers make.
const std::set<std::string> by_default = split_set(
    ".symtab .strtab .debug_info .debug_abbrev .debug_aranges .debug_ranges .debug_loc .debug_str "
    ".debug_line .debug_frame .debug_pubnames .rela.debug_info .rela.debug_aranges "
    ".rela.debug_ranges .rela.debug_loc .rela.debug_line");

struct real_program : testing::TestWithParam<std::string> {};

TEST_P(real_program, survives) {
    const std::string& compile = GetParam();
    work_place place;
    place.put("prog.c", source);
    for (const bool all : {false, true}) {
        if (place.command(compile + " -o prog prog.c").status != 0)
            GTEST_SKIP() << "this machine cannot do: " << compile;
        const std::string before = place.get("prog"), read = "readelf -aW prog";
        const std::string complaints = place.command(read).err;
        EXPECT_EQ(place.trim(all ? "-a prog" : "prog").err, "");
        words kept = section_names(before);
        uint64_t index = 0;
        std::erase_if(kept, [&](const std::string& name) {
            const bool is_loaded = get_field(before, field::sh_flags, index++) & shf::alloc;
            const bool goes = all ? name != ".shstrtab" && index > 1 : by_default.contains(name);
            return goes && !is_loaded;
        });
        EXPECT_EQ(section_names(place.get("prog")), kept);
        // Relocations that stay in default mode name symbols that are gone.
        if (all || std::ranges::count(kept, ".rela.text") == 0)
            EXPECT_EQ(place.command(read).err, complaints);
        if (compile.find("-nostdlib") == std::string::npos)
            EXPECT_EQ(place.command("./prog").status, 42);
    }
}

INSTANTIATE_TEST_SUITE_P(compilers, real_program, testing::ValuesIn(compilers()));

} // namespace
