// Runs to which bad things happen, and the rule that all of them keep: the file is the old one or
// the complete new one, the exit status tells, and what is left over is no obstacle to a later run.
// Every call of the system and of the allocator fails, once and from then on; signals come before
// every call; files may grow to every size and no further; neighbours prepare the names
// that a run will use.
//
// Not on Windows: calls of the system are replaced as this host links; signals, links, other users.
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <memory>
#include <pwd.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shared/genlock.h"
#include "support/ar_builder.h"
#include "support/child.h"
#include "support/coff_builder.h"
#include "support/dnm_builder.h"
#include "support/runner.h"
#include "support/symbol_builder.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr int out_of_memory = 3;

// Members of an archive whose dates and modes could not be set have others.
std::string without_dates(std::string archive) {
    for (size_t at = 58; (at = archive.find("`\n", at)) != std::string::npos; ++at)
        archive.replace(at - 42, 12, 12, ' ').replace(at - 18, 8, 8, ' ');
    return archive;
}

void empty(const work_place& place) {
    for (const std::string& name : place.list())
        fs::remove_all(place.path(name));
}

// Runs of one kind, on files that are as at first before each.
struct fault_scene {
    std::map<std::string, std::string> files;
    std::string line = "objtrim f";    // program and arguments
    std::string struck = "objtrim";    // the program that the faults are for
    std::string target = "f";          // what the run is to change
    words between = {};                // states of it that a run with status 1 may leave
    std::vector<size_t> in_place = {}; // sizes up to which a file is written anew before the rest

    std::shared_ptr<work_place> place = std::make_shared<work_place>();
    std::shared_ptr<work_place> scratch = std::make_shared<work_place>();
    std::map<std::string, std::string> after = {}; // the files after a run without faults

    // One run; see faults.cpp for what a fault says.
    run_result run(const std::string& fault = "",
                   const std::function<void()>& prepare = nullptr) const {
        empty(*place);
        for (const auto& [name, bytes] : files)
            place->put(name, bytes);
        const words arguments = split(line);
        process started = start(place->directory, OBJTRIM_FAULTY + arguments[0],
                                {arguments.begin() + 1, arguments.end()},
                                {"TMP=" + scratch->directory, "OBJTRIM_FAULT=" + fault}, prepare);
        return end_of(started);
    }

    // A run that goes well. How many calls of each kind the struck program makes.
    std::map<std::string, unsigned> run_well() {
        const run_result result = run(struck + ":count:0:to");
        EXPECT_EQ(result.status, 0) << line << result.err;
        std::istringstream text(place->get("count"));
        fs::remove(place->path("count"));
        std::map<std::string, unsigned> counts;
        for (std::string kind; text >> kind;)
            text >> counts[kind];
        for (const std::string& name : place->list())
            after[name] = place->get(name);
        EXPECT_NE(counts["host"], 0u) << line;
        EXPECT_TRUE(!files.contains(target) || after[target] != files[target]) << line;
        for (const size_t size : in_place)
            between.push_back(after[target].substr(0, size) +
                              files[target].substr(std::min(size, after[target].size())));
        return counts;
    }

    // Whether a file may be what it is after a run.
    bool is_allowed(const std::string& name, const std::string& kind, int status) const {
        const bool is_map = name.ends_with(".dnm"), failed = status != 0;
        const bool may_differ = kind == "times" || kind == "mode" || kind == "host";
        words allowed = {after.at(name)};
        if (failed || (is_map && kind == "status")) // a failed look passes for an expected "no"
            allowed.push_back(files.contains(name) ? files.at(name) : "");
        if (failed && is_map)
            allowed.push_back("");
        if (failed && name == target && status != out_of_memory)
            allowed.insert(allowed.end(), between.begin(), between.end());
        return (failed && name == "out") || std::ranges::any_of(allowed, [&](const auto& bytes) {
                   const std::string now = place->get(name);
                   return may_differ ? without_dates(now) == without_dates(bytes) : now == bytes;
               });
    }

    // The outcome is allowed, and a later run goes well in spite of what is in the scratch
    // directory. A kind that is a number is that of a signal.
    void expect_rule(const run_result& result, const std::string& kind, const std::string& fault) {
        const std::string where = " by " + line + ", " + fault + ": " + result.err.substr(0, 200);
        const bool is_own = line.starts_with(struck);
        const auto says = [&](const char* text) {
            return result.err.find(text) != std::string::npos;
        };
        const int signal = atoi(kind.c_str()), status = result.status;
        EXPECT_TRUE(is_own && signal != 0        ? status == 128 + signal
                    : is_own && kind == "memory" ? status == out_of_memory
                                                 : status == 0 || status == 1)
            << "status " << status << where;
        EXPECT_FALSE(says("Sanitizer") || says("runtime error")) << where;
        EXPECT_TRUE(signal != 0 || (status != 0) == (says("error: ") || says("fatal: ")))
            << "what is said does not fit status " << status << where;
        for (const auto& [name, complete] : after)
            EXPECT_TRUE(is_allowed(name, kind, status)) << name << " with " << status << where;
        // Where no directory for scratch files can be found, it is this one.
        const bool with_results = signal == 0 || signal == SIGKILL;
        for (const std::string& name : place->list())
            EXPECT_TRUE(files.contains(name) || after.contains(name) ||
                        name.starts_with("ORVSD_") ||
                        (with_results && name.starts_with("ov_") && name.ends_with("tmp")))
                << "left: " << name << where;
        if (scratch->list().empty())
            return;
        EXPECT_EQ(run().status, 0) << "a later run" << where;
        EXPECT_TRUE(place->get(target) == after[target]) << "a later run" << where;
        EXPECT_EQ(scratch->list(), words()) << "a later run" << where;
        empty(*scratch);
    }

