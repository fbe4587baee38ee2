// Runs to which bad things happen, and the rule that all of them keep: the file is the old one or
// the complete new one, the exit status tells, and what is left over is no obstacle to a later run.
// Every call of the system and of the allocator fails, once and from then on; signals come before
// every call; the disk is full at every size; runs are many at once, and neighbours prepare the
// names that a run will use.
//
// Not on Windows: calls of the system are replaced as this host links; signals, links, other users.
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <pwd.h>
#include <sched.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "shared/genlock.h"
#include "shared/gentemp.h"
#include "shared/host.h"
#include "support/ar_builder.h"
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

// Runs of one kind, on files that are as at first before each. Scratch files go to "scratch".
struct fault_scene {
    std::string line; // program and arguments
    std::map<std::string, std::string> files;
    std::string target = "f";          // what the run is to change
    words between = {};                // states of it that a run with status 1 may leave
    std::string struck = "objtrim";    // the program that the faults are for
    std::vector<size_t> in_place = {}; // sizes up to which a file is written anew before the rest

    std::unique_ptr<work_place> place = std::make_unique<work_place>();
    std::map<std::string, std::string> after = {}; // the files after a run without faults

    // One run; see faults.cpp for what a fault says.
    run_result run(const std::string& fault = "",
                   const std::function<void()>& prepare = nullptr) const {
        for (const auto& [name, bytes] : after)
            fs::remove(place->path(name));
        for (const auto& [name, bytes] : files)
            place->put(name, bytes);
        words arguments = split(line);
        const std::string program = OBJTRIM_FAULTY + arguments[0];
        arguments.erase(arguments.begin());
        const words settings = {"TMP=" + place->path("scratch"), "OBJTRIM_FAULT=" + fault,
                                "OBJTRIM_COUNT=" + (after.empty() ? place->path("count") : "")};
        process started = start(place->directory, program, arguments, settings, prepare);
        return end_of(started);
    }

    // A run that goes well. How many calls of each kind the struck program makes.
    std::map<std::string, unsigned> run_well() {
        after.clear();
        fs::create_directory(place->path("scratch"));
        const run_result result = run();
        EXPECT_EQ(result.status, 0) << line << result.err;
        std::istringstream text(place->get("count"));
        fs::remove(place->path("count"));
        std::map<std::string, unsigned> counts;
        std::string program, kind;
        for (unsigned count; text >> program >> kind >> count;)
            if (program == struck)
                counts[kind] = count;
        for (const std::string& name : place->list())
            if (name != "scratch")
                after[name] = place->get(name);
        EXPECT_NE(counts["host"], 0u) << line;
        EXPECT_TRUE(!files.contains(target) || after[target] != files[target]) << line;
        for (const size_t size : in_place)
            between.push_back(after[target].substr(0, size) +
                              files[target].substr(std::min(size, after[target].size())));
        return counts;
    }

    std::string judge_file(const std::string& name, const std::string& kind, int status) const {
        const bool is_map = name.ends_with(".dnm");
        const bool may_differ = kind == "times" || kind == "mode" || kind == "host";
        const auto now_is = [&](const std::string& bytes) {
            const std::string now = place->get(name);
            return may_differ ? without_dates(now) == without_dates(bytes) : now == bytes;
        };
        const bool is_old = now_is(files.contains(name) ? files.at(name) : "");
        if (now_is(after.at(name)))
            return "";
        if (status == 0) // a failed look at something passes for an expected "no"
            return kind == "status" && is_map && is_old ? "" : name + " is not complete; ";
        if (is_old || name == "out" || (is_map && now_is("")) ||
            (name == target && status != out_of_memory && std::ranges::any_of(between, now_is)))
            return "";
        return name + " is damaged; ";
    }

