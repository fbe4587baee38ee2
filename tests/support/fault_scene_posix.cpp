// The scenes of faults, and what may be left of each.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

#include "support/ar_builder.h"
#include "support/coff_builder.h"
#include "support/dnm_builder.h"
#include "support/elf_builder.h"
#include "support/fault_scene.h"
#include "support/symbol_builder.h"

namespace {

constexpr int out_of_memory = 3;

// Members of an archive whose dates and modes could not be set have others.
std::string without_dates(std::string archive) {
    constexpr size_t header_end = 58;
    for (size_t at = 0; (at = archive.find("`\n", at)) != std::string::npos; ++at)
        if (at >= header_end)
            archive.replace(at - header_end + 16, 12, 12, ' ')
                .replace(at - header_end + 40, 8, 8, ' ');
    return archive;
}

// In a short run about so many of the calls.
unsigned step_through(unsigned calls, unsigned wanted) {
    return stress_factor() == 1 ? std::max(calls / wanted, 1u) : 1;
}

} // namespace

run_result fault_scene::run(const std::string& fault, const std::function<void()>& prepare) {
    for (const auto& [name, bytes] : after)
        std::filesystem::remove(place->path(name));
    for (const auto& [name, bytes] : files)
        place->put(name, bytes);
    words arguments = split(line);
    const std::string program = OBJTRIM_FAULTY + arguments[0];
    arguments.erase(arguments.begin());
    process started = start(place->directory, program, arguments,
                            {"TMP=" + place->path("scratch"), "OBJTRIM_FAULT=" + fault,
                             "OBJTRIM_COUNT=" + (after.empty() ? place->path("count") : "")},
                            prepare);
    return end_of(started);
}

std::map<std::string, unsigned> fault_scene::run_well() {
    after.clear();
    std::filesystem::create_directory(place->path("scratch"));
    const run_result result = run();
    EXPECT_EQ(result.status, 0) << line << result.err;
    std::istringstream text(place->get("count"));
    std::filesystem::remove(place->path("count"));
    std::map<std::string, unsigned> counts;
    std::string program, kind;
    for (unsigned count; text >> program >> kind >> count;)
        if (program == struck)
            counts[kind] = count;
    for (const std::string& name : place->list())
        if (name != "scratch")
            after[name] = place->get(name);
    EXPECT_TRUE(!files.contains(target) || after[target] != files[target]) << line;
    return counts;
}

// Names what stands beside the files and may not stand there. Where no directory for scratch files
// can be found, it is this one.
std::string fault_scene::clear(bool with_results) const {
    std::string left;
    for (const std::string& name : place->list()) {
        if (files.contains(name) || after.contains(name) || name == "scratch")
            continue;
        if (!name.starts_with("ORVSD_") &&
            !(with_results && name.starts_with("ov_") && name.ends_with("tmp")))
            left += name + " ";
        std::filesystem::remove_all(place->path(name));
    }
    return left;
}

std::string fault_scene::judge_file(const std::string& name, const std::string& kind,
                                    int status) const {
    const bool is_new = !files.contains(name), is_map = name.ends_with(".dnm");
    const bool is_output = line.find("-o=" + name) != std::string::npos; // written as it is
    const bool may_differ = kind == "times" || kind == "mode" || kind == "host";
    const auto form = [&](const std::string& bytes) {
        return may_differ ? without_dates(bytes) : bytes;
    };
    const std::string now = form(place->get(name));
    const bool is_old = now == (is_new ? "" : form(files.at(name)));
    if (now == form(after.at(name)))
        return "";
    if (status == 0) // a failed look at something passes for an expected "no"
        return kind == "status" && is_map && is_old ? "" : name + " is not complete; ";
    bool is_allowed = is_old || is_output || (is_map && now.empty());
    for (const std::string& state : between)
        is_allowed |= name == target && status != out_of_memory && now == form(state);
    return is_allowed ? "" : name + " is damaged; ";
}

std::string fault_scene::judge(const run_result& result, const std::string& kind) {
    const int signal = atoi(kind.c_str());
    const bool is_own = line.starts_with(struck);
    std::ostringstream wrong;
    if (is_own && signal != 0        ? result.status != 128 + signal
        : is_own && kind == "memory" ? result.status != out_of_memory
                                     : result.status != 0 && result.status != 1)
        wrong << "ended with " << result.status << "; ";
    const bool complains = result.err.find("error: ") != std::string::npos ||
                           result.err.find("fatal: ") != std::string::npos;
    if (result.err.find("Sanitizer") != std::string::npos ||
        result.err.find("runtime error") != std::string::npos)
        wrong << "sanitizer; ";
    if (signal == 0 && (result.status != 0) != complains)
        wrong << "status " << result.status << " does not fit what was said; ";
    for (const auto& [name, complete] : after)
        wrong << judge_file(name, kind, result.status);
    const std::string left = clear(signal == 0 || signal == SIGKILL);
    if (!left.empty())
        wrong << "left: " << left;
    const std::string text = wrong.str();
    return text.empty() ? text : text + result.err;
}

void fault_scene::expect_recovery(const std::string& fault) {
    if (std::filesystem::is_empty(place->path("scratch")))
        return;
    const run_result result = run();
    EXPECT_EQ(result.status, 0) << fault << result.err;
    EXPECT_EQ(place->get(target), after[target]) << fault;
    EXPECT_EQ(place->list("scratch"), words()) << fault;
    std::filesystem::remove_all(place->path("scratch"));
    std::filesystem::create_directory(place->path("scratch"));
}

