// The host on Windows: names in all their forms, files that others hold open, attributes, locks,
// processes, and how the program fares with them.
#include <filesystem>
#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

#include "shared/genchild.h"
#include "shared/genmessage.h"
#include "shared/genscratch.h"
#include "shared/genstart.h"
#include "shared/gentemp.h"
#include "shared/host.h"
#include "support/child.h"
#include "support/dnm_builder.h"
#include "support/elf_builder.h"

namespace {

using host_win32 = placed_test;

const std::string file = build_elf(sample_draft(elf_forms[0]));
const std::string stripped = build_stripped(sample_draft(elf_forms[0]), sample_removed);

// Opened as someone else may have it, who lets others read and write, but not replace it.
HANDLE hold(const char* name) {
    return CreateFileA(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                       OPEN_EXISTING, 0, nullptr);
}

DWORD WINAPI let_go_in_a_moment(void* handle) {
    Sleep(300);
    CloseHandle(handle);
    return 0;
}

TEST_F(host_win32, a_console_event_removes_unfinished_files) {
    static const char* const released = "done"; // by its address
    const auto body = [] {
        FreeConsole(); // events go to all that share one
        AllocConsole();
        host_start();
        for (const char* name : {released, "one", "two"}) {
            host_close(host_open(name, host_access::create));
            host_guard_file(name);
        }
        host_release_file(released);
        if (GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, 0))
            Sleep(10000); // it comes on a thread of its own
    };
    expect_end(body, static_cast<int>(STATUS_CONTROL_C_EXIT), "");
    EXPECT_EQ(place.list(), words{released});
}

TEST_F(host_win32, a_target_that_is_held_for_a_moment_is_replaced_all_the_same) {
    place.put("from", "new");
    place.put("to", "old");
    const HANDLE thread = CreateThread(nullptr, 0, let_go_in_a_moment, hold("to"), 0, nullptr);
    const ULONGLONG start = GetTickCount64();
    errno = 77;
    EXPECT_EQ(host_rename("from", "to"), 0);
    EXPECT_EQ(errno, 77);
    EXPECT_GE(GetTickCount64() - start, 200U); // not before
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    EXPECT_EQ(place.get("to"), "new");
}

TEST_F(host_win32, a_target_that_stays_held_is_a_fatal_end_after_a_second) {
    place.put("prog.elf", file);
    const HANDLE other = hold("prog.elf");
    const ULONGLONG start = GetTickCount64();
    const run_result result = place.trim("prog.elf");
    EXPECT_GE(GetTickCount64() - start, 1000U);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.substr(0, 31), "objtrim: fatal: can't rename ov");
    CloseHandle(other);
    EXPECT_EQ(place.get("prog.elf"), file);
}

TEST_F(host_win32, the_read_only_attribute_is_given_back_to_a_map) {
    place.put("prog.elf", file);
    place.put("prog.dnm", build_dnm(sample_dnm()), 0444);
    const file_state before = place.state("prog.dnm");
    EXPECT_EQ(before.mode, 0444U);
    EXPECT_EQ(place.trim("prog.elf").err, "");
    EXPECT_NE(place.state("prog.dnm").modified, before.modified);
    EXPECT_EQ(place.state("prog.dnm").mode, 0444U);
    host_set_mode("prog.dnm", 0644);
    EXPECT_EQ(place.state("prog.dnm").mode, 0644U);
}

TEST_F(host_win32, the_read_only_attribute_is_honoured) {
    place.put("prog.elf", file, 0444);
    place.put("new", "");
    if (const int opened = host_open("prog.elf", host_access::update); opened >= 0) {
        host_close(opened);
        host_set_mode("prog.elf", 0644);
        GTEST_SKIP() << "this user may write to files that are read-only";
    }
    const file_state before = place.state("prog.elf");
    EXPECT_EQ(place.trim("prog.elf").err, "objtrim: fatal: Unable to open executable 'prog.elf' "
                                          "for input: Permission denied\n");
    EXPECT_TRUE(place.state("prog.elf") == before);
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(host_rename("new", "prog.elf"), -1); // for good, so at once
    EXPECT_EQ(errno, EACCES);
    EXPECT_LT(GetTickCount64() - start, 900U);
    host_set_mode("prog.elf", 0644);
}

// Whatever the name, the temporary file is made beside the input: it is moved, never copied.
TEST_F(host_win32, names_in_every_form_lead_to_the_file) {
    const std::string drive = place.directory.substr(0, 2);
    const std::string rooted = place.directory.substr(2);
    std::string slashes = rooted;
    for (char& c : slashes)
        c = c == '\\' ? '/' : c;
    const std::string names[] = {"sub\\my prog.elf",
                                 "sub/my prog.elf",
                                 ".\\sub/..\\SUB\\MY Prog.ELF",
                                 drive + "sub\\my prog.elf",
                                 place.directory + "\\sub\\my prog.elf",
                                 rooted + "\\sub\\my prog.elf",
                                 drive + slashes + "/sub/my prog.elf",
                                 "\\\\?\\" + place.directory + "\\sub\\my prog.elf",
                                 "\\\\.\\" + place.directory + "\\sub\\my prog.elf"};
    for (const std::string& name : names) {
        place.put("sub/my prog.elf", file);
        EXPECT_EQ(place.trim("\"" + name + "\"").err, "") << name;
        EXPECT_EQ(difference(place.get("sub/my prog.elf"), stripped), "") << name;
        EXPECT_EQ(place.list("sub"), words{"my prog.elf"}) << name;
        place.put("sub/my prog.elf", file);
        EXPECT_EQ(place.trim("\"-o=" + name + "\" \"sub/../sub\\my prog.elf\"").err, "") << name;
        EXPECT_EQ(difference(place.get("sub/my prog.elf"), stripped), "") << name;
    }
    EXPECT_EQ(place.list(), words{"sub"});
}

