// Names: how both hosts' rules take them apart, where the program is, command lines; and what is
// only there for its name: whose lock files may be taken over, and scratch directories.
#include <sstream>
#include <sys/stat.h>
#include <tuple>

#include "shared/gencmdline.h"
#include "shared/geninstall.h"
#include "shared/genlock.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/genscratch.h"
#include "shared/genstart.h"
#include "support/child.h"
#include "support/coff_builder.h"

namespace {

namespace fs = std::filesystem;

constexpr host_path_rules posix = host_path_rules::posix, windows = host_path_rules::windows;

using genpath = placed_test;

TEST_F(genpath, names_are_taken_apart_and_joined_again_by_the_rules_of_the_host) {
    const std::tuple<host_path_rules, std::string, std::string> rows[] = {
        {posix, "/a.out", "/|a.out|out|absolute"},
        {posix, "x/y.d/a", "x/y.d|a||"},
        {posix, "C:\\x\\a.b.", "|C:\\x\\a.b.||"},
        {windows, "C:a.out", "C:|a.out|out|"},
        {windows, "z:\\a.out", "z:\\|a.out|out|absolute"},
        {windows, "C:/x\\a.out", "C:/x|a.out|out|absolute"},
        {windows, "\\a", "\\|a||absolute"},
        {windows, "[:a", "|[:a||"},
        {windows, "a.out:s", "|a.out:s|out:s|"},
    };
    for (const auto& [rules, name, parts] : rows) {
        const std::string directory(gen_directory_part(name, rules));
        const std::string last(gen_last_component(name, rules)), end(gen_extension(name, rules));
        const char* const root = gen_is_absolute(name, rules) ? "absolute" : "";
        EXPECT_EQ(directory + "|" + last + "|" + end + "|" + root, parts);
        EXPECT_EQ(gen_join(directory, last, rules, rules == posix ? '/' : '\\'), name);
    }
    words plain = split("a com com10 comx xpt1 nulx xnul \x80 ~ '' . .. a/b a\\b a:b \x1F \x7F CON "
                        "prn aux.o Nul.x conin$ conout$ clock$ com0 COM9 lpt1.a.b");
    plain.push_back("nul .o");
    std::erase_if(plain, [](const std::string& name) { return !gen_is_plain_name(name); });
    EXPECT_EQ(plain, split("a com com10 comx xpt1 nulx xnul \x80 ~"));
    const std::string stems = gen_temp_stem(1234, 1) + gen_temp_stem(UINT32_MAX, 0x3FF);
    EXPECT_EQ(stems + gen_temp_stem(0, 0x8000), "ov_000016i1.ov_3vvvvvvvv.ov_00000001000.");
    EXPECT_TRUE(gen_next_temp_counter(0xFFFFE) == 0xFFFFF && gen_next_temp_counter(0xFFFFF) == 1);
}

// In a child: the start changes the process.
TEST_F(genpath, what_a_program_is_called_and_where_it_is_installed) {
    const fs::path module = host_module_file_name();
    const std::string here = place.directory + host_separator, tool = here + "tool";
    const std::string home = host_home_directory();
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"/x/tool.EXE", "", "tool /x"},
        {"/x/a.exe.b", "", "a.exe.b /x"},
        {"./tool", "", module.stem().string() + " " + module.parent_path().string()},
        {tool, "/opt//x/../../../y/\nnext", "tool " + fs::absolute("/y").string()},
        {tool, "/opt/t\r\n", "tool " + fs::absolute("/opt/t").string()},
        {tool, "~/t", "tool " + gen_join(home, "t")},
        {tool, "~t", "tool " + here + "~t"},
        {tool, "~", "tool " + home},
        {tool, "\n", "tool "},
    };
    const auto body = [&] {
        gen_program program;
        int argc = 1;
        for (const auto& [path, redirection, text] : rows) {
            place.put(".redirect_host32", redirection);
            gen_init(program, path.c_str(), argc, nullptr, {GEN_VIEWPATH_OFF});
            gen_install_dirs dirs = {program.gen_program_path};
            const std::string found = gen_getinstalldir(dirs, GEN_INSTALL_WHOLE).value_or("none");
            EXPECT_EQ(gen_program_name() + (" " + found), text);
        }
        for (const char* const variable : {"ORV_VP_DEBUG", "ORV_VP_SLOW", "ORV_VP_OFF"}) {
            set_variable(variable, "1");
            gen_init(program, "/x", argc, nullptr, {});
        }
        exit(HasFailure());
    };
    const std::string unknown, slow = "x: info: Viewpathing support is ON (SLOW).\n";
    gen_install_dirs dirs = {unknown};
    const std::string end = "dir(): for (null) returns NULL\n\tmost likely gen_init() was not "
                            "called with the correct argv[0] value\n";
    expect_text([&] { gen_getinstalldir(dirs, GEN_INSTALL_WHOLE); },
                "objtrim: warning: gen_getprog" + end + "objtrim: warning: gen_getinstall" + end);
    expect_end(body, 0, slow + slow + "x: info: Viewpathing support is OFF.\n");
}