    // What is wrong with the outcome of a run, if anything. Removes what it left over. A kind that
    // is a number is that of a signal.
    std::string judge(const run_result& result, const std::string& kind = "") const {
        const int signal = atoi(kind.c_str());
        const bool is_own = line.starts_with(struck);
        std::ostringstream wrong;
        if (is_own && signal != 0        ? result.status != 128 + signal
            : is_own && kind == "memory" ? result.status != out_of_memory
                                         : result.status != 0 && result.status != 1)
            wrong << "ended with " << result.status << "; ";
        const auto says = [&](const char* text) {
            return result.err.find(text) != std::string::npos;
        };
        if (says("Sanitizer") || says("runtime error"))
            wrong << "sanitizer; ";
        if (signal == 0 && (result.status != 0) != (says("error: ") || says("fatal: ")))
            wrong << "status " << result.status << " does not fit what was said; ";
        for (const auto& [name, complete] : after)
            wrong << judge_file(name, kind, result.status);
        // Where no directory for scratch files can be found, it is this one.
        const bool with_results = signal == 0 || signal == SIGKILL;
        for (const std::string& name : place->list()) {
            if (files.contains(name) || after.contains(name) || name == "scratch")
                continue;
            if (!name.starts_with("ORVSD_") &&
                !(with_results && name.starts_with("ov_") && name.ends_with("tmp")))
                wrong << "left: " << name << "; ";
            fs::remove_all(place->path(name));
        }
        return wrong.str().empty() ? "" : wrong.str() + result.err.substr(0, 200);
    }

    // The outcome is allowed, and a later run goes well in spite of what is in the scratch
    // directory.
    void expect_rule(const run_result& result, const std::string& kind, const std::string& fault) {
        EXPECT_EQ(judge(result, kind), "") << line << " " << fault;
        if (fs::is_empty(place->path("scratch")))
            return;
        const run_result later = run();
        EXPECT_EQ(later.status, 0) << line << " " << fault << later.err;
        EXPECT_TRUE(place->get(target) == after[target]) << line << " " << fault;
        EXPECT_EQ(place->list("scratch"), words()) << line << " " << fault;
        fs::remove_all(place->path("scratch"));
        fs::create_directory(place->path("scratch"));
    }

    // Every fault of every kind, and each of the signals before every call; a selection in a short
    // run.
    void strike() {
        for (const auto& [kind, count] : run_well())
            for (const std::string mode : {"once", "from", "short", "again", "9", "15", "2", "1"}) {
                const bool is_transfer = mode == "short" || mode == "again", is_signal = mode < "a";
                if ((is_transfer && kind != "read" && kind != "write") ||
                    (is_signal && kind != "host") || (kind == "host" && mode == "once"))
                    continue;
                const unsigned wanted = mode == "once" || mode == "9" ? 40 : 12;
                const unsigned step = stress_factor() == 1 ? std::max(count / wanted, 1u) : 1;
                for (unsigned call = 1; call <= count && !testing::Test::HasFailure();
                     call += step) {
                    const std::string fault =
                        struck + ":" + kind + ":" + std::to_string(call) + ":" + mode;
                    const run_result result = run(fault);
                    expect_rule(result, is_signal ? mode : kind, fault);
                    EXPECT_TRUE(result.status == 0 || mode != "again") << line << " " << fault;
                }
            }
    }
};

// Of ELF files; of files that are changed in place, where first the headers are written, then the
// strings moved, and then what is left cut off; and of archives.
constexpr size_t first_in_place = 5, first_archive = 9, all = 12;

