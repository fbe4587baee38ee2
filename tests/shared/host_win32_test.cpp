// The host on Windows: names in all their forms, files that others hold open, attributes, and what
// becomes of children and interrupts.
#include <algorithm>
#include <filesystem>
#include <windows.h>

#include "shared/genchild.h"
#include "shared/genmessage.h"
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
        _exit(0);
    };
    int status = -1;
    const auto is_noted = [&](int end) {
        status = end;
        return true;
    };
    EXPECT_EXIT(body(), is_noted, "");
    if (status == 0)
        GTEST_SKIP() << "there is no console to be had";
    EXPECT_EQ(status, static_cast<int>(STATUS_CONTROL_C_EXIT));
    EXPECT_EQ(place.list(), words{released});
}

TEST_F(host_win32, a_target_that_is_held_is_waited_for_a_second) {
    place.put("from", "new");
    place.put("to", "old");
    const HANDLE thread = CreateThread(nullptr, 0, let_go_in_a_moment, hold("to"), 0, nullptr);
    ULONGLONG start = GetTickCount64();
    errno = 77;
    EXPECT_EQ(host_rename("from", "to"), 0);
    EXPECT_EQ(errno, 77);
    EXPECT_GE(GetTickCount64() - start, 200U); // not before
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    EXPECT_EQ(place.get("to"), "new");

    place.put("prog.elf", file);
    const HANDLE other = hold("prog.elf");
    start = GetTickCount64();
    const run_result result = place.trim("prog.elf");
    EXPECT_GE(GetTickCount64() - start, 1000U);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.substr(0, 31), "objtrim: fatal: can't rename ov");
    CloseHandle(other);
    EXPECT_EQ(place.get("prog.elf"), file);
    std::filesystem::create_directory("directory");
    start = GetTickCount64();
    EXPECT_EQ(host_rename("to", "directory"), -1); // for good, so at once
    EXPECT_EQ(errno, EACCES);
    EXPECT_LT(GetTickCount64() - start, 900U);
}

TEST_F(host_win32, the_read_only_attribute_is_given_back_to_a_map) {
    place.put("prog.elf", file);
    place.put("prog.dnm", build_dnm(sample_dnm()), 0444);
    const file_state before = place.state("prog.dnm");
    EXPECT_EQ(before.mode, 0444U);
    EXPECT_EQ(place.trim("prog.elf").err, "");
    EXPECT_NE(place.state("prog.dnm").modified, before.modified);
    EXPECT_EQ(place.state("prog.dnm").mode, 0444U);
    EXPECT_EQ(host_remove_tree("prog.dnm"), 0);
}

// Whatever the name, the temporary file is made beside the input: it is moved, never copied.
TEST_F(host_win32, names_in_every_form_lead_to_the_file) {
    const std::string name = "sub\\my prog.elf", here = place.directory + "\\";
    const std::string drive = here.substr(0, 2), rooted = here.substr(2) + name;
    std::string slashes = rooted;
    std::ranges::replace(slashes, '\\', '/');
    for (const std::string& form :
         {name, std::string("sub/my prog.elf"), drive + name, here + name,
          std::string(".\\sub/..\\SUB\\MY Prog.ELF"), rooted, drive + slashes,
          "\\\\?\\" + here + name, "\\\\.\\" + here + name})
        for (const std::string& line :
             {"\"" + form + "\"", "\"-o=" + form + "\" \"sub/../sub\\my prog.elf\""}) {
            place.put("sub/my prog.elf", file);
            place.put("-r=.x", ""); // which a star in an option is not taken for
            EXPECT_EQ(place.trim("-r=.none* " + line).err, "") << line;
            EXPECT_EQ(difference(place.get("sub/my prog.elf"), stripped), "") << line;
            EXPECT_EQ(place.list("sub"), words{"my prog.elf"}) << line;
        }
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
        EXPECT_GT(host_write_at(made, file.data(), file.size(), 0), 0);
        EXPECT_EQ(host_close(made), 0);
        EXPECT_EQ(place.trim("\"" + name + "\"").err, "") << name;
        EXPECT_EQ(host_status_of(name.c_str()).value().size, stripped.size()) << name;
    }
    const std::string beyond = whole + std::string(20, 'n');
    EXPECT_EQ(place.trim(beyond).err, "objtrim: fatal: Unable to open executable '" + beyond +
                                          "' for input: File name too long\n");
}

TEST_F(host_win32, offsets_beyond_4_gib) {
    constexpr uint64_t distant = (uint64_t{5} << 30) + 3;
    char letter = '\0';
    const int handle = host_open("f", host_access::create_exclusive_update);
    EXPECT_EQ(host_write_at(handle, "abc", 3, distant), 3);
    EXPECT_EQ(host_read_at(handle, &letter, 1, distant + 1), 1);
    EXPECT_EQ(letter, 'b');
    EXPECT_EQ(host_close(handle), 0);
    EXPECT_EQ(host_set_length("f", distant - 1), 0);
    EXPECT_EQ(host_status_of("f").value().size, distant - 1);
}

TEST_F(host_win32, children_have_our_streams_or_none_and_descriptors_have_an_end) {
    const std::string program =
        "\"" + std::filesystem::absolute(OBJTRIM_PROGRAM).string() + "\" none";
    const auto run = [&] {
        const int heard = gen_run(program.c_str(), ""), quiet = gen_run(program.c_str(), "q");
        gen_eprintf("%d %d %d", heard, quiet, gen_run("none x", ""));
        int descriptor = 0, lock = -1;
        while (descriptor >= 0)
            descriptor = host_open("f", host_access::create);
        gen_eprintf(" %d", errno);
        gen_eprintf(" %d", host_create_lock("l", lock) == host_lock_outcome::failed ? errno : 0);
        exit(0);
    };
    const std::string full = " " + std::to_string(EMFILE);
    expect_end(run, 0,
               "objtrim: fatal: Unable to open executable 'none' for input: No such file "
               "or directory\n1 1 127" +
                   full + full);
}

} // namespace
