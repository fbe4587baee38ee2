// Names taken apart by both hosts' rules, and when two names are one file.
#include <filesystem>

#include "shared/genpath.h"
#include "support/child.h"

namespace {

constexpr host_path_rules posix = host_path_rules::posix;
constexpr host_path_rules windows = host_path_rules::windows;

TEST(genpath, names_are_taken_apart_by_the_rules_of_the_host) {
    static const struct {
        host_path_rules rules;
        bool absolute;
        const char *name, *directory, *last, *extension;
    } rows[] = {
        {posix, false, "", "", "", ""},
        {posix, false, "a.out", "", "a.out", "out"},
        {posix, true, "/a.out", "/", "a.out", "out"},
        {posix, false, "x/y.d/a", "x/y.d", "a", ""},
        {posix, true, "//a", "/", "a", ""},
        {posix, false, "x/", "x", "", ""},
        {posix, false, "x/.rc", "x", ".rc", "rc"},
        {posix, false, "x/a.b.", "x", "a.b.", ""},
        {posix, false, "C:\\x\\a.out", "", "C:\\x\\a.out", "out"},
        {posix, false, "C:/a", "C:", "a", ""},
        {windows, false, "a.out", "", "a.out", "out"},
        {windows, false, "C:a.out", "C:", "a.out", "out"},
        {windows, false, "C:", "C:", "", ""},
        {windows, true, "C:\\a.out", "C:\\", "a.out", "out"},
        {windows, true, "C:/x\\a.out", "C:/x", "a.out", "out"},
        {windows, false, "x\\y/a", "x\\y", "a", ""},
        {windows, true, "\\a", "\\", "a", ""},
        {windows, false, "a.out:s", "", "a.out:s", "out:s"},
        {windows, false, "1:a", "", "1:a", ""},
    };
    for (const auto& row : rows) {
        const std::string which = std::string(row.name) + (row.rules == posix ? " /" : " \\");
        EXPECT_EQ(gen_directory_part(row.name, row.rules), row.directory) << which;
        EXPECT_EQ(gen_last_component(row.name, row.rules), row.last) << which;
        EXPECT_EQ(gen_extension(row.name, row.rules), row.extension) << which;
        EXPECT_EQ(gen_is_absolute(row.name, row.rules), row.absolute) << which;
    }
}

TEST(genpath, joining_adds_a_separator_only_where_one_is_missing) {
    static const struct {
        host_path_rules rules;
        const char *directory, *joined;
    } rows[] = {
        {posix, "", "a"},           {posix, "x", "x/a"},        {posix, "/", "/a"},
        {posix, "x/", "x/a"},       {posix, "x\\", "x\\/a"},    {posix, "C:", "C:/a"},
        {windows, "", "a"},         {windows, "x", "x\\a"},     {windows, "x/", "x/a"},
        {windows, "C:", "C:a"},     {windows, "C:\\", "C:\\a"}, {windows, "x:", "x:a"},
        {windows, "xy:", "xy:\\a"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(gen_join(row.directory, "a", row.rules, row.rules == posix ? '/' : '\\'),
                  row.joined);
}

using genpath_files = placed_test;

TEST_F(genpath_files, two_names_of_one_file) {
    std::filesystem::create_directory("d");
    place.put("d/app", "x");
    place.put("copy", "x");
    std::filesystem::create_hard_link("d/app", "hard");
    std::filesystem::create_symlink("d/app", "soft");
    std::filesystem::create_symlink("d", "e");
    static const struct {
        const char *a, *b;
        bool same;
    } rows[] = {
        {"d/app", "d/app", true},      {"d/app", "D/APP", true},   {"d/app", "./d//app", true},
        {"d/app", "d/../d/app", true}, {"d", "d/", true},          {"d/app", "app", false},
        {"d/app", "d/apq", false},     {"d/app", "copy", false},   {"d/app", "hard", true},
        {"d/app", "soft", true},       {"d/app", "e/app", true},   {"d/new", "d/new", true},
        {"d/new", "e/new", false},     {"d/new", "./d/NEW", true}, {"", "d", false},
        {"new", "new/", true},         {"[", "{", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(same_file_name(row.a, row.b), row.same) << row.a << ' ' << row.b;
        EXPECT_EQ(same_file_name(row.b, row.a), row.same) << row.b << ' ' << row.a;
    }
    EXPECT_TRUE(same_file_name("d/app", place.directory + "/D/app"));
    EXPECT_FALSE(same_file_name("\xC4@", "\xE4`")); // only ASCII letters have a case
}

} // namespace