    // Every fault of every kind, and each of the signals before every call; a selection in a short
    // run.
    void strike() {
        for (const auto& [kind, count] : run_well())
            for (const std::string& mode :
                 split(kind == "host"                      ? "from 9 15 2 1"
                       : kind == "read" || kind == "write" ? "once from short again"
                                                           : "once from")) {
                const unsigned step = stress_factor() == 1 ? count / 20 + 1 : 1;
                for (unsigned call = 1; call <= count && !testing::Test::HasFailure();
                     call += step) {
                    const std::string fault =
                        struck + ":" + kind + ":" + std::to_string(call) + ":" + mode;
                    const run_result result = run(fault);
                    expect_rule(result, mode < "a" ? mode : kind, fault);
                    EXPECT_TRUE(result.status == 0 || mode != "again") << line << " " << fault;
                }
            }
    }
};

constexpr size_t first_archive = 8;

// ELF files; files that are changed in place, where first the headers are written, then the strings
// moved, and then what is left cut off; and archives.
std::vector<fault_scene> scenes() {
    elf_draft draft;
    for (const char* name : {".text", ".debug_info", ".debug", ".data"}) // the last: by the host
        draft.sections.push_back(
            {.name = name, .content = filler(name == ".data"s ? 70000 : 0x48, 1)});
    const std::string elf = build_elf(draft);
    draft.sections.resize(2);
    const std::string member = build_elf(draft), stripped = build_stripped(draft, {".debug_info"});
    symbol_draft symbols{.entries = "a lF .text; b gF .text 4; c gO .data; @.rel.text 3 1 b",
                         .elf = base_draft(elf_forms[1])};
    symbols.elf.type = et::rel;
    const auto in_place = [](const built_file& file) {
        return fault_scene{.files = {{"f", file.bytes}}, .in_place = {file.symbols_at, SIZE_MAX}};
    };
    // Of an archive any member may be the stripped one or the old one.
    const auto archive = [&](const std::string& one, const std::string& two) {
        return build_archive(OBJ_ARCHIVE, {{.name = "text/", .data = "text and text"},
                                           {.name = "one/", .data = one},
                                           {.name = "two/", .data = two}});
    };
    const auto with_archive = [&](const std::string& struck) {
        return fault_scene{.files = {{"f", archive(member, member)}},
                           .struck = struck,
                           .between = {archive(stripped, member), archive(member, stripped)}};
    };
    return {
        {.files = {{"f", elf}, {"f.dnm", build_dnm(sample_dnm())}}},
        {.files = {{"f", elf}}},
        {.files = {{"f", elf}}, .line = "objtrim -o=out f", .target = "out"},
        {.files = {{"f", build_symbols(symbols)}}, .line = "objtrim -x -stripreloc -bl=a f"},
        {.files = {{"f", elf}}, .line = "objtrim -vxworks f", .in_place = {SIZE_MAX}},
        in_place(build_coff({})),
        in_place(build_coff({.lines = coff_draft::LINES_BEFORE})),
        in_place(build_pe({})),
        with_archive("objtrim"),
        with_archive("lbm"),
        {.files = {{"list", "one\ntwo\n"}, {"one", stripped}, {"two", stripped}},
         .line = "lbm -rc f @list",
         .struck = "lbm"},
    };
}

struct faults : testing::TestWithParam<size_t> {
    fault_scene scene = scenes()[GetParam()];
};
INSTANTIATE_TEST_SUITE_P(each, faults, testing::Range(size_t{0}, scenes().size()));

TEST_P(faults, of_every_call) {
    scene.strike();
}

// From no room at all to enough for everything.
TEST_P(faults, a_limit_on_the_size_of_files) {
    scene.run_well();
    int refused = 0;
    for (size_t i = 0; i < 48; i += stress_factor() == 1 ? 3 : 1) {
        const rlimit size = {i * i * 32, RLIM_INFINITY};
        const run_result result = scene.run("", [&] { setrlimit(RLIMIT_FSIZE, &size); });
        refused += result.status != 0;
        scene.expect_rule(result, "", std::to_string(size.rlim_cur) + " bytes");
    }
    EXPECT_TRUE(refused > 0 || !scene.in_place.empty()) << scene.line;
}

