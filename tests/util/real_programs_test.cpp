// Real programs of the compilers on this machine: the stripped ones are judged by readelf, and run
// where they can.
#include <algorithm>
#include <gtest/gtest.h>

#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

const char* const source = R"(int numbers[] = {1, 2};
#ifdef NATIVE
int puts(const char*);
int main(void) { return puts("alive") + numbers[1]; }
#else
void _start(void) { for (;;) ++numbers[1]; }
#endif
)";
const std::string bare = " -g -static -nostdlib -ffreestanding";
const std::string clang = "clang -fuse-ld=lld" + bare + " --target=", gcc = "-linux-gnu-gcc" + bare;

const std::pair<const char*, std::string> compilers[] = {
    {"gcc", "gcc -g -DNATIVE"},
    {"gcc_relocs", "gcc -g -gdwarf-4 -no-pie -O2 -Wl,--emit-relocs -DNATIVE"},
    {"gcc_types", "gcc -g3 -gdwarf-4 -fdebug-types-section -DNATIVE"},
    {"gcc_shared", "gcc -g -shared -fPIC -nostdlib"},
    {"clang_lld", "clang -g -fuse-ld=lld -static -DNATIVE"},
    {"clang_i386", clang + "i386-linux-gnu"},
    {"clang_arm", clang + "armv7-linux-gnueabi"},
    {"clang_aarch64", clang + "aarch64-linux-gnu"},
    {"clang_powerpc", clang + "powerpc-linux-gnu"},
    {"clang_powerpc64le", clang + "powerpc64le-linux-gnu"},
    {"clang_mips64el", clang + "mips64el-linux-gnuabi64"},
    {"clang_riscv32", clang + "riscv32-linux-gnu -mno-relax"},
    {"gcc_arm", "arm-linux-gnueabihf-gcc" + bare},
    {"gcc_powerpc64", "powerpc64" + gcc},
    {"gcc_mips", "mips" + gcc},
    {"gcc_riscv64", "riscv64" + gcc},
};

// Removed without being asked, of what these compilers make.
const std::set<std::string> by_default = split_set(
    ".symtab .strtab .debug_info .debug_abbrev .debug_aranges .debug_ranges .debug_loc .debug_str "
    ".debug_line .debug_frame .debug_pubnames .rela.debug_info .rela.debug_aranges "
    ".rela.debug_ranges .rela.debug_loc .rela.debug_line");

struct real_program : testing::TestWithParam<std::pair<const char*, std::string>> {};

TEST_P(real_program, survives) {
    const std::string& compile = GetParam().second;
    work_place place;
    place.put("prog.c", source);
    for (const bool all : {false, true}) {
        if (place.command(compile + " -o prog prog.c").status != 0)
            GTEST_SKIP() << "this machine cannot do: " << compile;
        const std::string before = place.get("prog");
        const std::string complaints = place.command("readelf -aW prog").err;
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
            EXPECT_EQ(place.command("readelf -aW prog").err, complaints);
        if (compile.find("NATIVE") != std::string::npos)
            EXPECT_EQ(place.command("./prog").out, "alive\n");
    }
}

INSTANTIATE_TEST_SUITE_P(compilers, real_program, testing::ValuesIn(compilers),
                         [](const auto& one) { return std::string(one.param.first); });

} // namespace
