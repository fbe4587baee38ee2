// What a run costs beside time: calls for reading and writing, and bytes that they move. A
// field-wise read, a write for each section or a table read over and over shows here.
//
// Not on Windows: the kernel's counts of calls are read from /proc.
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

struct run_cost {
    int status = -1;
    uint64_t calls = 0;   // that read or write, the copies inside the host among them
    uint64_t read = 0;    // bytes
    uint64_t written = 0; // bytes
};

// The kernel keeps its counts of an ended child until somebody waits for it.
run_cost count(const std::string& file, words arguments) {
    arguments.insert(arguments.begin(), OBJTRIM_PROGRAM);
    arguments.push_back(file);
    std::vector<char*> vector;
    for (std::string& argument : arguments)
        vector.push_back(argument.data());
    vector.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        execv(vector[0], vector.data());
        _exit(127);
    }
    siginfo_t end;
    run_cost cost;
    if (waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT) != 0)
        return cost;
    std::ifstream counts("/proc/" + std::to_string(child) + "/io");
    uint64_t value = 0;
    for (std::string name; counts >> name >> value;) {
        cost.calls += name == "syscr:" || name == "syscw:" ? value : 0;
        cost.read += name == "rchar:" ? value : 0;
        cost.written += name == "wchar:" ? value : 0;
    }
    int status = 0;
    waitpid(child, &status, 0);
    cost.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return cost;
}

void put(std::string& to, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i)
        to += static_cast<char>(value >> (8 * i));
}

// An object of `count` functions, each with a section, two relocations and a symbol with a name,
// and of debugging data that goes.
std::string many_functions(uint32_t count) {
    elf_draft draft{.type = et::rel};
    std::string symbols(24, '\0');
    std::string names(1, '\0');
    for (uint32_t i = 1; i <= count; ++i) {
        draft.sections.push_back(
            {".text." + std::to_string(i), sht::progbits, shf::alloc | shf::exec, filler(40, i)});
        put(symbols, names.size(), 4);
        put(symbols, 0x12, 2);
        put(symbols, i, 2);
        put(symbols, 0, 16);
        names += "a_function_of_the_library_" + std::to_string(i) + '\0';
    }
    for (uint32_t i = 1; i <= count; ++i) {
        std::string entries;
        for (uint64_t symbol : {i, i / 2 + 1}) {
            put(entries, 8 * symbol % 32, 8);
            put(entries, symbol << 32 | 1, 8);
            put(entries, 0, 8);
        }
        draft.sections.push_back({".rela.text." + std::to_string(i), sht::rela, 0, entries, 8,
                                  ".symtab", ".text." + std::to_string(i), 24});
    }
    names.resize((names.size() + 7) / 8 * 8);
    draft.sections.push_back({".debug_info", sht::progbits, 0, filler(100000, 1)});
    draft.sections.push_back({".symtab", sht::symtab, 0, symbols, 8, ".strtab", "", 24});
    draft.sections.push_back({".strtab", sht::strtab, 0, names});
    return build_elf(draft);
}

TEST(economy, few_calls_move_every_byte_about_once) {
    if (!std::ifstream("/proc/self/io"))
        GTEST_SKIP() << "this system does not count what a process reads and writes";
    if (is_sanitized_build())
        GTEST_SKIP() << "a sanitizer reads for itself";
    constexpr uint64_t start = 40; // calls that a run begins and ends with
    const std::string file = many_functions(2000);
    for (const char* options : {"-stripreloc", "-x -stripreloc -bl=a_function*7",
                                "-s -stripreloc -wl=*12* -wl=a_function_of_the_library_5", "-a"}) {
        SCOPED_TRACE(options);
        work_place place;
        place.put("f", file);
        words arguments = split(options);
        arguments.push_back("-stripreloc");
        const run_cost cost = count(place.path("f"), arguments);
        EXPECT_EQ(cost.status, 0);
        EXPECT_LT(place.get("f").size(), file.size());
        EXPECT_LE(cost.calls, start + 4 * file.size() / (64 * 1024));
        EXPECT_LE(cost.read, 3 * file.size());
        EXPECT_LE(cost.written, file.size() + 4096);
    }
}

} // namespace