// Each has a file of its own; the directories for temporary files are the same.
TEST_P(faults, many_at_once) {
    scene.run_well();
    const bool alone = split(scene.line).size() > 2 || scene.files.size() > 1;
    std::vector<process> started;
    for (int i = 0; i < (alone ? 0 : 16 * stress_factor()); ++i) {
        scene.place->put(std::to_string(i), scene.files["f"]);
        started.push_back(start(scene.place->directory, OBJTRIM_PROGRAM, {std::to_string(i)},
                                {"TMP=" + scene.scratch->directory}));
    }
    for (size_t i = 0; i < started.size(); ++i) {
        EXPECT_EQ(end_of(started[i]).err, "") << scene.line << i;
        EXPECT_TRUE(scene.place->get(std::to_string(i)) == scene.after["f"]) << scene.line << i;
    }
    EXPECT_EQ(scene.scratch->list(), words());
}

// The tool is run by a user without rights, its neighbour is root. Nothing that a prepared name
// leads to may be touched.
struct neighbours : testing::Test {
    const passwd* const user = geteuid() == 0 ? getpwnam("nobody") : nullptr;

    void SetUp() override {
        if (user == nullptr)
            GTEST_SKIP() << "this takes two users";
    }

    // Plants, each in its turn, a link to the victim, one that leads nowhere, a link to a
    // directory, a file, a directory, and a FIFO.
    static void plant(int what, const std::string& name, const std::string& victims) {
        const char* const text = name.c_str();
        const std::string targets[] = {victims + "/file", victims + "/absent", victims};
        if ((what < 3    ? symlink(targets[what].c_str(), text)
             : what == 3 ? close(creat(text, 0666))
             : what == 4 ? mkdir(text, 0777)
                         : mkfifo(text, 0666)) != 0)
            _exit(125);
    }

    // Runs a scene in a directory where everyone may make files but remove only his own. `prepare`
    // is called in the child that becomes the program, with the right to plant.
    void expect_unharmed(fault_scene scene, const std::string& said,
                         const std::function<void(const std::string& victims)>& prepare) {
        scene.run_well();
        work_place victims;
        victims.put("file", "precious", 0666);
        const file_state before = victims.state("file");
        chmod(victims.directory.c_str(), 0777);
        for (const auto& place : {scene.place, scene.scratch})
            chmod(place->directory.c_str(), 01777);
        const run_result result = scene.run("", [&] {
            for (const auto& [name, bytes] : scene.files)
                if (chown(name.c_str(), user->pw_uid, user->pw_gid) != 0)
                    _exit(126);
            umask(0);
            prepare(victims.directory);
            umask(022);
            if (setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0)
                _exit(126);
        });
        if (result.status == 126)
            GTEST_SKIP() << "the other user cannot run the program";
        EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
        EXPECT_EQ(result.status == 0, said.empty()) << result.err;
        EXPECT_TRUE(scene.place->get("f") == (said.empty() ? scene.after : scene.files)["f"]);
        EXPECT_TRUE(victims.state("file") == before);
        EXPECT_EQ(victims.list(), words{"file"});
        empty(*scene.scratch);
    }
};

TEST_F(neighbours, take_the_temporary_names) {
    for (const size_t which : {size_t{0}, size_t{3}, first_archive})
        expect_unharmed(scenes()[which], "", [](const std::string& victims) {
            for (uint32_t i = 1; i <= 6; ++i)
                for (const char* end : {"tmp", "dnmtmp"})
                    plant(static_cast<int>(i) - 1,
                          gen_temp_stem(static_cast<uint32_t>(getpid()), i) + end, victims);
        });
}

TEST_F(neighbours, take_the_names_of_scratch_directories_and_locks) {
    const fault_scene scene = scenes()[first_archive];
    const std::string root = scene.scratch->path("ORVSD_") + user->pw_name;
    for (int what = 0; what < 6; ++what)
        for (const auto& [name, said] : {std::pair(root, "Could not find ORV user directory"),
                                         {root + "_.lock", "failed to strip file"},
                                         {root + "_.lock._rlock", ""}}) {
            SCOPED_TRACE(name + " " + std::to_string(what));
            expect_unharmed(scene, said, [&, name = name](const std::string& victims) {
                plant(what, name, victims);
            });
        }
    // A live process of another user never lets go; its lock file may seem fresh for ever.
    for (const auto& [said, ahead] :
         {std::pair("remove_stale_lock failed", 0), {"is not this user's", 1000000}})
        expect_unharmed(scene, said, [&, ahead = ahead](const std::string&) {
            gen_lockfile(root + "/", 0, gen_lock_never_stale).release();
            host_set_times(gen_lock_path(root + "/").c_str(), host_time() + ahead);
        });
}

} // namespace
