// The host on Windows: names in all their forms, files that others hold open, attributes, children.
#include <algorithm>
#include <filesystem>
#include <thread>
#include <tuple>
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

TEST_F(host_win32, a_target_that_is_held_is_waited_for_a_second) {
    place.put("from", "new");
    place.put("to", "old");
    place.put("directory/f", "");
    const std::tuple<const char*, ULONGLONG, int> rows[] = {
        // when it is let go, and what comes of it
        {"to", 2000, EACCES},
        {"directory", 0, EACCES},
        {"to", 300, 0}};
    for (const auto& [name, held, error] : rows) {
        const HANDLE other = hold(name);
        std::thread holder([&, held = held] {
            Sleep(static_cast<DWORD>(held));
            CloseHandle(other);
        });
        const ULONGLONG start = GetTickCount64();
        errno = 0;
        EXPECT_EQ(host_rename("from", name), error != 0 ? -1 : 0) << name;
        EXPECT_EQ(errno, error) << name;
        const ULONGLONG took = GetTickCount64() - start, wait = std::min<ULONGLONG>(held, 1000);
        EXPECT_TRUE(took + 100 >= wait && took < wait + 900) << name << " " << took;
        holder.join();
    }
    EXPECT_EQ(place.get("to"), "new");
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
            EXPECT_EQ(place.trim(line).err, "") << line;
            EXPECT_EQ(difference(place.get("sub/my prog.elf"), stripped), "") << line;
            EXPECT_EQ(place.list("sub"), words{"my prog.elf"}) << line;
        }
    place.put("-bogus", ""); // a star in an option does not mean it
    EXPECT_TRUE(place.trim("-bogus*").err.starts_with(
        "objtrim: warning: unrecognized option, -bogus* (ignored)"));
}

TEST_F(host_win32, names_of_other_alphabets_and_as_long_as_can_be) {
    const std::string deep = place.directory + "\\" + std::string(100, 'd') + "\\";
    const std::string whole = deep + std::string(MAX_PATH - 1 - deep.size(), 'n');
    EXPECT_EQ(host_make_directory(deep.c_str(), 0777), 0);
    for (const std::string& name : {std::string("\xC3\xA4\xE2\x82\xAC.elf"), whole}) {
        const int made = host_open(name.c_str(), host_access::create);
        EXPECT_GT(host_write_at(made, file.data(), file.size(), 0), 0);
        EXPECT_EQ(host_close(made), 0);
        EXPECT_EQ(place.trim(name).err, "") << name;
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
    EXPECT_EQ(host_close(handle) | host_set_length("f", distant - 1), 0);
    EXPECT_EQ(host_status_of("f").value().size, distant - 1);
}

TEST_F(host_win32, children_have_our_streams_or_none_and_descriptors_have_an_end) {
    const std::string program =
        "\"" + std::filesystem::absolute(OBJTRIM_PROGRAM).string() + "\" none";
    const auto run = [&] {
        const int heard = gen_run(program.c_str(), ""), quiet = gen_run(program.c_str(), "q");
        gen_eprintf("%d %d %d", heard, quiet, gen_run("none x", ""));
        int lock = -1;
        while (host_open("f", host_access::create) >= 0)
            ;
        gen_eprintf(" %d", errno);
        gen_eprintf(" %d", host_create_lock("l", lock) == host_lock_outcome::failed ? errno : 0);
        exit(0);
    };
    expect_end(run, 0,
               "objtrim: fatal: Unable to open executable 'none' for input: No such file or "
               "directory\n1 1 127 24 24"); // of EMFILE
}

} // namespace
