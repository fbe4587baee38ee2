// The host on Windows: names in all their forms, files that others hold open, attributes, children.
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

TEST_F(host_win32, a_target_that_is_held_is_waited_for_a_second) {
    place.put("from", "new");
    place.put("to", "old");
    place.put("directory/f", "");
    using row = std::tuple<const char*, ULONGLONG, int>; // when let go, and what comes of it
    for (const auto& [name, held, error] :
         {row("to", 2000, EACCES), row("directory", 0, EACCES), row("to", 300, 0)}) {
        // Someone else has it, who lets others read and write, but not replace it.
        const HANDLE other = CreateFileA(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         nullptr, OPEN_EXISTING, 0, nullptr);
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
}

TEST_F(host_win32, the_read_only_attribute_is_given_back_to_a_map) {
    place.put("prog.elf", file);
    place.put("prog.dnm", build_dnm(sample_dnm()), 0444);
    const file_state before = place.state("prog.dnm");
    EXPECT_EQ(place.trim("prog.elf").err, "");
    EXPECT_NE(place.state("prog.dnm").modified, before.modified);
    EXPECT_TRUE(before.mode == 0444 && place.state("prog.dnm").mode == 0444);
}

// Whatever the name, the temporary file is made beside the input: it is moved, never copied.
TEST_F(host_win32, names_in_every_form_lead_to_the_file) {
    const std::string name = "sub\\my prog.elf", here = place.directory + "\\";
    const std::string drive = here.substr(0, 2), rooted = here.substr(2) + name;
    for (const std::string& form :
         {std::string("sub/my prog.elf"), drive + name, here + name, rooted,
          std::string(".\\sub/..\\SUB\\MY Prog.ELF"), "\\\\?\\" + here + name,
          drive + std::filesystem::path(rooted).generic_string(), "\\\\.\\" + here + name})
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

TEST_F(host_win32, children_have_our_streams_or_none_and_descriptors_have_an_end) {
    const std::string path = std::filesystem::absolute(OBJTRIM_PROGRAM).string();
    const std::string program = "\"" + path + "\" none";
    const auto run = [&] {
        const int heard = gen_run(program.c_str(), ""), quiet = gen_run(program.c_str(), "q");
        gen_eprintf("%d %d %d", heard, quiet, gen_run("none x", ""));
        while (host_open("f", host_access::create) >= 0)
            ;
        gen_eprintf(" %d", errno);
        int lock = errno = 0;
        exit(host_create_lock("l", lock) == host_lock_outcome::failed ? errno : 0);
    };
    const std::string refused = "objtrim: fatal: Unable to open executable 'none' for input: ";
    expect_end(run, EMFILE, refused + "No such file or directory\n1 1 127 24"); // which is EMFILE
}

} // namespace
