// Real programs of the compilers on this machine: the stripped ones are judged by readelf, and run
// where they can.
#include <gtest/gtest.h>

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

struct real_program : testing::TestWithParam<std::string> {};

TEST_P(real_program, survives) {
    work_place place;
    place.put("prog.c", source);
    for (const std::string options : {"", "-a "}) {
        if (place.command(GetParam() + " -o prog prog.c").status != 0)
            GTEST_SKIP() << "this machine cannot do: " << GetParam();
        const std::string complaints = place.command("readelf -aW prog").err;
        EXPECT_EQ(place.trim(options + "prog").err, "");
        const run_result read = place.command("readelf -aW prog");
        EXPECT_EQ(read.out.find(" .debug_info "), std::string::npos);
        // Relocations that stay without -a name symbols that are gone.
        if (options == "-a " || GetParam().find("emit-relocs") == std::string::npos)
            EXPECT_EQ(read.err, complaints);
        if (GetParam().find("-nostdlib") == std::string::npos)
            EXPECT_EQ(place.command("./prog").status, 42);
    }
}

INSTANTIATE_TEST_SUITE_P(compilers, real_program, testing::ValuesIn(compilers()));

} // namespace
