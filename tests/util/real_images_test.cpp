// Real images of the linkers on this machine, a program and its library each: the stripped ones are
// read by the system's tools, and run under wine.
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
const std::string refused = "objtrim: error: # not stripped\n";
const std::string done = "objtrim: warning: # already stripped\n";

// The names of debugging sections are longer than eight letters, so they go with the symbols. Tools
// may then refuse the image, which the loader does not mind.
const struct {
    std::string compile, said = {};
    bool read = true; // by tools, afterwards
} rows[] = {{"x86_64" + gcc + "-Wl,-S"},
            {"i686" + gcc + "-Wl,-S"},
            {"x86_64" + gcc + "-g", "", false},
            {"x86_64" + gcc + "-Wl,-S,--build-id", refused},
            {clang + "x86_64" + msvc + symtab},
            {clang + "i686" + msvc + symtab},
            {clang + "x86_64" + msvc + codeview, done},
            {clang + "i686" + msvc + codeview, done}};

// Makes program and library in "$row", with a compiler and what its linker wants for either.
const char* const build = R"(mkdir $row && cd $row &&
$cc -DLIBRARY -shared -o part.dll ../a.c $library && $cc -o prog.exe ../a.c part.lib $program)";
// What tools show of a file; of its headers, only whether they can.
const char* const show = R"(objdump -h -s $f && llvm-readobj --sections --section-data $f
objdump -p $f >log && llvm-readobj --file-headers $f >log && echo can be read)";

struct real_images : testing::Test {
    real_images() {
        place.put("a.c", source);
        wine("$wine wineboot -i >log 2>&1 &"); // while images are made
    }
    ~real_images() override { wine("wineserver -k -w"); }
    // One prefix for all, so that its server need not start for each.
    std::string wine(const std::string& script) const {
        const std::string settings =
            R"(PATH=$PATH:/usr/lib/wine WINEPREFIX=$PWD/prefix WINEDEBUG=-all
WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe='; export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
wine=wine; command -v wine >log || wine=wine64
)";
        return place.command(settings + script).out;
    }
    std::string statuses() const { // of all programs; of those that cannot run, too
        return wine(
            "for row in row*; do (cd $row; $wine prog.exe >../log 2>&1; echo $row $?); done");
    }
    work_place place;
};

TEST_F(real_images, are_read_and_run_as_before) {
    std::string missing;
    for (const auto& row : rows) {
        const bool is_gcc = row.compile.find("mingw") != std::string::npos;
        const std::string parts = is_gcc ? "library=-Wl,--out-implib,part.lib program=;"
                                         : "library=-Wl,-noentry program=-Wl,-subsystem:console;";
        const std::string number = std::to_string(&row - rows);
        if (place.command("row=row" + number + " cc='" + row.compile + "' " + parts + build).status)
            missing += row.compile + "; ";
    }
    const std::string ran = statuses();
    for (const auto& row : rows)
        for (const char* const name : {"/part.dll", "/prog.exe"}) {
            SCOPED_TRACE(row.compile + name);
            const std::string file = "row" + std::to_string(&row - rows) + name;
            const file_state before = place.state(file);
            const std::string shown = place.command("f=" + file + ";" + show).out;
            if (shown.empty() && missing.empty())
                missing = "objdump and llvm-readobj";
            if (before.bytes.empty())
                continue;
            std::string said = row.said;
            if (!said.empty())
                said.replace(said.find('#'), 1, file);
            EXPECT_EQ(place.trim(file).err, said);
            EXPECT_EQ(place.state(file) == before, !said.empty());
            EXPECT_TRUE(!row.read || place.command("f=" + file + ";" + show).out == shown);
        }
    EXPECT_EQ(statuses(), ran);
    if (!missing.empty())
        GTEST_SKIP() << "this machine cannot do: " << missing;
}

} // namespace
