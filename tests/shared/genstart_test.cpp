// Start-up, the install directory and children. What is kept for the life of a process is looked at
// in children of the test.
#include <filesystem>
#include <tuple>
#include <unistd.h>

#include "shared/genchild.h"
#include "shared/gencmdline.h"
#include "shared/geninstall.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/genstart.h"
#include "shared/host.h"
#include "support/child.h"

namespace {

using genstart = placed_test;

// Started as `path`, a program takes this name and finds this install directory.
void expect_start(const std::string& path, const std::string& name, const std::string& directory) {
    const auto body = [&] {
        const char* argv[] = {path.c_str(), nullptr};
        int argc = 1;
        gen_program program;
        gen_init(program, argv[0], argc, argv, {GEN_VIEWPATH_OFF});
        gen_install_dirs dirs = {program.gen_program_path};
        const std::string found = gen_getinstalldir(dirs, 4).value_or("nothing");
        fprintf(stderr, "%s %s", gen_program_name(), found.c_str());
    };
    expect_text(body, name + " " + directory);
}

TEST_F(genstart, name_and_place_come_from_an_absolute_path_or_the_host) {
    const std::filesystem::path module = test_program();
    expect_start("/x/tool.EXE", "tool", "/x");
    expect_start("/x/a.exe.b", "a.exe.b", "/x");
    expect_start("./tool", module.stem().string(), module.parent_path().string());
}

TEST_F(genstart, install_directory_follows_the_first_line_beside_the_program) {
    const std::pair<std::string, std::string> rows[] = {
        {"/opt//x/../../../y/\nnext", std::filesystem::absolute("/y").string()},
        {"rel/dir\r\n", gen_join(place.directory, "rel/dir")},
        {"~/t", gen_join(host_home_directory(), "t")},
        {"~t", gen_join(place.directory, "~t")},
        {"~", host_home_directory()},
        {"\n", ""},
    };
    for (const auto& [text, expected] : rows) {
        place.put(".redirect_host32", text);
        expect_start(place.path("tool"), "tool", expected);
    }
}

TEST_F(genstart, a_directory_that_cannot_be_told_is_warned_of_once) {
    const auto body = [] {
        const std::string no_path;
        gen_install_dirs dirs = {no_path};
        for (int type : {1, 5, 4, 3, 2})
            EXPECT_FALSE(gen_getinstalldir(dirs, type));
        _exit(HasFailure() ? 1 : child_returned);
    };
    const std::string end = " returns NULL\n\tmost likely gen_init() was not called with the "
                            "correct argv[0] value\n";
    expect_text(body, "objtrim: warning: gen_getinstalldir(): Unsupported install type\n"
                      "objtrim: warning: gen_getprogdir(): for (null)" +
                          end + "objtrim: warning: gen_getinstalldir(): for (null)" + end);
}

// Only the installation as a whole is settled by the first look; parts wait until it is known what
// kind it is.
TEST_F(genstart, answers_are_kept_unless_the_installation_is_of_the_other_kind) {
    for (const bool kestrel : {false, true}) {
        if (kestrel)
            place.put(".rtos_is_kestrel", "");
        const auto body = [&] {
            const std::string path = place.path("tool");
            gen_install_dirs dirs = {path};
            for (int round = 0; round < 2; ++round) {
                for (int type : {4, 2})
                    fprintf(stderr, "%s;",
                            gen_last_component(gen_getinstalldir(dirs, type).value()).data());
                place.put(".redirect_host32", "moved");
            }
        };
        const std::string here(gen_last_component(place.directory));
        expect_text(body, here + ";" + here + ";" + here + ";" + (kestrel ? "moved;" : here + ";"));
        std::filesystem::remove(".redirect_host32");
    }
}

TEST_F(genstart, command_lines_are_split_as_the_loader_and_the_runtime_do) {
    std::filesystem::create_directory("my");
    for (const char* file : {"my tool", "dir/a b.exe"})
        place.put(file, "");
    const std::tuple<std::string, std::string, words> rows[] = {
        {"", "", {}},
        {"none -x\t y", "none", {"-x", "y"}},
        {"my tool x", "my tool", {"x"}},          // a directory "my" is no program
        {"\"dir/a b\"x c", "dir/a b.exe", {"c"}}, // what sticks to it belongs to it
        {"p \"a b\" \"\" c\"d e\"f $`*", "p", {"a b", "", "cd ef", "$`*"}},
        {"p a\\\\b \"a\\\\\" \\\"b \"c", "p", {"a\\\\b", "a\\", "\"b", "c"}},
        {"p \"a\"\"b c\" d", "p", {"a\"b c", "d"}},
    };
    for (const auto& [line, program, arguments] : rows) {
        const gen_command command = gen_split_command_line(line);
        EXPECT_EQ(command.program, program) << line;
        EXPECT_EQ(command.arguments, arguments) << line;
    }
    EXPECT_EQ(gen_can_exec("my tool"), *host_program_suffix ? -1 : 1);
}

} // namespace
