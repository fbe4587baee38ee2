// Real images of the linkers on this machine, a program and its library each: the stripped ones are
// read by the system's tools, and run under wine.
#include <filesystem>
#include <gtest/gtest.h>

#include "support/runner.h"

namespace {

const char* const source = R"(
struct point { int x, y; } points[] = {{1, 2}, {3, 4}};
#ifdef LIBRARY
__declspec(dllexport) int sum(int index) { return points[index].x + points[index].y; }
#else
__declspec(dllimport) int sum(int index);
int START(void) { return points[1].y + sum(0); }
#endif
)";
const std::string gcc = "-w64-mingw32-gcc -DSTART=main ", msvc = "-pc-windows-msvc ";
const std::string clang = "clang -fuse-ld=lld -nostdlib -DSTART=mainCRTStartup --target=";
const std::string symtab = "-Wl,-debug:symtab", codeview = "-g -gcodeview -Wl,-debug";
const std::string refused = " not stripped", done = " already stripped";

struct image_row {
    const char* name;
    std::string compile;
    std::string said = {};
    bool read = true; // by tools, afterwards
};
// The names of debugging sections are longer than eight letters, so they go with the symbols. Tools
// may then refuse the image, which the loader does not mind.
const image_row rows[] = {
    {"gcc_x86_64", "x86_64" + gcc + "-Wl,-S"},
    {"gcc_i686", "i686" + gcc + "-Wl,-S"},
    {"gcc_long_names", "x86_64" + gcc + "-g", "", false},
    {"gcc_codeview", "x86_64" + gcc + "-Wl,-S,--build-id", refused},
    {"clang_x86_64", clang + "x86_64" + msvc + symtab},
    {"clang_i686", clang + "i686" + msvc + symtab},
    {"clang_x86_64_codeview", clang + "x86_64" + msvc + codeview, done},
    {"clang_i686_codeview", clang + "i686" + msvc + codeview, done},
};

// Program and library. False when this machine cannot make them.
bool build(const work_place& place, const std::string& compile) {
    const bool is_gcc = compile.find("mingw") != std::string::npos;
    const std::string library = is_gcc ? "-Wl,--out-implib,part.lib" : "-Wl,-noentry";
    const std::string program = is_gcc ? "" : "-Wl,-subsystem:console";
    place.put("a.c", source);
    return place.command(compile + " -DLIBRARY -shared -o part.dll a.c " + library).status == 0 &&
           place.command(compile + " -o prog.exe a.c part.lib " + program).status == 0;
}

// What tools show of a file; of its headers, only whether they can.
words show(const work_place& place, const std::string& file) {
    words shown;
    for (const char* tool : {"objdump -h -s ", "llvm-readobj --sections --section-data "})
        if (const run_result view = place.command(tool + file); view.status == 0)
            shown.push_back(view.out);
    for (const char* tool : {"objdump -p ", "llvm-readobj --file-headers "})
        if (place.command(tool + file).status == 0)
            shown.push_back(tool);
    return shown;
}

// The status of the program where there is wine, whose own files stay until the end.
int run(const work_place& place) {
    static const work_place prefix;
    place.put("run", R"(wine=wine; command -v wine || wine=wine64
$wine prog.exe; status=$?
wineserver -k -w; exit $status)");
    return place
        .command("PATH=$PATH:/usr/lib/wine WINEDEBUG=-all WINEPREFIX=" + prefix.directory +
                 " sh run >log 2>&1")
        .status;
}

struct real_image : testing::TestWithParam<image_row> {};

TEST_P(real_image, is_read_as_before) {
    const auto& [name, compile, said, read] = GetParam();
    work_place place;
    if (!build(place, compile))
        GTEST_SKIP() << "this machine cannot do: " << compile;
    for (const std::string file : {"part.dll", "prog.exe"}) {
        SCOPED_TRACE(file);
        const file_state before = place.state(file);
        const words shown = show(place, file);
        const int ran = run(place);
        const std::string level = said == refused ? "objtrim: error: " : "objtrim: warning: ";
        EXPECT_EQ(place.trim(file).err, said.empty() ? "" : level + file + said + "\n");
        EXPECT_EQ(place.state(file) == before, !said.empty());
        if (read)
            EXPECT_EQ(show(place, file), shown);
        EXPECT_EQ(run(place), ran);
        if (shown.empty())
            GTEST_SKIP() << "no tool on this machine reads PE images";
    }
}

INSTANTIATE_TEST_SUITE_P(linkers, real_image, testing::ValuesIn(rows),
                         [](const auto& one) { return std::string(one.param.name); });

} // namespace
