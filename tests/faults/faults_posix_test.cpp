// Every call of the system and of the allocator fails, in every kind of run: once, and from then
// on; signals come before every call; the disk is full at every size.
//
// Not on Windows: calls of the system are replaced as this host links, and signals are sent.
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "support/fault_scene.h"

namespace {

void strike_all(std::vector<fault_scene> scenes) {
    int runs = 0;
    for (fault_scene& scene : scenes)
        runs += scene.strike();
    std::printf("%d runs\n", runs);
}

TEST(faults, elf) {
    strike_all(elf_scenes());
}

TEST(faults, in_place) {
    strike_all(in_place_scenes());
}

TEST(faults, archive) {
    strike_all(archive_scenes());
}

// An interrupt also takes the unfinished result with it, which a kill leaves.
TEST(faults, signals) {
    std::vector<int> signals = {SIGKILL, SIGTERM};
    if (stress_factor() > 1)
        signals.insert(signals.end(), {SIGINT, SIGHUP});
    int runs = 0;
    for (fault_scene& scene : all_scenes())
        runs += scene.interrupt(signals);
    std::printf("%d runs\n", runs);
}

// The same at any moment, between calls and within them.
TEST(faults, signals_by_the_clock) {
    using clock = std::chrono::steady_clock;
    fault_scene scene = std::move(elf_scenes()[0]);
    scene.run_well();
    std::chrono::nanoseconds whole(0);
    const int rounds = 100 * stress_factor();
    int struck = 0;
    for (int i = -1; i < rounds; ++i) {
        for (const auto& [name, bytes] : scene.files)
            scene.place->put(name, bytes);
        const clock::time_point begin = clock::now();
        process started = start(scene.place->directory, OBJTRIM_PROGRAM, {"f"});
        if (i >= 0) {
            std::this_thread::sleep_for(whole * i / rounds);
            kill(started.id, i % 2 == 0 ? SIGKILL : SIGINT);
        }
        const run_result result = end_of(started);
        if (i < 0)
            whole = clock::now() - begin;
        struck += result.status != 0;
        EXPECT_EQ(scene.judge(result, result.status == 0 ? "" : i % 2 == 0 ? "9" : "2"), "");
    }
    std::printf("%d of %d met the signal\n", struck, rounds);
}

// From no room at all to enough for everything.
TEST(faults, a_limit_on_the_size_of_files) {
    for (fault_scene& scene : all_scenes()) {
        scene.run_well();
        size_t most = 4096;
        for (const auto& [name, bytes] : scene.after)
            most = std::max(most, bytes.size() + 1000);
        const size_t step = std::max<size_t>(most / (20 * static_cast<size_t>(stress_factor())), 1);
        int refused = 0;
        for (size_t size = 0; size < most; size += step) {
            const auto limit = [size] {
                const rlimit bounds = {size, size};
                setrlimit(RLIMIT_FSIZE, &bounds);
            };
            const run_result result = scene.run("", limit);
            refused += result.status != 0;
            EXPECT_EQ(scene.judge(result), "") << scene.line << " " << size;
            scene.expect_recovery("");
        }
        EXPECT_GT(refused, 0) << scene.line;
        EXPECT_EQ(scene.run().status, 0);
    }
}

TEST(faults, a_full_disk) {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "mounting is not allowed here";
    constexpr size_t page = 4096, pages = 256;
    for (fault_scene& scene : all_scenes()) {
        const char* const directory = scene.place->directory.c_str();
        if (mount("tmpfs", directory, "tmpfs", 0, "size=1m") != 0)
            GTEST_SKIP() << "mounting is not allowed here";
        scene.run_well();
        int refused = 0;
        for (size_t room = 0; room < 48; room += room < 8 || stress_factor() > 1 ? 1 : 5) {
            const auto fill = [room] {
                const int file = open("full", O_WRONLY | O_CREAT, 0600);
                const std::string bytes(page, 'x');
                size_t used = 0;
                while (used < pages && write(file, bytes.data(), page) == page)
                    ++used;
                if (ftruncate(file, static_cast<off_t>((used - std::min(used, room)) * page)) != 0)
                    _exit(1);
                close(file);
            };
            const run_result result = scene.run("", fill);
            std::filesystem::remove(scene.place->path("full"));
            refused += result.status != 0;
            EXPECT_EQ(scene.judge(result), "") << scene.line << " " << room;
            scene.expect_recovery("");
        }
        EXPECT_TRUE(refused > 0 || !scene.makes_files) << scene.line;
        EXPECT_EQ(scene.run().status, 0);
        umount2(directory, MNT_DETACH);
    }
}

} // namespace
