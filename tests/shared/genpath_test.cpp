// Names taken apart by both hosts' rules, and when two names are one file.
#include <filesystem>

#include "shared/genpath.h"
#include "support/child.h"

namespace {

constexpr host_path_rules posix = host_path_rules::posix;
constexpr host_path_rules windows = host_path_rules::windows;

using genpath = placed_test;

TEST_F(genpath, names_are_taken_apart_and_joined_again_by_the_rules_of_the_host) {
    static const struct {
        host_path_rules rules;
        bool absolute;
        const char *name, *directory, *last, *extension;
    } rows[] = {
        {posix, true, "/a.out", "/", "a.out", "out"},
        {posix, false, "x/y.d/a", "x/y.d", "a", ""},
        {posix, false, "x/a.b.", "x", "a.b.", ""},
        {posix, false, "C:\\x\\a.out", "", "C:\\x\\a.out", "out"},
        {windows, false, "C:a.out", "C:", "a.out", "out"},
        {windows, true, "C:\\a.out", "C:\\", "a.out", "out"},
        {windows, true, "C:/x\\a.out", "C:/x", "a.out", "out"},
        {windows, false, "1:a", "", "1:a", ""},
        {windows, false, "a.out:s", "", "a.out:s", "out:s"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(gen_directory_part(row.name, row.rules), row.directory) << row.name;
        EXPECT_EQ(gen_last_component(row.name, row.rules), row.last) << row.name;
        EXPECT_EQ(gen_extension(row.name, row.rules), row.extension) << row.name;
        EXPECT_EQ(gen_is_absolute(row.name, row.rules), row.absolute) << row.name;
        const char separator = row.rules == posix ? '/' : '\\';
        EXPECT_EQ(gen_join(row.directory, row.last, row.rules, separator), row.name);
    }
    EXPECT_EQ(gen_join("x/", "a", posix), "x/a");
}

TEST_F(genpath, two_names_of_one_file) {
    place.put("d/app", "x");
    place.put("copy", "x");
    std::filesystem::create_hard_link("d/app", "hard");
    const bool linked = make_link("d", "e");
    for (const char* other : {"D/APP", "d/../d//app", "hard", linked ? "e/app" : "hard"})
        EXPECT_TRUE(same_file_name("d/app", other)) << other;
    for (const char* other : {"copy", "e/new", "d/apq"})
        EXPECT_FALSE(same_file_name("d/app", other)) << other;
    EXPECT_TRUE(same_file_name("d/new", "./d/NEW"));
}

} // namespace