TEST_F(host_win32, names_of_other_alphabets_and_as_long_as_can_be) {
    constexpr size_t longest = MAX_PATH - 1;
    std::string deep = place.directory;
    while (deep.size() < longest - 60) {
        deep += "\\" + std::string(std::min<size_t>(50, longest - 50 - deep.size()), 'd');
        EXPECT_EQ(host_make_directory(deep.c_str(), 0777), 0);
    }
    const std::string whole = deep + "\\" + std::string(longest - deep.size() - 1, 'n');
    for (const std::string& name : {std::string("\xC3\xA4 \xE2\x82\xAC.elf"), whole}) {
        const int made = host_open(name.c_str(), host_access::create);
        EXPECT_EQ(host_write_at(made, file.data(), file.size(), 0),
                  static_cast<int64_t>(file.size()));
        EXPECT_EQ(host_close(made), 0);
        EXPECT_EQ(place.trim("\"" + name + "\"").err, "") << name;
        const std::optional<host_status> status = host_status_of(name.c_str());
        EXPECT_EQ(status ? status->size : 0, stripped.size()) << name;
    }
    const std::string beyond = whole + std::string(20, 'n');
    EXPECT_EQ(place.trim(beyond).err, "objtrim: fatal: Unable to open executable '" + beyond +
                                          "' for input: File name too long\n");
    EXPECT_NE(place.trim("\xC3\xA4").err.find("'\xC3\xA4'"), std::string::npos);
}

TEST_F(host_win32, a_star_in_an_option_is_not_taken_for_files) {
    place.put("-r=.x", "");
    place.put("prog.elf", file);
    EXPECT_EQ(place.trim("-r=.* -x -bogus* prog.elf").err.substr(0, 56),
              "objtrim: warning: unrecognized option, -bogus* (ignored)");
}

TEST_F(host_win32, directories_are_listed_owned_and_removed_with_all_in_them) {
    for (const char* name : {"d/a", "d/sub/b"})
        place.put(name, "", 0444);
    EXPECT_TRUE(host_is_private_directory("d\\"));
    EXPECT_FALSE(host_is_private_directory("d\\a"));
    EXPECT_EQ(host_make_directory("d\\", 0755), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(host_remove_directory("d"), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_EQ(host_list_directory("d\\").value().size(), 2U);
    EXPECT_FALSE(host_list_directory("d\\a"));
    EXPECT_EQ(host_remove_tree("d"), 0);
    EXPECT_EQ(place.list(), words{});
}

TEST_F(host_win32, offsets_beyond_4_gib) {
    constexpr uint64_t place_of_table = (uint64_t{5} << 30) + 3;
    elf_draft draft = sample_draft(elf_forms[2]);
    draft.sections[5].name = ".debug";
    std::string bytes = build_elf(draft);
    const uint64_t table = get_field(bytes, field::e_shoff);
    const std::string headers = bytes.substr(table);
    set_field(bytes, field::e_shoff, place_of_table);
    place.put("prog.elf", bytes);
    const int handle = host_open("prog.elf", host_access::update);
    EXPECT_EQ(host_write_at(handle, headers.data(), headers.size(), place_of_table),
              static_cast<int64_t>(headers.size()));
    EXPECT_EQ(place.trim("-vxworks prog.elf").err, "");
    std::string after(headers.size(), '\0');
    EXPECT_EQ(host_read_at(handle, after.data(), after.size(), place_of_table),
              static_cast<int64_t>(after.size()));
    EXPECT_EQ(host_read_at(handle, after.data(), 1, place_of_table + after.size()), 0);
    EXPECT_EQ(host_close(handle), 0);
    std::string expected = bytes.substr(0, table) + headers;
    set_field(expected, field::e_shoff, table);
    set_field(expected, field::sh_size, 0, 6);
    EXPECT_TRUE(after == expected.substr(table));
    EXPECT_EQ(host_status_of("prog.elf")->size, place_of_table + headers.size());
    EXPECT_EQ(host_set_length("prog.elf", place_of_table), 0);
    EXPECT_EQ(host_status_of("prog.elf")->size, place_of_table);
}

TEST_F(host_win32, a_process_lives_until_it_ends) {
    EXPECT_FALSE(host_user_name().empty() || host_network_name().empty());
    EXPECT_EQ(host_machine_id(), host_machine_id());
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child = {};
    char line[] = "cmd /c pause";
    ASSERT_TRUE(CreateProcessA(nullptr, line, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                               nullptr, &startup, &child));
    EXPECT_TRUE(host_process_is_alive(child.dwProcessId));
    TerminateProcess(child.hProcess, 3);
    WaitForSingleObject(child.hProcess, INFINITE);
    EXPECT_FALSE(host_process_is_alive(child.dwProcessId));
    CloseHandle(child.hProcess);
    CloseHandle(child.hThread);
}

TEST_F(host_win32, a_child_has_our_streams_or_none_and_its_status_comes_back) {
    const std::string program =
        "\"" + std::filesystem::absolute(OBJTRIM_PROGRAM).string() + "\" none";
    const auto run = [&] {
        const int heard = gen_run(program.c_str(), ""), quiet = gen_run(program.c_str(), "q");
        gen_eprintf("%d %d %d", heard, quiet, gen_run("none x", ""));
        exit(0);
    };
    expect_end(run, 0,
               "objtrim: fatal: Unable to open executable 'none' for input: No such file "
               "or directory\n1 1 127");
}

} // namespace
