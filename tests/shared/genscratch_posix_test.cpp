// Scratch directories: what is made, what is removed, and that nobody can lead us elsewhere. The
// roots are kept for the whole run, so each case has a process of its own.
//
// Not on Windows: links and forks; host_win32_test has the directories of that host.
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "shared/genscratch.h"
#include "shared/gentemp.h"
#include "shared/host.h"
#include "support/child.h"

namespace {

namespace fs = std::filesystem;

struct genscratch : placed_test {
    genscratch() { temp.input_directory = ""; }
    // The case, which works below the current directory, ends well and has said the text.
    static void expect_said(const std::string& text, const std::function<void()>& body) {
        const auto checked = [&] {
            body();
            _exit(HasFailure());
        };
        EXPECT_EQ(run_child(checked), child_end(0, text));
    }
    gen_scratch scratch = {temp};
    std::string root = "ORVSD_" + host_user_name();
};

TEST_F(genscratch, directories_are_numbered_and_marked_and_cleaned) {
    place.put(root + "_.lock", "");
    host_set_times((root + "_.lock").c_str(), host_time() - 200);
    expect_said("objtrim: warning: Breaking lock on " + root +
                    "_.lock. It is more than 100 seconds old.\n",
                [&] {
                    const std::string mine = root + "/" + std::to_string(getpid()) + "_";
                    fs::create_directories(mine + "a_2");
                    umask(020);
                    errno = 77;
                    EXPECT_EQ(gen_make_session_dir(scratch, "a", 0777), mine + "a_1");
                    EXPECT_EQ(place.list(), words{root}); // the lock was taken and given back
                    temp.input_directory = "none/";       // is not asked for again
                    EXPECT_EQ(gen_make_session_dir(scratch, "a", 0777), mine + "a_3");
                    EXPECT_EQ(gen_make_session_dir(scratch, nullptr, 0700), mine + "4");
                    EXPECT_EQ(errno, 77);
                    EXPECT_EQ(place.list(mine + "a_1"), words{"dont_delete"});
                    EXPECT_EQ(place.state(mine + "a_1").mode, 0757u);
                    temp.input_directory = "";
                    place.put(mine + "a_5", ""); // which is no directory
                    testing::internal::CaptureStderr();
                    EXPECT_FALSE(gen_make_session_dir(scratch, "a", 0777));
                    EXPECT_EQ(testing::internal::GetCapturedStderr(),
                              "objtrim: error: Internal error: Temporary directory '" + mine +
                                  "a_5' could not be created\n");
                    EXPECT_TRUE(gen_clean_session_dirs(scratch));
                    EXPECT_EQ(place.list(), words());
                    gen_make_session_dir(scratch, "a", 0777);
                    EXPECT_EQ(place.state(root).mode, 0755u);
                });
}

TEST_F(genscratch, a_root_that_others_prepared_is_not_used) {
    fs::create_directories("other/0_x");
    const std::function<bool()> plants[] = {
        [&] { return symlink("other", root.c_str()) == 0; },
        [&] { return symlink("nowhere", root.c_str()) == 0; },
        [&] { return place.put(root, ""), true; },
        [&] { return mkdir(root.c_str(), 0) == 0 && chmod(root.c_str(), 0775) == 0; },
        [&] { return mkdir(root.c_str(), 0) == 0 && chmod(root.c_str(), 0757) == 0; },
        // Only the superuser can give a directory away.
        [&] { return mkdir(root.c_str(), 0700) == 0 && chown(root.c_str(), 1, 1) == 0; },
    };
    for (const std::function<bool()>& plant : plants) {
        if (plant())
            expect_said("objtrim: error: Internal error: Could not find ORV user directory.\n",
                        [&] {
                            EXPECT_FALSE(gen_make_session_dir(scratch, "a", 0777));
                            EXPECT_TRUE(gen_clean_session_dirs(scratch));
                        });
        EXPECT_TRUE(fs::exists("other/0_x") && host_name_taken(root.c_str()));
        fs::remove(root);
    }
}

TEST_F(genscratch, only_what_belongs_to_the_dead_is_removed) {
    const std::string live = std::to_string(getpid()); // the parent of who cleans
    std::string deep = "0_deep";                       // deeper than removal goes
    for (int depth = 0; depth < 300; ++depth)
        deep += "/d";
    const words kept = {
        live + "_a_1/f",  "PID_" + live + "_x/f",      live + ".lock",         deep + "/f",
        "DATA_PID_0_x/f", "0_b/ALTERNATE_PID_" + live, "0_c/ALTERNATE_PID_1_x"};
    const words gone = {"0_d/e/f/g", "-1_x/f", "99999999999_x/f", "_x/f",       "x",
                        "PID_0_x/f", "x_y",    "0_x.lock",        "0_e/PID_1/f"};
    for (const words& group : {kept, gone, words{"../other/f"}})
        for (const std::string& name : group) {
            fs::create_directories((fs::path(root) / name).parent_path());
            place.put(root + "/" + name, "");
        }
    fs::create_directory_symlink("../other", root + "/0_link");
    fs::create_directory_symlink("../../other", root + "/0_d/link");
    expect_said("", [&] {
        EXPECT_TRUE(gen_clean_session_dirs(scratch));
        EXPECT_FALSE(gen_clean_deletable_dir("") || gen_clean_deletable_dir("/"));
    });
    EXPECT_EQ(place.list(root).size(), kept.size());
    for (const std::string& name : kept)
        EXPECT_TRUE(name.starts_with(deep) || fs::exists(root + "/" + name)) << name;
    EXPECT_EQ(place.list("other"), words{"f"});
}

} // namespace
