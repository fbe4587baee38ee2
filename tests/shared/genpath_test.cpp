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
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"/x/tool.EXE", "", "tool /x"},
        {"/x/a.exe.b", "", "a.exe.b /x"},
        {"./tool", "", module.stem().string() + " " + module.parent_path().string()},
        {tool, "/opt//x/../../../y/\nnext", "tool " + fs::absolute("/y").string()},
        {tool, "rel/dir\r\n", "tool " + gen_join(place.directory, "rel/dir")},
        {tool, "~/t", "tool " + gen_join(home, "t")},
        {tool, "~t", "tool " + gen_join(place.directory, "~t")},
        {tool, "~", "tool " + home},
        {tool, "~/", "tool " + home},
        {tool, "\n", "tool "},
    };
    // As variables are set one after the other.
    const std::tuple<const char*, int, std::string> viewpaths[] = {
        {"ORV_VP_DEBUG", -1, "error: Illegal viewpath option passed to gen_viewpathing"},
        {"ORV_VP_DEBUG", 0, "info: Viewpathing support is OFF."},
        {"ORV_VP_DEBUG", 1, "info: Viewpathing support is ON (SLOW)."},
        {"ORV_VP_DEBUG", 2, "info: Viewpathing support is ON (FAST)."},
        {"ORV_VP_DEBUG", 3, "error: Illegal viewpath option passed to gen_viewpathing"},
        {"ORV_VP_SLOW", 2, "info: Viewpathing support is ON (SLOW)."},
        {"ORV_VP_OFF", 1, "info: Viewpathing support is OFF."},
    };
    std::string expected;
    for (const auto& [path, redirection, text] : rows)
        expected += text + "\n";
    for (const auto& [variable, mode, text] : viewpaths)
        expected += "tool: " + text + "\n";
    const auto body = [&] {
        gen_program program;
        int argc = 1;
        const char* argv[] = {"", nullptr};
        for (const auto& [path, redirection, text] : rows) {
            fs::remove(".redirect_host32");
            if (!redirection.empty())
                place.put(".redirect_host32", redirection);
            gen_init(program, path.c_str(), argc, argv, {GEN_VIEWPATH_OFF});
            gen_install_dirs dirs = {program.gen_program_path};
            gen_eprintf("%s %s\n", gen_program_name(),
                        gen_getinstalldir(dirs, GEN_INSTALL_WHOLE).value_or("none").c_str());
        }
        for (const auto& [variable, mode, text] : viewpaths) {
            set_variable(variable, "1");
            gen_init(program, tool.c_str(), argc, argv, {mode});
        }
        exit(program.network_status);
    };
    expect_end(body, 0, expected);
}

// Only the installation as a whole is settled by the first look; parts wait until it is known what
// kind it is. What cannot be told is warned of once.
TEST_F(genpath, answers_are_kept_unless_the_installation_is_of_the_other_kind) {
    const std::string path = place.path("tool"), no_path;
    const std::string here = std::string(gen_last_component(place.directory)) + ";";
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
        EXPECT_EQ(found, here + here + here + (kestrel ? "moved;" : here));
        fs::remove(".redirect_host32");
    }
    gen_install_dirs dirs = {no_path};
    const auto body = [&] {
        for (const int type : {1, 5, 4, 3, 2})
            EXPECT_FALSE(gen_getinstalldir(dirs, type)) << type;
    };
    const std::string warning = "objtrim: warning: gen_get";
    const std::string end =
        "dir(): for (null) returns NULL\n\tmost likely gen_init() was not called "
        "with the correct argv[0] value\n";
    expect_text(body, warning + "installdir(): Unsupported install type\n" + warning + "prog" +
                          end + warning + "install" + end);
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
