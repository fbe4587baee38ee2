// Names taken apart by both hosts' rules, when two names are one file, where the program is, and
// command lines.
#include <filesystem>
#include <tuple>
#include <unistd.h>

#include "shared/genchild.h"
#include "shared/gencmdline.h"
#include "shared/geninstall.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/genreplace.h"
#include "shared/genstart.h"
#include "support/child.h"

namespace {

namespace fs = std::filesystem;

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
        {windows, false, "z:a", "z:", "a", ""},
        {windows, true, "C:\\a.out", "C:\\", "a.out", "out"},
        {windows, true, "C:/x\\a.out", "C:/x", "a.out", "out"},
        {windows, true, "\\a", "\\", "a", ""},
        {windows, false, "1:a", "", "1:a", ""},
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
    EXPECT_EQ(gen_join("x/", "a", posix), "x/a");
    EXPECT_TRUE(gen_ends_with_ignoring_case(".ELF", ".elf"));
    EXPECT_FALSE(gen_ends_with_ignoring_case("elf", ".elf"));
}

TEST_F(genpath, plain_names_stay_in_their_directory_and_are_no_devices) {
    for (const char* name : {"a", "...", "a.b c", "com", "com10", "comx", "xpt1", "nulx", "xnul",
                             "conin", "\x80", "~"})
        EXPECT_TRUE(gen_is_plain_name(name)) << name;
    for (const char* name :
         {"", ".", "..", "a/b", "a\\b", "a:b", "\x1F", "\x7F", "CON", "prn", "aux.o", "Nul .x",
          "conin$", "conout$", "clock$", "com0", "COM9", "lpt1.a.b"})
        EXPECT_FALSE(gen_is_plain_name(name)) << name;
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
    EXPECT_TRUE(same_file_name("d/new", "./d/NEW"));
    EXPECT_TRUE(same_file_name("d/", "D"));
    EXPECT_EQ(gen_real_name("f"), linked ? "e/app" : "f");
}

// All in one child: the start changes the process.
TEST_F(genpath, name_and_install_directory_come_from_the_path_and_the_file_beside_the_program) {
    const fs::path module = host_module_file_name();
    const std::string tool = gen_join(place.directory, "tool"), home = host_home_directory();
    const std::string here = fs::absolute("/y").string();
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"/x/tool.EXE", "", "tool /x\n"},
        {"/x/a.exe.b", "", "a.exe.b /x\n"},
        {"./tool", "", module.stem().string() + " " + module.parent_path().string() + "\n"},
        {tool, "/opt//x/../../../y/\nnext", "tool " + here + "\n"},
        {tool, "rel/dir\r\n", "tool " + gen_join(place.directory, "rel/dir") + "\n"},
        {tool, "~/t", "tool " + gen_join(home, "t") + "\n"},
        {tool, "~t", "tool " + gen_join(place.directory, "~t") + "\n"},
        {tool, "~", "tool " + home + "\n"},
        {tool, "~/", "tool " + home + "\n"},
        {tool, "\n", "tool \n"},
    };
    const std::string on = "tool: info: Viewpathing support is ON ";
    const std::string off = "tool: info: Viewpathing support is OFF.\n", slow = on + "(SLOW).\n";
    const std::string illegal = "tool: error: Illegal viewpath option passed to gen_viewpathing\n";
    std::string expected;
    for (const auto& [path, redirection, text] : rows)
        expected += text;
    expected += illegal + off + slow + on + "(FAST).\n" + illegal + slow + off;
    const auto body = [&] {
        gen_program program;
        int argc = 1;
        const char* argv[] = {"", nullptr};
        const auto init = [&](const std::string& path, int mode) {
            gen_init(program, path.c_str(), argc, argv, {mode});
        };
        for (const auto& [path, redirection, text] : rows) {
            fs::remove(".redirect_host32");
            if (!redirection.empty())
                place.put(".redirect_host32", redirection);
            init(path, GEN_VIEWPATH_OFF);
            gen_install_dirs dirs = {program.gen_program_path};
            gen_eprintf("%s %s\n", gen_program_name(),
                        gen_getinstalldir(dirs, GEN_INSTALL_WHOLE).value_or("none").c_str());
        }
        set_variable("ORV_VP_DEBUG", "1");
        for (const int mode : {-1, 0, 1, 2, 3})
            init(tool, mode);
        set_variable("ORV_VP_SLOW", "1");
        init(tool, GEN_VIEWPATH_FAST);
        set_variable("ORV_VP_OFF", "1");
        init(tool, GEN_VIEWPATH_SLOW);
        exit(program.network_status);
    };
    expect_end(body, 0, expected);
}

