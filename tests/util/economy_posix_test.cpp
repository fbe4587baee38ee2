// What a run costs beside time: calls for reading and writing, and bytes that they move. A
// field-wise read, a write for each section or a table read over and over shows here.
//
// Not on Windows: the kernel's counts of calls are read from /proc.
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

#include "support/symbol_builder.h"

namespace {

TEST(economy, few_calls_move_every_byte_about_once) {
    if (!std::ifstream("/proc/self/io") || is_sanitized_build())
        GTEST_SKIP() << "no counts of what a process reads and writes, or a sanitizer's, too";
    symbol_draft draft{.elf = {.type = et::rel}};
    for (int i = 0; i < 1000; ++i) {
        const std::string text = ".text." + std::to_string(i), name = "func_" + std::to_string(i);
        draft.elf.sections.push_back({text, sht::progbits, shf::alloc, filler(40, 1)});
        draft.entries += name + " gF " + text + "; @.rela" + text + " 8 1 " + name + ";";
    }
    draft.elf.sections.push_back({.name = ".debug_info", .content = filler(100000, 1)});
    const std::string file = build_symbols(draft);
    for (const std::string options : {"", "-x -bl=func*7", "-s -wl=*12* -wl=func_5", "-a"}) {
        work_place place;
        place.put("f", file);
        place.put("run", OBJTRIM_PROGRAM " -stripreloc " + options + " f && cat /proc/$$/io");
        std::istringstream counts(place.command("sh -f run").out); // of the shell and its child
        std::map<std::string, uint64_t> cost;
        for (std::string name; counts >> name;)
            counts >> cost[name];
        EXPECT_LT(place.get("f").size(), file.size()) << options;
        EXPECT_LE(cost["syscr:"] + cost["syscw:"], 40 + file.size() / (16 * 1024)) << options;
        EXPECT_LE(cost["rchar:"], 3 * file.size()) << options;
        EXPECT_LE(cost["wchar:"], file.size() + 4096) << options;
    }
}

} // namespace
