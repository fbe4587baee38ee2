// Real images of the linkers on this machine, a program and its library each: the stripped ones are
// read by the system's tools, and run under wine.
#include <gtest/gtest.h>

#include "support/runner.h"

namespace {

const char* const source = R"(struct point { int x, y; } points[] = {{1, 2}, {3, 4}};
#ifdef LIBRARY
__declspec(dllexport) int sum(int index) { return points[index].x + points[index].y; }
#else
__declspec(dllimport) int sum(int index);
int START(void) { return points[1].y + sum(0); }
#endif
)";
const std::string gcc = "-w64-mingw32-gcc -DSTART=main ", msvc = "-pc-windows-msvc -Wl,-debug";
const std::string clang = "clang -fuse-ld=lld -nostdlib -DSTART=mainCRTStartup --target=";
const std::string done = "objtrim: warning: # already stripped\n";

// The names of the debugging sections of "-g" are longer than eight letters, so they go with the
// symbols. Tools may then refuse the image, which the loader does not mind.
const std::pair<std::string, std::string> rows[] = {
    {"x86_64" + gcc + "-Wl,-S", ""},
    {"x86_64" + gcc + "-g", ""},
    {clang + "x86_64" + msvc + ":symtab", ""},
    {clang + "i686" + msvc + ":symtab", ""},
    {clang + "x86_64" + msvc + " -g -gcodeview", done},
    {clang + "i686" + msvc + " -g -gcodeview", done}};

const char* const build = R"(library=-Wl,-noentry program=-Wl,-subsystem:console
case $cc in *mingw*) library=-Wl,--out-implib,part.lib program= ;; esac
mkdir $row && cd $row && $cc -DLIBRARY -shared -o part.dll ../a.c $library &&
$cc -o prog.exe ../a.c part.lib $program)";
// What tools show of a file; of its headers, only whether they can.
const char* const show = R"(objdump -h -s $f && llvm-readobj --sections --section-data $f
objdump -p $f >log && llvm-readobj --file-headers $f >log && echo can be read)";
// The statuses of all programs; of those that cannot run, too.
const char* const run = R"(PATH=$PATH:/usr/lib/wine WINEPREFIX=$PWD/prefix WINEDEBUG=-all
WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe='; export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
wine=wine; command -v wine >log || wine=wine64
for row in row*; do (cd $row; $wine prog.exe >../log 2>&1; echo $row $?); done; wineserver -k -w)";

TEST(real_images, are_read_and_run_as_before) {
    work_place place;
    place.put("a.c", source);
    std::string missing;
    for (size_t i = 0; const auto& [compile, said] : rows)
        if (place.command("row=row" + std::to_string(i++) + " cc='" + compile + "';" + build)
                .status)
            missing += compile + "; ";
    const std::string ran = place.command(run).out;
    for (size_t i = 0; i < 2 * std::size(rows); ++i) {
        auto [compile, said] = rows[i / 2];
        const std::string file =
            "row" + std::to_string(i / 2) + (i % 2 ? "/part.dll" : "/prog.exe");
        const file_state before = place.state(file);
        if (before.bytes.empty())
            continue;
        SCOPED_TRACE(compile + file);
        const std::string shown = place.command("f=" + file + ";" + show).out;
        if (!said.empty())
            said.replace(said.find('#'), 1, file);
        EXPECT_EQ(place.trim(file).err, said);
        EXPECT_EQ(place.state(file) == before, !said.empty());
        if (!compile.ends_with("-g"))
            EXPECT_EQ(place.command("f=" + file + ";" + show).out, shown);
        missing += shown.empty() ? "objdump or llvm-readobj; " : "";
    }
    EXPECT_EQ(place.command(run).out, ran);
    if (!missing.empty())
        GTEST_SKIP() << "this machine cannot do: " << missing;
}

} // namespace
