// Start-up, install directories and children. What is kept for the life of a process is looked at
// in children of the test.
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "shared/gencmdline.h"
#include "shared/genout.h"
#include "shared/host.h"
#include "shared/indconfig.h"
#include "shared/indgeninit.h"
#include "shared/indgensys.h"
#include "support/child.h"

namespace {

using indgen = placed_test;

void start(const std::string& path, int viewpath_mode = GEN_VIEWPATH_OFF) {
    const char* argv[] = {path.c_str(), nullptr};
    int argc = 1;
    gen_init(path.c_str(), argc, argv, {viewpath_mode});
}

TEST_F(indgen, program_name_comes_from_an_absolute_path_or_the_host) {
    const std::string module = std::filesystem::read_symlink("/proc/self/exe").string();
    const std::string module_name = module.substr(module.rfind('/') + 1);
    const struct {
        std::string given, path, name;
    } rows[] = {
        {"/x/tool", "/x/tool", "tool"},          {"/x/tool.EXE", "/x/tool.EXE", "tool"},
        {"/x/a.exe.b", "/x/a.exe.b", "a.exe.b"}, {"tool", module, module_name},
        {"./tool.exe", module, module_name},     {"", module, module_name},
    };
    for (const auto& row : rows) {
        const auto name_twice = [&] {
            start("/earlier/name");
            start(row.given);
            fprintf(stderr, "%s %s", gen_program_path().c_str(), gen_program_name());
        };
        expect_text(name_twice, row.path + " " + row.name);
    }
}

TEST_F(indgen, viewpath_choice_is_reported_on_request) {
    static const struct {
        int mode;
        const char *variable, *text;
    } rows[] = {
        {0, "X", "t: info: Viewpathing support is OFF.\n"},
        {1, "X", "t: info: Viewpathing support is ON (SLOW).\n"},
        {1, "ORV_VP_OFF", "t: info: Viewpathing support is OFF.\n"},
        {2, "X", "t: info: Viewpathing support is ON (FAST).\n"},
        {2, "ORV_VP_SLOW", "t: info: Viewpathing support is ON (SLOW).\n"},
        {3, "X", "t: error: Illegal viewpath option passed to gen_viewpathing\n"},
    };
    for (const auto& row : rows) {
        const auto choose = [&] {
            setenv(row.variable, "", 1);
            setenv("ORV_VP_DEBUG", "", 1);
            start("/x/t", row.mode);
        };
        expect_text(choose, row.text);
    }
    expect_text([] { start("/x/t", GEN_VIEWPATH_SLOW); }, "");
}

TEST_F(indgen, directories_that_cannot_be_had_are_warned_of_once) {
    const auto ask = [] {
        for (int round = 0; round < 2; ++round)
            for (int type : {0, 1, 2, 3, 5, -1})
                EXPECT_EQ(gen_getinstalldir(type), std::nullopt);
        fputs(HasFailure() ? "failed" : "", stderr);
    };
    const std::string rest = "(): for (null) returns NULL\n"
                             "\tmost likely gen_init() was not called with the correct argv[0] "
                             "value\n";
    expect_text(ask, "objtrim: warning: gen_getinstalldir(): Unsupported install type\n"
                     "objtrim: warning: gen_getprogdir" +
                         rest + "objtrim: warning: gen_getinstalldir" + rest);
}

// The answers for the types given, one after the other, to a program in the directory.
void expect_installdirs(const std::string& directory, std::initializer_list<int> types,
                        const std::string& answers) {
    const auto ask = [&] {
        setenv("HOME", "/not/looked/at", 1);
        start(directory + "/tool");
        for (int type : types)
            fprintf(stderr, "%s ", gen_getinstalldir(type).value_or("nothing").c_str());
    };
    expect_text(ask, answers);
}

TEST_F(indgen, install_directory_follows_the_first_line_beside_the_program) {
    const std::string home = host_home_directory();
    const struct {
        std::string text, expected;
    } rows[] = {
        {"", ""},
        {"\nnext", ""},
        {"/opt//x/../y/\nnext", "/opt/y"},
        {"rel/dir\r\n", place.directory + "/rel/dir"},
        {"~", home},
        {"~/\n", home},
        {"~/t", home + "/t"},
        {"~t", place.directory + "/~t"},
    };
    for (const auto& row : rows) {
        place.put(".redirect_host32", row.text);
        expect_installdirs(place.directory, {2, 4, 2},
                           row.expected + " " + row.expected + " " + row.expected + " ");
    }
    std::filesystem::remove(".redirect_host32");
    ASSERT_EQ(mkfifo(".redirect_host32", 0600), 0); // not a file that can be read
    expect_installdirs(place.directory, {2, 3, 4},
                       place.directory + " " + place.directory + " " + place.directory + " ");
}

TEST_F(indgen, install_directory_is_kept_unless_marked) {
    for (bool marked : {false, true}) {
        std::filesystem::remove(".redirect_host32");
        if (marked)
            place.put(".rtos_is_kestrel", "");
        const auto ask = [&] {
            start(place.directory + "/tool");
            EXPECT_EQ(gen_getinstalldir(2), place.directory);
            EXPECT_EQ(gen_getinstalldir(4), place.directory);
            place.put(".redirect_host32", "/other");
            EXPECT_EQ(gen_getinstalldir(2), marked ? "/other" : place.directory);
            EXPECT_EQ(gen_getinstalldir(4), place.directory);
            fputs(HasFailure() ? "failed" : "", stderr);
        };
        expect_text(ask, "");
    }
}

TEST_F(indgen, programs_are_looked_for_with_and_without_suffix) {
    for (const char* file : {"a.exe", "b", "c.x", "e"})
        place.put(file, "");
    for (const char* directory : {"d", "e.exe", "f.exe", "g.d"})
        std::filesystem::create_directory(directory);
    place.put("g.d/b", "");
    static const struct {
        const char* path;
        int answer;
    } rows[] = {{"", -1}, {nullptr, -1}, {"a", 1}, {"b", 1},   {"c", -1},    {"c.x", 1},
                {"d", 0}, {"e", 1},      {"f", 0}, {"g.d", 0}, {"g.d/b", 1}, {"g.d/c", -1}};
    for (const auto& row : rows)
        EXPECT_EQ(gen_can_exec(row.path), row.answer) << (row.path ? row.path : "(null)");
}

TEST_F(indgen, command_lines_are_split_as_the_loader_and_the_runtime_do) {
    for (const char* directory : {"dir", "my"})
        std::filesystem::create_directory(directory);
    for (const char* file : {"my tool", "lbm.exe", "dir/a b.exe"})
        place.put(file, "");
    const struct {
        std::string line, program;
        std::vector<std::string> arguments;
    } rows[] = {
        {"", "", {}},
        {"  none", "none", {}},
        {"none -x\t y", "none", {"-x", "y"}},
        {"my tool x", "my tool", {"x"}}, // a directory "my" is no program
        {"lbm -rc", "lbm.exe", {"-rc"}},
        {"dir/a b c", "dir/a b.exe", {"c"}},
        {"\"dir/a b\" c", "dir/a b.exe", {"c"}},
        {"\"no\\\"x y", "no\\", {"y"}}, // no escapes there, and what sticks to it belongs to it
        {"\"no end", "no end", {}},
        {"p $HOME;`ls`*", "p", {"$HOME;`ls`*"}},
        {"p \"a b\" \"\" c\"d e\"f", "p", {"a b", "", "cd ef"}},
        {"p a\\b a\\\\b c\\", "p", {"a\\b", "a\\\\b", "c\\"}},
        {"p a\\\"b \"a\\\\\" b", "p", {"a\"b", "a\\", "b"}},
        {"p \"a\\\\\\\"b c\"", "p", {"a\\\"b c"}},
        {"p \"a\"\"b c\" d", "p", {"a\"b c", "d"}},
        {"p \"a b", "p", {"a b"}},
    };
    for (const auto& row : rows) {
        const gen_command command = gen_split_command_line(row.line);
        EXPECT_EQ(command.program, row.program) << row.line;
        EXPECT_EQ(command.arguments, row.arguments) << row.line;
    }
}

TEST_F(indgen, a_childs_status_says_how_it_ended) {
    static const struct {
        const char *line, *mode;
        int status;
    } rows[] = {
        {"/bin/sh -c \"exit 7\"", "", 7},
        {"/bin/sh -c \"kill -9 $$\"", "", 137},
        {"/bin/sh -c \"kill -PIPE $$\"", "", 141}, // ignored here, not there
        {"none x", "", 127},
        {"", "", 127},
        {"/bin/sh -c \"test -e /proc/$$/fd/0 && test -e /proc/$$/fd/2\"", nullptr, 0},
        {"/bin/sh -c \"for f in 0 1 2; do test -e /proc/$$/fd/$f && exit 0; done; exit 5\"", "q",
         5},
    };
    const auto run = [&] {
        start("/x/t");
        for (const auto& row : rows)
            EXPECT_EQ(gen_run(row.line, row.mode), row.status) << row.line;
        dup2(STDERR_FILENO, STDOUT_FILENO);
        printf("ours ");
        gen_run("/bin/sh -c \"echo theirs\"", "");
        fputs(HasFailure() ? "failed" : "", stderr);
    };
    expect_text(run, "ours theirs\n");
}

} // namespace