TEST_F(genpath, command_lines_are_split_as_the_loader_and_the_runtime_do) {
    fs::create_directory("my");
    place.put("my tool", "");
    place.put("dir/a b.exe", "");
    const std::pair<std::string, words> rows[] = {
        {" \t", {""}},
        {" none -x\t y", {"none", "-x", "y"}},
        {"my tool x", {"my tool", "x"}},          // a directory "my" is no program
        {"\"dir/a b\"x c", {"dir/a b.exe", "c"}}, // what sticks to it belongs to it
        {"p \"a b\" \"\" c\"d e\"f $`*", {"p", "a b", "", "cd ef", "$`*"}},
        {"p a\\\\b \"a\\\\\" \\\"b \"c", {"p", "a\\\\b", "a\\", "\"b", "c"}},
        {"p \"a\"\"b c\" d \\", {"p", "a\"b c", "d", "\\"}},
    };
    for (const auto& [line, parts] : rows) {
        gen_command command = gen_split_command_line(line);
        command.arguments.insert(command.arguments.begin(), command.program);
        EXPECT_EQ(command.arguments, parts) << line;
    }
}

const std::string breaking = "objtrim: warning: Breaking lock ";

TEST_F(genpath, only_dead_and_aged_locks_are_taken_over) {
    std::ostringstream machine;
    machine << "Disk" << std::hex << host_machine_id();
    const std::string tag = machine.str(), here = number(tag.size(), 4) + tag;
    const std::string dead = number(INT32_MAX, 4);
    const std::string live = number(host_process_id(), 4), elsewhere = number(5, 4) + "Disk0";
    const struct {
        std::string content;
        int64_t age;
        bool taken;
        std::string said = {};   // up to where the clock may change it
        std::string second = {}; // what is in "._rlock", if it is there
    } rows[] = {
        {live + here, 50, false},
        {dead + here, 0, true},
        {dead + number(tag.size(), 4) + "DISK" + tag.substr(4), 0, true},
        {number(UINT32_MAX, 4) + here, 0, true},
        {dead + elsewhere, 50, false},
        {dead + number(tag.size() + 1, 4) + tag, 50, false},
        {"", 50, false}, // is being written
        {"", 5000, true, breaking + "on p.lock. It is more than 100"},
        {dead + elsewhere, 5000, true, breaking + "from pid 2147483647, on p.lock. It is 500"},
        {dead + here, 0, true, "", dead + here}, // died as it removed another's lock
        {dead + here, 0, false, "", live + here},
    };
    for (const auto& row : rows) {
        place.put("p.lock", row.content);
        host_set_times("p.lock", host_time() - row.age);
        if (!row.second.empty())
            place.put("p.lock._rlock", row.second);
        host_set_times("p.lock._rlock", host_time());
        const std::string said = said_by([&] {
            EXPECT_EQ(gen_unlock(gen_lockfile("p", 0, 100)), row.taken) << "row " << &row - rows;
            EXPECT_EQ(errno, 0);
        });
        EXPECT_TRUE(row.said.empty()
                        ? said.empty()
                        : said.starts_with(row.said) && said.ends_with(" seconds old.\n"))
            << row.said << said;
        EXPECT_EQ(place.list().empty(), row.taken) << "row " << &row - rows;
        host_remove_tree("p.lock._rlock");
    }
    fs::create_directory("dir.lock"); // which cannot be removed at any age
    EXPECT_FALSE(gen_lockfile("dir", 0, 100) ||
                 gen_lockfile("none/p", gen_lock_wait_for_ever, 100));
    static std::string log;
    said_by([] {
        gen_sink().event_log = [](const char* from, const char* text) {
            log += std::string(from) + text + ";";
        };
        const gen_lock_ptr lock = gen_lockfile("p:", 0, 100);
        EXPECT_TRUE(lock && host_name_taken("p_.lock") && !gen_lockfile("p/", 1, 100));
        gen_error("text");
        gen_sink().event_log = nullptr;
    });
    EXPECT_EQ(log, "gen_lockfilelocked;gen_lockfilelock failed;errorobjtrim: error: text;");
}

TEST_F(genpath, scratch_directories_are_numbered_and_marked_and_cleaned) {
    temp.input_directory = "";
    gen_scratch scratch = {temp};
    const std::string root = "ORVSD_" + host_user_name(), lock = root + "_.lock";
    const std::string mine = root + host_separator + std::to_string(host_process_id()) + "_";
    const auto body = [&] {
        place.put(lock, "");
        host_set_times(lock.c_str(), host_time() - 200);
        const mode_t mask = umask(0);
        errno = 77;
        EXPECT_EQ(gen_make_session_dir(scratch, "a", 0777), mine + "a_1");
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(place.list(), words{root}); // the lock was taken and given back
        EXPECT_EQ(place.state(root).mode, host_mode(0755));
        EXPECT_EQ(place.list(mine + "a_1"), words{"dont_delete"});
        umask(mask);
        place.put(mine + "a_2/x", "", 0444);
        EXPECT_EQ(gen_make_session_dir(scratch, "a", 0777), mine + "a_3");
        place.put(mine + "a_4", ""); // which is no directory
        EXPECT_FALSE(gen_make_session_dir(scratch, "a", 0777));
        EXPECT_TRUE(gen_clean_session_dirs(scratch));
        EXPECT_EQ(place.list(), words());
    };
    expect_text(body, breaking + "on " + lock + ". It is more than 100 seconds old.\n" +
                          "objtrim: error: Internal error: Temporary directory '" + mine +
                          "a_4' could not be created\n");
}

} // namespace