int fault_scene::strike() {
    int runs = 0;
    for (const auto& [kind, count] : run_well())
        for (const std::string mode : {"once", "from", "short", "again"}) {
            const bool is_transfer = mode == "short" || mode == "again";
            if (is_transfer && kind != "read" && kind != "write")
                continue;
            if (kind == "host" && mode == "once")
                continue; // the same as in its own kind
            const unsigned step = step_through(count, mode == "from" ? 15 : 60);
            for (unsigned call = 1; call <= count; call += step, ++runs) {
                const std::string fault =
                    struck + ":" + kind + ":" + std::to_string(call) + ":" + mode;
                const run_result result = run(fault);
                EXPECT_EQ(judge(result, kind), "") << line << " " << fault;
                EXPECT_TRUE(result.status == 0 || mode != "again") << line << " " << fault;
                expect_recovery(fault);
            }
        }
    return runs;
}

int fault_scene::interrupt(const std::vector<int>& signals) {
    int runs = 0;
    const unsigned count = run_well()["host"];
    for (const int signal : signals)
        for (unsigned call = 1; call <= count; call += step_through(count, 60), ++runs) {
            const std::string number = std::to_string(signal);
            const std::string fault = struck + ":host:" + std::to_string(call) + ":" + number;
            EXPECT_EQ(judge(run(fault), number), "") << line << " " << fault;
            expect_recovery(fault);
        }
    return runs;
}

std::vector<fault_scene> elf_scenes() {
    elf_draft draft{.form = elf_forms[0]};
    draft.sections = {{.name = ".text", .content = filler(0x28, 1)},
                      {.name = ".debug_info", .content = filler(0x48, 2)},
                      {.name = ".debug", .content = filler(0x48, 2)},
                      {.name = ".data", .content = filler(70000, 3)}}; // copied by the host
    const std::string file = build_elf(draft), map = build_dnm(sample_dnm());
    const auto with_symbols = [](uint16_t type) {
        symbol_draft symbols{.entries = "a lF .text; b gF .text 4; c gO .data; @.rel.text 3 1 b",
                             .elf = base_draft(elf_forms[1])};
        symbols.elf.type = type;
        return build_symbols(symbols);
    };
    std::vector<fault_scene> scenes;
    scenes.push_back({.line = "objtrim f", .files = {{"f", file}, {"f.dnm", map}}});
    scenes.push_back({.line = "objtrim f", .files = {{"f", file}}});
    scenes.push_back({.line = "objtrim -o=out f", .files = {{"f", file}}, .target = "out"});
    scenes.push_back({.line = "objtrim -vxworks f", .files = {{"f", file}}, .makes_files = false});
    scenes.push_back({.line = "objtrim -x -bl=a f", .files = {{"f", with_symbols(et::exec)}}});
    scenes.push_back(
        {.line = "objtrim -x -stripreloc -bl=a f", .files = {{"f", with_symbols(et::rel)}}});
    return scenes;
}

// These are changed in place: first the headers, then the strings are moved, and then what is left
// is cut off.
std::vector<fault_scene> in_place_scenes() {
    std::vector<fault_scene> scenes;
    for (const built_file& file :
         {build_coff({}), build_coff({.lines = coff_draft::LINES_BEFORE}), build_pe({})}) {
        fault_scene scene{.line = "objtrim f", .files = {{"f", file.bytes}}, .makes_files = false};
        scene.run_well();
        const std::string complete = scene.after["f"];
        for (const size_t written : {std::min(file.symbols_at, complete.size()), complete.size()})
            scene.between.push_back(complete.substr(0, written) + file.bytes.substr(written));
        scenes.push_back(std::move(scene));
    }
    return scenes;
}

// Of an archive any member may be the stripped one or the old one.
std::vector<fault_scene> archive_scenes() {
    std::map<std::string, std::string> whole, stripped;
    for (const char* name : {"one", "two"}) {
        elf_draft draft{.form = elf_forms[0]};
        draft.sections = {{.name = ".text", .content = filler(0x28, whole.size())},
                          {.name = ".debug_info", .content = filler(0x48, 2)}};
        whole[name] = build_elf(draft);
        stripped[name] = build_stripped(draft, {".debug_info"});
    }
    const auto archive = [&](bool first, bool second) {
        return build_archive(OBJ_ARCHIVE,
                             {{.name = "text/", .data = "text and text"},
                              {.name = "one/", .data = (first ? stripped : whole)["one"]},
                              {.name = "two/", .data = (second ? stripped : whole)["two"]}});
    };
    std::vector<fault_scene> scenes;
    for (const char* const program : {"objtrim", "lbm"})
        scenes.push_back({.line = "objtrim f",
                          .files = {{"f", archive(false, false)}},
                          .between = {archive(true, false), archive(false, true)},
                          .struck = program});
    scenes.push_back(
        {.line = "lbm -rc f @list",
         .files = {{"list", "one\ntwo\n"}, {"one", stripped["one"]}, {"two", stripped["two"]}},
         .struck = "lbm"});
    return scenes;
}

std::vector<fault_scene> all_scenes() {
    std::vector<fault_scene> scenes = elf_scenes();
    for (auto* const more : {in_place_scenes, archive_scenes}) {
        std::vector<fault_scene> others = more();
        std::move(others.begin(), others.end(), std::back_inserter(scenes));
    }
    return scenes;
}
