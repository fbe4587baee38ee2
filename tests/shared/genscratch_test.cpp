// Temporary names, lock files and scratch directories: what counts as taken, whose lock may be
// taken over, what is removed, and that nobody can lead us elsewhere.
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "shared/genlock.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/genscratch.h"
#include "support/child.h"
#include "support/coff_builder.h"

namespace {

namespace fs = std::filesystem;

const std::string dead = number(INT32_MAX, 4);
const std::string breaking = "objtrim: warning: Breaking lock ";

// What the lock files of this machine end in.
std::string here() {
    char tag[32];
    snprintf(tag, sizeof tag, "Disk%llx", static_cast<unsigned long long>(host_machine_id()));
    return number(strlen(tag), 4) + tag;
}

struct genscratch : placed_test {
    genscratch() { temp.input_directory = ""; }
    gen_scratch scratch = {temp};
    const std::string root = "ORVSD_" + host_user_name();
};

TEST_F(genscratch, only_dead_and_aged_locks_are_taken_over) {
    const std::string live = number(host_process_id(), 4), elsewhere = number(5, 4) + "Disk0";
    const std::string pid = std::to_string(host_process_id()), now = std::to_string(host_time());
    const struct {
        std::string content;
        int64_t age;
        bool taken;
        std::string said = {};    // up to where the clock may change it
        std::string second = "-"; // what is in "._rlock", if it is there
    } rows[] = {
        {live + here(), 50, false},
        {dead + here(), 0, true},
        {dead + here().substr(0, 4) + "DISK" + here().substr(8), 0, true},
        {number(UINT32_MAX, 4) + here(), 0, true},
        {dead + elsewhere, 50, false},
        {dead + number(here().size() - 3, 4) + here().substr(4), 50, false},
        {"", 50, false}, // is being written
        {"", 5000, true, breaking + "on p.lock. It is more than 100"},
        {dead + elsewhere, 5000, true, breaking + "from pid 2147483647, on p.lock. It is 500"},
        {live + here(), host_time() + 1000, true, // before 1970, which counts as 1970
         breaking + "from pid " + pid + ", on p.lock. It is " + now.substr(0, 6)},
        {dead + here(), 0, true, "", dead + here()}, // died as it removed another's lock
        {dead + here(), 0, false, "", live + here()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        place.put("p.lock", row.content);
        host_set_times("p.lock", host_time() - row.age);
        if (row.second != "-")
            place.put("p.lock._rlock", row.second);
        host_set_times("p.lock._rlock", host_time());
        const std::string said = said_by([&] {
            gen_lock_ptr lock = gen_lockfile("p", 0, 100);
            EXPECT_EQ(lock != nullptr, row.taken);
            EXPECT_TRUE(!lock || gen_unlock(std::move(lock)));
            EXPECT_EQ(errno, 0);
        });
        EXPECT_EQ(said.substr(0, row.said.size()), row.said);
        EXPECT_TRUE(said.ends_with(row.said.empty() ? "" : " seconds old.\n")) << said;
        EXPECT_EQ(said.empty(), row.said.empty()) << said;
        EXPECT_EQ(place.list().empty(), row.taken);
        host_remove_tree("p.lock._rlock");
    }
    bool is_hard[] = {true, false, true};
    fs::create_directory("dir.lock"); // which cannot be removed at any age
    EXPECT_FALSE(gen_lockfile("dir", 0, 100, &is_hard[0]));
    EXPECT_FALSE(gen_lockfile("none/p", gen_lock_wait_for_ever, 100, &is_hard[1]));
    const gen_lock_ptr lock = gen_lockfile("p:", 0, 100);
    EXPECT_TRUE(lock && host_name_taken("p_.lock"));
    EXPECT_FALSE(gen_lockfile("p/", 1, 100, &is_hard[2]));
    EXPECT_TRUE(!is_hard[0] && is_hard[1] && !is_hard[2]);
}

TEST_F(genscratch, directories_are_numbered_and_marked_and_cleaned) {
    const std::string mine = root + host_separator + std::to_string(host_process_id()) + "_";
    const auto body = [&] {
        place.put(root + "_.lock", "");
        host_set_times((root + "_.lock").c_str(), host_time() - 200);
        place.put(mine + "a_2/x", "", 0444);
        const mode_t mask = umask(020);
        errno = 77;
        const std::optional<std::string> made = gen_make_session_dir(scratch, "a", 0777);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(made, mine + "a_1");
        EXPECT_EQ(place.list(), words{root}); // the lock was taken and given back
        EXPECT_EQ(place.list(mine + "a_1"), words{"dont_delete"});
        EXPECT_EQ(place.state(mine + "a_1").mode, host_mode(0757));
        temp.input_directory = "none/"; // is not asked for again
        EXPECT_EQ(gen_make_session_dir(scratch, "a", 0777), mine + "a_3");
        temp.input_directory = "";
        place.put(mine + "a_4", ""); // which is no directory
        EXPECT_FALSE(gen_make_session_dir(scratch, "a", 0777));
        EXPECT_TRUE(gen_clean_session_dirs(scratch));
        EXPECT_EQ(place.list(), words());
        gen_make_session_dir(scratch, "a", 0777);
        EXPECT_EQ(place.state(root).mode, host_mode(0755));
        umask(mask);
    };
    expect_text(body, breaking + "on " + root + "_.lock. It is more than 100 seconds old.\n" +
                          "objtrim: error: Internal error: Temporary directory '" + mine +
                          "a_4' could not be created\n");
}

// In a child, for the variables.
TEST_F(genscratch, temporary_names_and_directories_are_the_first_usable_ones) {
    EXPECT_EQ(gen_temp_stem(1234, 1) + gen_temp_stem(UINT32_MAX, 0x3FF) + gen_temp_stem(0, 0x20) +
                  gen_temp_stem(0, 0x8000),
              "ov_000016i1.ov_3vvvvvvvv.ov_000000010.ov_00000001000.");
    EXPECT_EQ(gen_next_temp_counter(0xFFFFE), 0xFFFFFU);
    EXPECT_EQ(gen_next_temp_counter(0xFFFFF), 1U);
    place.put("file", "", 0755);
    for (const char* directory : {"tmp", "temp", "own", "d"})
        fs::create_directory(directory);
    const auto name_with = [](uint32_t counter, const char* extension) {
        return "d/" + gen_temp_stem(host_process_id(), counter) + extension;
    };
    const std::pair<const char*, std::string> rows[] = {// of TMP; TEMP is "temp"
                                                        {"tmp", "tmp tmp"},
                                                        {"file", "temp temp"},
                                                        {"", "temp temp"}};
    const auto body = [&] {
        for (const auto& [tmp, expected] : rows) {
            gen_temp_space space = {temp_counter};
            set_variable("TMP", tmp);
            set_variable("TEMP", "temp");
            const std::string first = gen_tmpdir(space);
            set_variable("TMP", "own");
            EXPECT_EQ(first + " " + gen_tmpdir(space), expected); // as before
        }
        set_variable("TMP", "none");
        set_variable("TEMP", "none");
        temp.input_directory.reset();
        EXPECT_EQ(gen_tmpdir(temp), host_separator == '/' ? "/tmp" : "\\");
        place.put(name_with(1, "b"), "");
        if (!make_link("nowhere", name_with(2, "c")))
            place.put(name_with(2, "c"), "");
        const std::string_view extensions[] = {"a", ".b", "c"};
        EXPECT_EQ(gen_temp_names(temp, "d/", extensions),
                  (words{name_with(3, "a"), name_with(3, "b"), name_with(3, "c")}));
        set_variable("BUILDER_TEMPORARY_NAME", "s/job"); // a dictated name gives way when taken
        EXPECT_EQ(gen_temp_name(temp, "", "t"), "s/job.t");
        place.put("s/job.t", "");
        EXPECT_EQ(gen_temp_name(temp, "", "t"), "s/4.t");
        set_variable("BUILDER_TEMPORARY_NAME", "new.");
        EXPECT_EQ(gen_temp_name(temp, "s", "t"), gen_join("s", "new.t"));
        exit(HasFailure() ? 1 : 0);
    };
    expect_end(body, 0, "");
}

} // namespace