std::vector<fault_scene> scenes() {
    elf_draft draft;
    for (const char* name : {".text", ".debug_info", ".debug", ".data"}) // the last: by the host
        draft.sections.push_back(
            {.name = name, .content = filler(name == ".data"s ? 70000 : 0x48, 1)});
    const std::string elf = build_elf(draft);
    draft.sections.resize(2);
    const std::string member = build_elf(draft), stripped = build_stripped(draft, {".debug_info"});
    const auto with_symbols = [](uint16_t type) {
        symbol_draft symbols{.entries = "a lF .text; b gF .text 4; c gO .data; @.rel.text 3 1 b",
                             .elf = base_draft(elf_forms[1])};
        symbols.elf.type = type;
        return build_symbols(symbols);
    };
    // Of an archive any member may be the stripped one or the old one.
    const auto archive = [&](const std::string& one, const std::string& two) {
        return build_archive(OBJ_ARCHIVE, {{.name = "text/", .data = "text and text"},
                                           {.name = "one/", .data = one},
                                           {.name = "two/", .data = two}});
    };
    std::vector<fault_scene> list;
    list.push_back(
        {.line = "objtrim f", .files = {{"f", elf}, {"f.dnm", build_dnm(sample_dnm())}}});
    list.push_back({.line = "objtrim f", .files = {{"f", elf}}});
    list.push_back({.line = "objtrim -o=out f", .files = {{"f", elf}}, .target = "out"});
    list.push_back({.line = "objtrim -x -bl=a f", .files = {{"f", with_symbols(et::exec)}}});
    list.push_back(
        {.line = "objtrim -x -stripreloc -bl=a f", .files = {{"f", with_symbols(et::rel)}}});
    list.push_back({.line = "objtrim -vxworks f", .files = {{"f", elf}}, .in_place = {SIZE_MAX}});
    for (const built_file& file :
         {build_coff({}), build_coff({.lines = coff_draft::LINES_BEFORE}), build_pe({})})
        list.push_back({.line = "objtrim f",
                        .files = {{"f", file.bytes}},
                        .in_place = {file.symbols_at, SIZE_MAX}});
    for (const char* const program : {"objtrim", "lbm"})
        list.push_back({.line = "objtrim f",
                        .files = {{"f", archive(member, member)}},
                        .between = {archive(stripped, member), archive(member, stripped)},
                        .struck = program});
    list.push_back({.line = "lbm -rc f @list",
                    .files = {{"list", "one\ntwo\n"}, {"one", stripped}, {"two", stripped}},
                    .struck = "lbm"});
    return list;
}

void strike_all(size_t from, size_t to) {
    for (std::vector<fault_scene> list = scenes(); from < to; ++from)
        list[from].strike();
}

TEST(faults, of_elf_files) {
    strike_all(0, first_in_place);
}

TEST(faults, of_files_that_are_changed_in_place) {
    strike_all(first_in_place, first_archive);
}

TEST(faults, of_archives) {
    strike_all(first_archive, all);
}

// From no room at all to enough for everything.
TEST(faults, a_full_disk) {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "mounting is not allowed here";
    for (fault_scene& scene : scenes()) {
        const char* const directory = scene.place->directory.c_str();
        if (mount("tmpfs", directory, "tmpfs", 0, "size=1m") != 0)
            GTEST_SKIP() << "mounting is not allowed here";
        scene.run_well();
        int refused = 0;
        const size_t step = stress_factor() == 1 ? 3 : 1;
        for (size_t room = 0; room < 48; room += step) {
            const run_result result = scene.run("", [room] {
                struct statvfs disk;
                const int full = creat("full", 0600);
                if (statvfs(".", &disk) != 0 ||
                    posix_fallocate(full, 0, off_t((disk.f_bfree - room) * disk.f_bsize)) != 0)
                    _exit(126);
            });
            fs::remove(scene.place->path("full"));
            refused += result.status != 0;
            scene.expect_rule(result, "", "room for " + std::to_string(room));
        }
        EXPECT_TRUE(refused > 0 || !scene.in_place.empty()) << scene.line;
        EXPECT_EQ(scene.run().status, 0) << scene.line;
        umount2(directory, MNT_DETACH);
    }
}

// Each on a file of its own; or all on the same, where one that opened it before another replaced
// it may refuse, or find nothing to do.
TEST(company, many_runs_at_once) {
    constexpr int runs = 24;
    for (const size_t which : {size_t{1}, first_archive})
        for (int round = 0; round < 3 + stress_factor(); ++round) {
            fault_scene scene = std::move(scenes()[which]);
            scene.run_well();
            const work_place& place = *scene.place;
            const auto name = [&](int i) { return "f" + (round == 0 ? std::to_string(i) : ""); };
            std::vector<process> started;
            for (int i = 0; i < runs; ++i)
                place.put(name(i), scene.files["f"]);
            const words files = place.list();
            for (int i = 0; i < runs; ++i)
                started.push_back(start(place.directory, OBJTRIM_PROGRAM, {name(i)},
                                        {"TMP=" + place.path("scratch")}));
            int successes = 0;
            for (process& one : started)
                successes += end_of(one).status == 0;
            EXPECT_GE(successes, round == 0 ? runs : 1) << scene.line;
            for (int i = 0; i < runs; ++i)
                EXPECT_TRUE(place.get(name(i)) == scene.after["f"]) << scene.line << i;
            EXPECT_EQ(place.list(), files);
            EXPECT_EQ(place.list("scratch"), words());
        }
}

