// In company: many runs at once in one directory, and neighbours who prepare the names that a run
// will use.
//
// Not on Windows: forks, links and other users.
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shared/genlock.h"
#include "shared/gentemp.h"
#include "shared/host.h"
#include "support/fault_scene.h"

namespace {

namespace fs = std::filesystem;

// Files of its own for each run, whose names end in its number.
TEST(company, many_runs_at_once) {
    constexpr int runs = 64;
    for (fault_scene& scene : all_scenes()) {
        const bool is_strip = scene.line == "objtrim f" && scene.struck == "objtrim";
        if (!is_strip)
            continue;
        scene.run_well();
        const work_place& place = *scene.place;
        std::vector<process> started;
        for (int i = 0; i < runs; ++i)
            for (const auto& [name, bytes] : scene.files)
                place.put(std::to_string(i) + name, bytes);
        const size_t files = place.list().size();
        for (int i = 0; i < runs; ++i)
            started.push_back(start(place.directory, OBJTRIM_PROGRAM, {std::to_string(i) + "f"},
                                    {"TMP=" + place.path("scratch")}));
        for (int i = 0; i < runs; ++i) {
            const run_result result = end_of(started[static_cast<size_t>(i)]);
            EXPECT_EQ(result.status, 0) << result.err;
            for (const auto& [name, bytes] : scene.after)
                EXPECT_TRUE(place.get(std::to_string(i) + name) == bytes) << i << name;
        }
        EXPECT_EQ(place.list().size(), files);
        EXPECT_EQ(place.list("scratch"), words());
    }
}

// One that opened the file before another replaced it may refuse, or find nothing to do.
TEST(company, many_runs_on_the_same_file) {
    constexpr int runs = 16;
    for (auto* const scenes : {elf_scenes, archive_scenes}) {
        fault_scene scene = std::move(scenes().front());
        scene.files.erase("f.dnm");
        scene.run_well();
        for (int round = 0; round < 4 * stress_factor(); ++round) {
            scene.place->put("f", scene.files["f"]);
            std::vector<process> started;
            for (int i = 0; i < runs; ++i)
                started.push_back(start(scene.place->directory, OBJTRIM_PROGRAM, {"f"},
                                        {"TMP=" + scene.place->path("scratch")}));
            int successes = 0;
            for (process& one : started)
                successes += end_of(one).status == 0;
            EXPECT_GT(successes, 0);
            EXPECT_EQ(scene.place->get("f"), scene.after["f"]);
            EXPECT_EQ(scene.place->list(), split("f scratch"));
            EXPECT_EQ(scene.place->list("scratch"), words());
        }
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
        ASSERT_EQ(what < 3    ? symlink(targets[what].c_str(), text)
                  : what == 3 ? close(creat(text, 0666))
                  : what == 4 ? mkdir(text, 0777)
                              : mkfifo(text, 0666),
                  0)
            << name;
    }
    static constexpr int kinds = 6;

    // Runs a scene in a directory where everyone may make files but remove only his own. `prepare`
    // is called in the child that becomes the program, with the right to plant.
    void expect_unharmed(fault_scene& scene, const std::function<void(const std::string&)>& prepare,
                         const std::string& said) {
        scene.run_well();
        work_place victims;
        victims.put("file", "precious");
        const file_state before = victims.state("file");
        chmod(victims.directory.c_str(), 0777);
        chmod(victims.path("file").c_str(), 0666);
        for (const char* directory : {"", "scratch"})
            chmod(scene.place->path(directory).c_str(), 01777);
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
        EXPECT_EQ(scene.place->get("f"), result.status == 0 ? scene.after["f"] : scene.files["f"]);
        EXPECT_EQ(victims.get("file"), before.bytes);
        EXPECT_EQ(victims.state("file").modified, before.modified);
        EXPECT_EQ(victims.list(), words{"file"});
        fs::remove_all(scene.place->path("scratch"));
    }

    const passwd* user = nullptr;
};

TEST_F(neighbours, take_the_temporary_names) {
    for (auto* const scenes : {elf_scenes, archive_scenes})
        for (fault_scene& scene : scenes()) {
            if (scene.target != "f" || scene.line.find("vxworks") != std::string::npos)
                continue;
            const auto prepare = [](const std::string& victims) {
                for (uint32_t i = 1; i <= kinds; ++i)
                    for (const char* end : {"tmp", "dnmtmp"})
                        plant(static_cast<int>(i) - 1,
                              gen_temp_stem(static_cast<uint32_t>(getpid()), i) + end, victims);
            };
            expect_unharmed(scene, prepare, "");
        }
}

TEST_F(neighbours, take_the_names_of_scratch_directories_and_locks) {
    const std::string root = std::string("scratch/ORVSD_") + user->pw_name;
    const std::string taken = "Could not find ORV user directory", failed = "failed to strip file";
    for (int what = 0; what < kinds; ++what)
        for (const auto& row : {std::pair(root, taken),
                                {root + "_.lock", failed},
                                {root + "_.lock._rlock", std::string()}}) {
            SCOPED_TRACE(row.first + " " + std::to_string(what));
            fault_scene scene = std::move(archive_scenes().front());
            const auto prepare = [&](const std::string& victims) {
                plant(what, row.first, victims);
            };
            expect_unharmed(scene, prepare, row.second);
        }
}

// A live process of another user never lets go; its lock file may seem fresh for ever.
TEST_F(neighbours, hold_a_lock_for_ever) {
    for (const bool stays_fresh : {false, true}) {
        fault_scene scene = std::move(archive_scenes().front());
        const std::string root = scene.place->path("scratch/ORVSD_") + user->pw_name + "/";
        fs::create_directory(scene.place->path("scratch"));
        const auto hold = [&](const std::string&) {
            gen_lockfile(root, 0, gen_lock_never_stale).release();
            if (stays_fresh)
                host_set_times(gen_lock_path(root).c_str(), host_time() + 1000000);
        };
        expect_unharmed(scene, hold,
                        stays_fresh ? "is not this user's" : "remove_stale_lock failed");
    }
}

} // namespace
