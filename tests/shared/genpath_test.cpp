// Names taken apart by both hosts' rules, when two names are one file, where the program is, and
// command lines.
#include <filesystem>
#include <tuple>

#include "shared/gencmdline.h"
#include "shared/geninstall.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/genreplace.h"
#include "shared/genstart.h"
#include "support/child.h"

namespace {

namespace fs = std::filesystem;

constexpr host_path_rules posix = host_path_rules::posix, windows = host_path_rules::windows;

using genpath = placed_test;

TEST_F(genpath, names_are_taken_apart_and_joined_again_by_the_rules_of_the_host) {
    static const struct {
        host_path_rules rules;
        bool absolute;
        const char *name, *directory, *last, *extension;
    } rows[] = {
        {posix, true, "/a.out", "/", "a.out", "out"},
        {posix, false, "x/y.d/a", "x/y.d", "a", ""},
        {posix, false, "C:\\x\\a.b.", "", "C:\\x\\a.b.", ""},
        {windows, false, "C:a.out", "C:", "a.out", "out"},
        {windows, true, "z:\\a.out", "z:\\", "a.out", "out"},
        {windows, true, "C:/x\\a.out", "C:/x", "a.out", "out"},
        {windows, true, "\\a", "\\", "a", ""},
        {windows, false, "[:a", "", "[:a", ""},
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
    for (const std::string& name : split("a ... com com10 comx xpt1 nulx xnul conin \x80 ~"))
        EXPECT_TRUE(gen_is_plain_name(name)) << name;
    for (const std::string& name :
         split("'' . .. a/b a\\b a:b \x1F \x7F CON prn aux.o Nul.x conin$ conout$ clock$ com0 COM9 "
               "lpt1.a.b"))
        EXPECT_FALSE(gen_is_plain_name(name)) << name;
    EXPECT_FALSE(gen_is_plain_name("nul .o") || gen_ends_with_ignoring_case("elf", ".elf"));
    EXPECT_TRUE(gen_ends_with_ignoring_case(".ELF", ".elf"));
}

TEST_F(genpath, two_names_of_one_file) {
    place.put("d/app", "x");
    place.put("copy", "x");
    fs::create_hard_link("d/app", "hard");
    const bool linked = make_link("d", "e") && make_link("e/app", "f");
    for (const char* other : {"D/APP", "d/../d//app", "hard", linked ? "e/app" : "hard"})
        EXPECT_TRUE(same_file_name("d/app", other)) << other;
    for (const char* other : {"copy", "e/new", "d/apq"})
        EXPECT_FALSE(same_file_name("d/app", other)) << other;
    EXPECT_TRUE(same_file_name("d/new", "./d/NEW") && same_file_name("d/", "D"));
    EXPECT_EQ(gen_real_name("f"), linked ? "e/app" : "f");
}

// In a child: the start changes the process.
TEST_F(genpath, what_a_program_is_called_and_where_it_is_installed) {
    const fs::path module = host_module_file_name();
    const std::string here = place.directory + host_separator, home = host_home_directory();
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"/x/tool.EXE", "", "tool /x"},
        {"/x/a.exe.b", "", "a.exe.b /x"},
        {"./tool", "", module.stem().string() + " " + module.parent_path().string()},
        {here + "tool", "/opt//x/../../../y/\nnext", "tool " + fs::absolute("/y").string()},
        {here + "tool", "rel/dir\r\n", "tool " + here + "rel/dir"},
        {here + "tool", "~/t", "tool " + gen_join(home, "t")},
        {here + "tool", "~t", "tool " + here + "~t"},
        {here + "tool", "~", "tool " + home},
        {here + "tool", "\n", "tool "},
    };
    const auto body = [&] {
        gen_program program;
        int argc = 1;
        const char* argv[] = {"", nullptr};
        for (const auto& [path, redirection, text] : rows) {
            place.put(".redirect_host32", redirection);
            gen_init(program, path.c_str(), argc, argv, {GEN_VIEWPATH_OFF});
            gen_install_dirs dirs = {program.gen_program_path};
            const std::string found = gen_getinstalldir(dirs, GEN_INSTALL_WHOLE).value_or("none");
            EXPECT_EQ(gen_program_name() + (" " + found), text);
        }
        for (const char* variable : {"ORV_VP_DEBUG", "ORV_VP_SLOW", "ORV_VP_OFF"}) {
            set_variable(variable, "1");
            gen_init(program, "/x", argc, argv, {});
        }
        const std::string no_path;
        gen_install_dirs dirs = {no_path};
        EXPECT_FALSE(gen_getinstalldir(dirs, 2) || gen_getinstalldir(dirs, 4));
        exit(HasFailure() ? 1 : program.network_status);
    };
    const std::string slow = "x: info: Viewpathing support is ON (SLOW).\n";
    const std::string end = "dir(): for (null) returns NULL\n\tmost likely gen_init() was not "
                            "called with the correct argv[0] value\n";
    expect_end(body, 0,
               slow + slow + "x: info: Viewpathing support is OFF.\nx: warning: gen_getprog" + end +
                   "x: warning: gen_getinstall" + end);
}

TEST_F(genpath, command_lines_are_split_as_the_loader_and_the_runtime_do) {
    fs::create_directory("my");
    for (const char* file : {"my tool", "dir/a b.exe"})
        place.put(file, "");
    const std::tuple<std::string, std::string, words> rows[] = {
        {" \t", "", {}},
        {" none -x\t y", "none", {"-x", "y"}},
        {"my tool x", "my tool", {"x"}},          // a directory "my" is no program
        {"\"dir/a b\"x c", "dir/a b.exe", {"c"}}, // what sticks to it belongs to it
        {"p \"a b\" \"\" c\"d e\"f $`*", "p", {"a b", "", "cd ef", "$`*"}},
        {"p a\\\\b \"a\\\\\" \\\"b \"c", "p", {"a\\\\b", "a\\", "\"b", "c"}},
        {"p \"a\"\"b c\" d \\", "p", {"a\"b c", "d", "\\"}},
    };
    for (const auto& [line, program, arguments] : rows) {
        const gen_command command = gen_split_command_line(line);
        EXPECT_EQ(command.program, program) << line;
        EXPECT_EQ(command.arguments, arguments) << line;
    }
}

} // namespace
