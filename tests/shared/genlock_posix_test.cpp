// Lock files: whose lock may be taken over, and that no two processes ever hold one.
//
// Not on Windows: processes are forked; host_win32_test has the locks of that host.
#include <cerrno>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

#include "shared/genlock.h"
#include "shared/genmessage.h"
#include "shared/host.h"
#include "support/child.h"
#include "support/coff_builder.h"

namespace {

const std::string dead = number(INT32_MAX, 4), none = "-", breaking = "warning: Breaking lock";

struct genlock : placed_test {
    genlock() {
        const gen_lock_ptr lock = gen_lockfile("p", 0, 0);
        here = place.get("p.lock").substr(4);
    }

    std::string here; // what a lock file of this machine ends in
};

TEST_F(genlock, only_dead_and_aged_locks_are_taken_over) {
    const std::string live = number(static_cast<uint64_t>(getpid()), 4);
    const std::string elsewhere = number(5, 4) + "Disk0";
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT); // it stays a zombie
    const struct {
        std::string content, second; // of the lock file and of "._rlock"
        int64_t age;
        int32_t stale_age;
        bool taken;
        std::string said = {}; // up to where the clock may change it
    } rows[] = {
        {live + here, none, 50, 100, false},
        {dead + here, none, 0, -1, true},
        {number(static_cast<uint64_t>(child), 4) + here, none, 0, -1, true},
        {dead + here.substr(0, 4) + "DISK" + here.substr(8), none, 0, -1, true},
        {number(0, 4) + here, none, 0, 100, true},
        {number(UINT32_MAX, 4) + here, none, 0, 100, true},
        {dead + elsewhere, none, 50, 100, false},
        {dead + number(UINT32_MAX, 4), none, 50, 100, false},
        {"", none, 50, 100, false}, // is being written
        {"", none, 5000, -1, false},
        {"", none, 5000, 100, true, breaking + " on p.lock. It is more than 100 seconds old.\n"},
        {dead + elsewhere, none, 5000, 100, true,
         breaking + " from pid 2147483647, on p.lock. It is 500"},
        {live + here, none, INT64_MAX - host_time(), 100, true, breaking + " from pid "},
        {dead + here, dead + here, 0, 100, true}, // died as it removed another's lock
        {dead + here, live + here, 0, 100, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        place.put("p.lock", row.content);
        host_set_times("p.lock", host_time() - row.age);
        if (row.second != none) {
            place.put("p.lock._rlock", row.second);
            host_set_times("p.lock._rlock", host_time());
        }
        errno = 0;
        testing::internal::CaptureStderr();
        gen_lock_ptr lock = gen_lockfile("p", 0, row.stale_age);
        EXPECT_EQ(lock != nullptr, row.taken);
        EXPECT_TRUE(!lock || gen_unlock(std::move(lock)));
        EXPECT_EQ(errno, 0);
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.substr(0, row.said.size()), row.said);
        EXPECT_EQ(said.empty(), row.said.empty());
        EXPECT_EQ(place.list().empty(), row.taken);
        host_remove_tree("p.lock._rlock");
    }
    waitpid(child, nullptr, 0);
}

TEST_F(genlock, what_stands_in_the_place_of_a_lock_is_never_followed) {
    place.put("target", dead + here);
    std::filesystem::create_symlink("target", "d_.lock");
    EXPECT_FALSE(gen_lockfile("d/", 0, 100));
    host_set_times("d_.lock", 1);
    gen_lock_ptr lock = gen_lockfile("d/", 0, 100);
    ASSERT_TRUE(lock);
    EXPECT_EQ(place.get("target"), dead + here);
    std::filesystem::rename("target", "d_.lock"); // ours was broken, and another holds one now
    EXPECT_TRUE(gen_unlock(std::move(lock)));
    EXPECT_EQ(place.list(), words{"d_.lock"});
}

TEST_F(genlock, failures_are_told_from_waiting) {
    static std::string events;
    gen_sink().event_log = [](const char* tag, const char* text) {
        events += std::string(tag) == "gen_lockfile" ? std::string(text) + "|" : "";
    };
    std::filesystem::create_directory("dir.lock"); // which cannot be removed at any age
    host_set_times("dir.lock", 1);
    bool is_hard[4];
    EXPECT_FALSE(gen_lockfile("dir", -1, 100, &is_hard[0]));
    EXPECT_FALSE(gen_lockfile("none/p", -1, 100, &is_hard[1]));
    const gen_lock_ptr lock = gen_lockfile("p", -1, 100, &is_hard[2]);
    EXPECT_FALSE(gen_lockfile("p", 1, 100, &is_hard[3]));
    gen_sink().event_log = nullptr;
    EXPECT_TRUE(is_hard[0] && is_hard[1] && !is_hard[2] && !is_hard[3]);
    EXPECT_EQ(events, "lock failed|CreateFile failed|lock failed|locked|lock failed|");
}

TEST_F(genlock, processes_take_turns_after_an_orphan) {
    place.put("p.lock", dead + here);
    place.put("count", "");
    expect_together(12, [&](int) {
        for (int turn = 0; turn < 3; ++turn) {
            const gen_lock_ptr lock = gen_lockfile("p", 60, 100);
            const std::string seen = place.get("count");
            usleep(500);
            place.put("count", seen + "x"); // lost if another does the same meanwhile
        }
        return true;
    });
    EXPECT_EQ(place.get("count"), std::string(36, 'x'));
    EXPECT_EQ(place.list(), words{"count"});
}

} // namespace