// The tool is run by a user without rights, its neighbour is root. Nothing that a prepared name
// leads to may be touched.
struct neighbours : testing::Test {
    void SetUp() override {
        user = geteuid() == 0 ? getpwnam("nobody") : nullptr;
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
    static constexpr int kinds = 6;

    // Runs a scene in a directory where everyone may make files but remove only his own. `prepare`
    // is called in the child that becomes the program, with the right to plant.
    void expect_unharmed(fault_scene&& scene, const std::string& said,
                         const std::function<void(const std::string&)>& prepare) {
        scene.run_well();
        work_place victims;
        victims.put("file", "precious", 0666);
        const file_state before = victims.state("file");
        chmod(victims.directory.c_str(), 0777);
        for (const char* directory : {"", "scratch"})
            chmod(scene.place->path(directory).c_str(), 01777);
        const run_result result = scene.run("", [&] {
            int failures = 0;
            for (const auto& [name, bytes] : scene.files)
                failures += chown(name.c_str(), user->pw_uid, user->pw_gid) != 0;
            umask(0);
            prepare(victims.directory);
            umask(022);
            if (failures != 0 || setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0)
                _exit(126);
        });
        if (result.status == 126)
            GTEST_SKIP() << "the other user cannot run the program";
        EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
        EXPECT_EQ(result.status == 0, said.empty()) << result.err;
        EXPECT_TRUE(scene.place->get("f") == (said.empty() ? scene.after : scene.files)["f"]);
        EXPECT_TRUE(victims.state("file") == before);
        EXPECT_EQ(victims.list(), words{"file"});
        fs::remove_all(scene.place->path("scratch"));
    }

    const passwd* user = nullptr;
};

TEST_F(neighbours, take_the_temporary_names) {
    std::vector<fault_scene> list = scenes();
    for (const size_t which : {size_t{0}, size_t{4}, first_archive})
        expect_unharmed(std::move(list[which]), "", [](const std::string& victims) {
            for (uint32_t i = 1; i <= kinds; ++i)
                for (const char* end : {"tmp", "dnmtmp"})
                    plant(static_cast<int>(i) - 1,
                          gen_temp_stem(static_cast<uint32_t>(getpid()), i) + end, victims);
        });
}

TEST_F(neighbours, take_the_names_of_scratch_directories_and_locks) {
    const std::string root = std::string("scratch/ORVSD_") + user->pw_name;
    for (int what = 0; what < kinds; ++what)
        for (const auto& [name, said] : {std::pair(root, "Could not find ORV user directory"),
                                         {root + "_.lock", "failed to strip file"},
                                         {root + "_.lock._rlock", ""}}) {
            SCOPED_TRACE(name + " " + std::to_string(what));
            expect_unharmed(std::move(scenes()[first_archive]), said,
                            [&](const std::string& victims) { plant(what, name, victims); });
        }
    // A live process of another user never lets go; its lock file may seem fresh for ever.
    const auto hold = [&] { gen_lockfile(root + "/", 0, gen_lock_never_stale).release(); };
    expect_unharmed(std::move(scenes()[first_archive]), "remove_stale_lock failed",
                    [&](const std::string&) { hold(); });
    expect_unharmed(std::move(scenes()[first_archive]), "is not this user's",
                    [&](const std::string&) {
                        hold();
                        host_set_times(gen_lock_path(root + "/").c_str(), host_time() + 1000000);
                    });
}

} // namespace
