// What a run costs beside time: calls for reading and writing, and bytes that they move. A
// field-wise read, a write for each section or a table read over and over shows here.
//
// Not on Windows: the kernel's counts of calls are read from /proc.
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "support/symbol_builder.h"

namespace {

struct run_cost {
    uint64_t calls = 0;   // that read or write, the copies inside the host among them
    uint64_t read = 0;    // bytes
    uint64_t written = 0; // bytes
};

// What the kernel counted for a shell and its child: the shell does next to nothing.
run_cost cost_of(const work_place& place, const std::string& line) {
    place.put("script", "'" OBJTRIM_PROGRAM "' " + line + " && cat /proc/$$/io");
    std::istringstream counts(place.command("sh -f script").out);
    run_cost cost;
    uint64_t value = 0;
    for (std::string name; counts >> name >> value;) {
        cost.calls += name == "syscr:" || name == "syscw:" ? value : 0;
        cost.read += name == "rchar:" ? value : 0;
        cost.written += name == "wchar:" ? value : 0;
    }
    return cost;
}

// An object of functions, each with a section, two relocations and a symbol with a name, and of
// debugging data that goes.
std::string many_functions() {
    symbol_draft draft{.elf = {.type = et::rel}};
    for (int i = 0; i < 2000; ++i) {
        const std::string number = std::to_string(i), half = std::to_string(i / 2);
        draft.elf.sections.push_back({".text." + number, sht::progbits, shf::alloc, filler(40, 1)});
        draft.entries += (i != 0 ? "; func_" : "func_") + number + " gF .text." + number +
                         "; @.rela.text." + number + " 8 1 func_" + number + "; @.rela.text." +
                         number + " 8 1 func_" + half;
    }
    draft.elf.sections.push_back({.name = ".debug_info", .content = filler(100000, 1)});
    return build_symbols(draft);
}

TEST(economy, few_calls_move_every_byte_about_once) {
    if (!std::ifstream("/proc/self/io"))
        GTEST_SKIP() << "this system does not count what a process reads and writes";
    if (is_sanitized_build())
        GTEST_SKIP() << "a sanitizer reads for itself";
    constexpr uint64_t start = 40; // calls that a run begins and ends with
    const std::string file = many_functions();
    for (const char* options : {"", "-x -bl=func*7", "-s -wl=*12* -wl=func_5", "-a"}) {
        work_place place;
        place.put("f", file);
        const run_cost cost = cost_of(place, options + std::string(" -stripreloc f"));
        EXPECT_GT(cost.calls, 0U) << options; // it came to its end
        EXPECT_LT(place.get("f").size(), file.size()) << options;
        EXPECT_LE(cost.calls, start + 4 * file.size() / (64 * 1024)) << options;
        EXPECT_LE(cost.read, 3 * file.size()) << options;
        EXPECT_LE(cost.written, file.size() + 4096) << options;
    }
}

} // namespace
