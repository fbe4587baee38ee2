// Every call of the system and of the allocator fails once, and from then on, in every kind of run:
// the file is the old one or the complete new one, the status tells, and a later run goes well.
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

#include "support/ar_builder.h"
#include "support/coff_builder.h"
#include "support/dnm_builder.h"
#include "support/elf_builder.h"
#include "support/process.h"
#include "support/symbol_builder.h"

namespace {

constexpr int out_of_memory = 3;

// Runs of one kind, on files that are as at first before each.
struct fault_scene {
    std::string line = {};                       // what the user runs: program and arguments
    std::map<std::string, std::string> files = {};
    std::string target = "f";                    // what the run is to change
    std::vector<std::string> between = {};       // states of it that are documented, with status 1
    std::string struck = "objtrim";              // the program that meets the faults
    bool is_archive = false;

    work_place place = {};
    std::map<std::string, std::string> after = {}; // the files after a run without faults

    run_result run(const std::string& fault) {
        for (const auto& [name, bytes] : files)
            place.put(name, bytes);
        words arguments = split(line);
        const std::string program = OBJTRIM_FAULTY + arguments[0];
        arguments.erase(arguments.begin());
        process started = start(place, program, arguments,
                                {"TMP=" + place.path("scratch"), "OBJTRIM_FAULT=" + fault,
                                 "OBJTRIM_COUNT=" + (fault.empty() ? place.path("count") : "")});
        return end_of(started);
    }

    // How many calls of each kind the program makes that is to be struck.
    std::map<std::string, unsigned> run_well() {
        std::filesystem::create_directory(place.path("scratch"));
        const run_result result = run("");
        EXPECT_EQ(result.status, 0) << line << result.err;
        std::istringstream text(place.get("count"));
        std::filesystem::remove(place.path("count"));
        std::map<std::string, unsigned> counts;
        std::string program, kind;
        for (unsigned count; text >> program >> kind >> count;)
            if (program == struck)
                counts[kind] = count;
        for (const std::string& name : place.list())
            if (name != "scratch")
                after[name] = place.get(name);
        EXPECT_TRUE(after[target] != files[target]) << line;
        return counts;
    }

    // What stands beside the files after a run that has failed, and may not stand there.
    std::string left_over() const {
        std::string left;
        for (const std::string& name : place.list())
            if (!files.contains(name) && !after.contains(name) && name != "scratch" &&
                !(name.starts_with("ov_") && name.ends_with("tmp")))
                left += name + " ";
        return left;
    }

    void clear() const {
        for (const std::string& name : place.list())
            if (name.starts_with("ov_"))
                std::filesystem::remove(place.path(name));
    }

    // One run: what is wrong with its outcome, if anything.
    std::string outcome(const std::string& kind, const std::string& fault) {
        const run_result result = run(fault);
        const bool ended_well = result.status == 0;
        std::ostringstream wrong;
        if (result.status != 0 && result.status != 1 && result.status != out_of_memory)
            wrong << "ended with " << result.status << "; ";
        if ((kind == "memory") != (result.status == out_of_memory))
            wrong << "status " << result.status << "; ";
        if (ended_well != result.err.empty())
            wrong << "status " << result.status << " does not fit what was said; ";
        for (const auto& [name, complete] : after) {
            const std::string now = place.get(name);
            const bool between_allowed =
                result.status == 1 && name == target &&
                std::find(between.begin(), between.end(), now) != between.end();
            const bool is_map = name.ends_with(".dnm");
            const bool is_output = !files.contains(name);
            if (now == complete || between_allowed)
                continue;
            if (ended_well)
                wrong << name << " is not the complete new file, but the status is 0; ";
            else if (now != files[name] && !is_output && !(is_map && now.empty()))
                wrong << name << " is damaged; ";
        }
        if (ended_well && left_over() != "")
            wrong << "left: " << left_over() << "; ";
        clear();
        std::string text = wrong.str();
        return text.empty() ? text : fault + ": " + text + result.err;
    }

    // What an interrupted run has left in the scratch directory is no obstacle to the next one.
    void expect_recovery(const std::string& fault) {
        if (std::filesystem::is_empty(place.path("scratch")))
            return;
        EXPECT_EQ(run("").status, 0) << fault;
        std::filesystem::remove(place.path("count"));
        EXPECT_EQ(place.get(target), after[target]) << fault;
        EXPECT_EQ(place.list("scratch"), words()) << fault;
        std::filesystem::remove_all(place.path("scratch"));
        std::filesystem::create_directory(place.path("scratch"));
    }

    // Every fault of every kind.
    void strike() {
        int runs = 0;
        for (const auto& [kind, count] : run_well())
            for (const char* const mode : {"once", "from", "short"}) {
                const bool shortens = std::string(mode) == "short";
                if (shortens && kind != "read" && kind != "write")
                    continue;
                if (kind == "host" && std::string(mode) == "once")
                    continue; // the same as in its own kind
                for (unsigned call = 1; call <= count; ++call, ++runs) {
                    const std::string fault =
                        struck + ":" + kind + ":" + std::to_string(call) + ":" + mode;
                    EXPECT_EQ(outcome(kind, fault), "") << line;
                    expect_recovery(fault);
                }
            }
        std::printf("%6d runs: %s\n", runs, line.c_str());
    }
};

std::string executable() {
    elf_draft draft{.form = elf_forms[0]};
    draft.sections.push_back({.name = ".text", .content = filler(0x28, 1)});
    draft.sections.push_back({.name = ".debug_info", .content = filler(0x48, 2)});
    draft.sections.push_back({.name = ".data", .content = filler(70000, 3)}); // copied by the host
    return build_elf(draft);
}

TEST(faults, elf) {
    fault_scene{.line = "objtrim f", .files = {{"f", executable()}}}.strike();
    fault_scene{.line = "objtrim f", .files = {{"f", executable()}, {"f.dnm", build_dnm(sample_dnm())}}}.strike();
}

} // namespace