TEST_F(genpath, a_directory_that_cannot_be_told_is_warned_of_once) {
    const auto body = [] {
        const std::string no_path;
        gen_install_dirs dirs = {no_path};
        for (const int type : {1, 5, 4, 3, 2})
            EXPECT_FALSE(gen_getinstalldir(dirs, type)) << type;
    };
    const std::string end = " returns NULL\n\tmost likely gen_init() was not called with the "
                            "correct argv[0] value\n";
    expect_text(body, "objtrim: warning: gen_getinstalldir(): Unsupported install type\n"
                      "objtrim: warning: gen_getprogdir(): for (null)" +
                          end + "objtrim: warning: gen_getinstalldir(): for (null)" + end);
}

// Only the installation as a whole is settled by the first look; parts wait until it is known what
// kind it is.
TEST_F(genpath, answers_are_kept_unless_the_installation_is_of_the_other_kind) {
    const std::string path = place.path("tool"), here(gen_last_component(place.directory));
    for (const bool kestrel : {false, true}) {
        if (kestrel)
            place.put(".rtos_is_kestrel", "");
        gen_install_dirs dirs = {path};
        std::string found;
        for (int round = 0; round < 2; ++round) {
            for (const int type : {GEN_INSTALL_WHOLE, GEN_INSTALL_TOOLS})
                found.append(gen_last_component(gen_getinstalldir(dirs, type).value())) += ";";
            place.put(".redirect_host32", "moved");
        }
        EXPECT_EQ(found, here + ";" + here + ";" + here + ";" + (kestrel ? "moved;" : here + ";"));
        fs::remove(".redirect_host32");
    }
}

TEST_F(genpath, command_lines_are_split_as_the_loader_and_the_runtime_do) {
    fs::create_directory("my");
    for (const char* file : {"my tool", "dir/a b.exe", "dir/c.x"})
        place.put(file, "");
    const std::tuple<std::string, std::string, words> rows[] = {
        {"", "", {}},
        {" \t", "", {}},
        {" none -x\t y", "none", {"-x", "y"}},
        {"my tool x", "my tool", {"x"}},          // a directory "my" is no program
        {"\"dir/a b\"x c", "dir/a b.exe", {"c"}}, // what sticks to it belongs to it
        {"\"no end", "no end", {}},
        {"p \"a b\" \"\" c\"d e\"f $`*", "p", {"a b", "", "cd ef", "$`*"}},
        {"p a\\\\b \"a\\\\\" \\\"b \"c", "p", {"a\\\\b", "a\\", "\"b", "c"}},
        {"p \"a\"\"b c\" d \\", "p", {"a\"b c", "d", "\\"}},
    };
    for (const auto& [line, program, arguments] : rows) {
        const gen_command command = gen_split_command_line(line);
        EXPECT_EQ(command.program, program) << line;
        EXPECT_EQ(command.arguments, arguments) << line;
    }
    const std::pair<const char*, int> programs[] = {
        {nullptr, -1},
        {"", -1},
        {"none", -1},
        {"none.x", -1},
        {"my", *host_program_suffix != '\0' ? -1 : 0},
        {"dir/a b", 1},
        {"dir/c.x", 1},
        {"my tool", *host_program_suffix != '\0' ? -1 : 1}};
    for (const auto& [path, answer] : programs)
        EXPECT_EQ(gen_can_exec(path), answer) << (path ? path : "null");
}

} // namespace
