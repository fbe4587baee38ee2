// The wrapper for callers of the usual strip command line: what it makes of each kind of file,
// under each shell, and the tools that call it, as they are on this machine.
//
// Not on Windows: the wrapper is a shell script.
#include <filesystem>
#include <gtest/gtest.h>

#include "support/coff_builder.h"
#include "support/runner.h"
#include "support/table.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

const char* const app_source = R"(#include <stdio.h>
int triple(int);
static int unused_here(int a) { return a + 1; }
int main(int argc, char** argv) { (void)argv; return printf("%d\n", triple(3 + argc)) + unused_here(-4); }
)";
const char* const lib_source = R"(#include <stdlib.h>
int spare_name = 9;
int factor = 3;
static int plain(int a) { return a * factor; }
int triple(int a) { return getenv("ODD_ENVIRONMENT") ? 0 : plain(a); }
)";

const char* const subjects = R"(
cc -g -O0 -fPIC -c triple_library.c -o triple.o && cc -g -O0 -c app.c
cc -g -O0 app.o triple_library.c -o dynamic && cc -g -O0 -static app.o triple_library.c -o static
cc -g -O0 -Wl,--emit-relocs app.o triple_library.c -o relocs
cc -g -O0 -shared -fPIC triple_library.c -o shared
cc -g -O0 -shared -fPIC -nostartfiles triple_library.c -o bare
cc app.o ./shared -o with_shared && cc app.o ./bare -o with_bare
head -c 9000 dynamic >cut; { cat dynamic; printf appended; } >appended && chmod +x appended
printf 'template <class t> t twice(t a) { return a + a; } int four() { return twice(2); }' >group.cpp
c++ -g -c group.cpp && ar rc archive.a triple.o app.c && ar rc groups.a triple.o group.o
printf -- "-p  -R '.comment'\n\"blank name\"" >arguments
cp dynamic 'blank name' && cp dynamic -- --strip-debug && ln -s dynamic link
)";

// Prints 12 when $FILE, or what is linked with it, is in order.
const char* const trial = R"(
case $FILE in
group* | cut | *.exe) echo 12 ;;
*.a)
    ar p archive.a app.c | cmp - app.c
    ! readelf -SW archive.a 2>&1 | grep -E 'debug|comment'
    cc app.o ./archive.a -o trial && ./trial ;;
shared | bare) "./with_$FILE" ;;
*.o) cc app.o "./$FILE" -o trial && ./trial ;;
*) "./$FILE" ;;
esac
)";

// A directory with the programs under test beside each other in bin, and the sources.
struct strip_place : work_place {
    strip_place() {
        put("app.c", app_source);
        put("triple_library.c", lib_source);
        sh("mkdir bin && ln -s '" OBJTRIM_PROGRAM "' '" OBJTRIM_AS_STRIP "' bin\n"
           "ln -s objtrim-as-strip bin/strip\n"
           "lbm=$(dirname '" OBJTRIM_PROGRAM "')/lbm; [ ! -x \"$lbm\" ] || ln -s \"$lbm\" bin");
    }
    run_result sh(const std::string& script) const { return command("set -eu\n" + script); }
    // The first of the tools that this machine does not have.
    std::string missing(const std::string& tools) const {
        return sh("for tool in " + tools +
                  "; do command -v $tool >&2 || { echo $tool; exit; }; done")
            .out;
    }
};

// What is left of a file: 's' for a symbol table, 'd' for debugging information, 'c' for .comment.
std::string what_is_left(const std::string& bytes) {
    std::set<char> left;
    for (const std::string& name : section_names(bytes))
        for (const char* const begin : {".symtab", ".debug_", ".comment"})
            if (name.starts_with(begin))
                left.insert(begin[1]);
    return {left.begin(), left.end()};
}

// What the shell reads behind "strip", the file that it concerns, and what comes of it: what is
// left, what the refusal says, and which of "plain unused_here" are still there.
const char* const strip_rows = R"(
> dynamic | dynamic | c > -s static | static | c > --strip-unneeded dynamic | dynamic | c
> --strip-unneeded shared | shared | c > --strip-all relocs | relocs | c > link | dynamic | c
> image.exe | image.exe |
> -g image.exe | image.exe | | symbols of a PE image go together; use --strip-all
> -N a image.exe | image.exe | | a PE image takes none of -R, -K and -N
> -g dynamic | dynamic | cs | | plain unused_here > -S shared | shared | cs | | plain
> static -d -R .comment | static | s | | plain unused_here
> -N plain dynamic | dynamic | cds | | unused_here
> -g -w -N 'pl*' -N 'unused*' static | static | cs | | none
> -K plain static | static | cs | | plain
> --keep-symbol plain dynamic | dynamic | cds | loaded at run time would change
> -K plain relocs | relocs | cds | relocations would be lost
> -N plain bare | bare | cds | loaded at run time would change
> --remove-section=.comment --remove-section .note dynamic | dynamic |
> -R .text dynamic | dynamic | cds | section .text is loaded at run time and cannot be removed
> -R '.note*' dynamic | dynamic | cds | section .note.gnu.property is loaded at run time
> -R '.no?e' dynamic | dynamic | cds | -R .no?e: only a * at either end can be translated
> -g -R .symtab dynamic | dynamic | cds | .symtab cannot be named
> -K '*' dynamic | dynamic | cds | symbol *: without -w a * cannot be translated
> -K a -N b dynamic | dynamic | cds | -K and -N do not go together
> dynamic -N | dynamic | cds | option -N needs a value
> -x dynamic | dynamic | cds | option -x has no translation
> -o out dynamic static | dynamic | cds | with -o there can be only one file
> appended | appended | cds | the data appended to it would be lost
> -g cut | cut | | it ends before its contents do > -g triple.o | triple.o | cs | | plain
> --strip-unneeded triple.o | triple.o | cs
> -g -N factor triple.o | triple.o | cds | relocations would be lost
> triple.o | triple.o | cds | cannot be linked; use --strip-debug
> -g group.o | group.o | cds | its section groups would not fit
> -g groups.a | groups.a | | groups.a(group.o): its section groups would not fit
> --strip-debug --remove-section=.comment --remove-section=.note -D -R '.gnu.lto_*' -R
  '.gnu.debuglto_*' -N __gnu_lto_slim -N __gnu_lto_v1 archive.a | archive.a |
> -g app.c dynamic | dynamic | cs | app.c: file format not recognized
> -g missing dynamic | dynamic | cs | missing: no such file > @arguments | blank name |
> -v -- --strip-debug | --strip-debug | c
> -po out dynamic -R .gnu.switches.text.lipo_info && mv out dynamic | dynamic | c
)";

// Each row under another shell, or in a long run under all.
TEST(as_strip, takes_each_kind_of_file) {
    const strip_place place;
    if (!place.missing("cc c++ ar").empty())
        GTEST_SKIP() << "this machine lacks " << place.missing("cc c++ ar");
    ASSERT_EQ(place.sh(subjects).err, "");
    place.put("image.exe", build_pe({}).bytes);
    words shells = {"dash", "bash", "busybox sh"};
    std::erase_if(shells, [&](const std::string& shell) { return !place.missing(shell).empty(); });
    const std::vector<words> rows = rows_of(strip_rows);
    for (size_t i = 0; i < rows.size() * (stress_factor() > 1 ? shells.size() : 1); ++i) {
        const words& row = rows[i % rows.size()];
        const std::string &file = row[1], &left = row[2], &refusal = row[3];
        const std::string line =
            shells[(i + i / rows.size()) % shells.size()] + " ../bin/strip " + row[0];
        SCOPED_TRACE(line);
        fs::remove_all(place.path("work"));
        for (const std::string& name :
             split("app.c app.o arguments dynamic static with_shared with_bare"))
            place.put("work/" + name, place.get(name), place.state(name).mode);
        place.put("work/" + file, place.get(file), place.state(file).mode);
        make_link("dynamic", place.path("work/link"));
        const file_state before = place.state("work/" + file);
        const run_result result = place.sh("cd work; status=0\n" + line + " || status=$?\nFILE='" +
                                           file + "'" + trial + "exit $status");
        const file_state after = place.state("work/" + file);
        const bool is_changed = refusal.empty() || what_is_left(before.bytes) != left;
        EXPECT_EQ(result.status, !refusal.empty());
        EXPECT_NE(result.err.find(refusal), std::string::npos) << result.err;
        EXPECT_TRUE(result.out.ends_with("12\n")) << "it does not run: " << result.err;
        EXPECT_EQ(what_is_left(after.bytes), left);
        EXPECT_EQ(after.bytes != before.bytes, is_changed);
        EXPECT_EQ(after.mode, before.mode);
        EXPECT_EQ(after.modified != before.modified,
                  is_changed && row[0][0] != '@' && !row[0].starts_with("-p"));
        EXPECT_TRUE(fs::is_symlink(place.path("work/link")));
        for (const std::string& name : split(row[4].empty() ? "" : "plain unused_here"))
            EXPECT_EQ(after.bytes.find('\0' + name + '\0') != name.npos,
                      row[4].find(name) != name.npos)
                << name;
    }
    if (shells.size() < 3)
        GTEST_SKIP() << "this machine has only some of the shells";
}

// The tools that call the wrapper, as they are on this machine. Each installs a program, which has
// to run and to be stripped.
struct caller_row {
    const char* name;
    const char* tools;  // without which the row is skipped
    const char* script; // installs app and perhaps libtriple.so below dest
    const char* left = "c";
};
const caller_row caller_rows[] = {
    {"cmake", "cmake", R"(
printf 'cmake_minimum_required(VERSION 3.20)\nproject(app C)\n' >CMakeLists.txt
printf 'add_executable(app app.c triple_library.c)\ninstall(TARGETS app)\n' >>CMakeLists.txt
cmake -S . -B b -DCMAKE_BUILD_TYPE=Debug -DCMAKE_STRIP="$STRIP" && cmake --build b
DESTDIR=$PWD/dest cmake --install b --strip)"},
    {"meson", "meson ninja", R"(
printf "project('app', 'c')\nexecutable('app', 'app.c', 'triple_library.c', install: true)\n" \
    >meson.build
printf "[binaries]\nc = 'cc'\nstrip = '%s'\n" "$STRIP" >machine.ini
meson setup --native-file machine.ini --buildtype debug b
meson install -C b --strip --destdir "$PWD/dest")"},
    {"install", "install", R"(
cc -g app.c triple_library.c -o app
install -D -s --strip-program="$STRIP" app dest/bin/app)"},
    {"automake", "automake autoreconf make", R"(
printf 'AC_INIT([app], [1])\nAM_INIT_AUTOMAKE([foreign])\nAC_PROG_CC\n' >configure.ac
printf 'AC_CONFIG_FILES([Makefile])\nAC_OUTPUT\n' >>configure.ac
printf 'bin_PROGRAMS = app\napp_SOURCES = app.c triple_library.c\n' >Makefile.am
autoreconf -i && ./configure STRIP="$STRIP" && make && make install-strip DESTDIR="$PWD/dest")"},
    {"dh_strip", "dh_strip objcopy", R"(
mkdir debian && printf 'app (1) stable; urgency=low\n\n  * New.\n\n -- A <a@example.org>  %s\n' \
    'Mon, 01 Jan 2024 00:00:00 +0000' >debian/changelog
printf 'Source: app\nMaintainer: A <a@example.org>\nBuild-Depends: debhelper-compat (= 13)\n' >debian/control
printf '\nPackage: app\nArchitecture: any\nDescription: app\n' >>debian/control
mkdir -p debian/app/usr/bin debian/app/usr/lib
cc -g -shared -fPIC -Wl,--build-id triple_library.c -o debian/app/usr/lib/libtriple.so
cc -g app.c -Wl,--build-id '-Wl,-rpath,$ORIGIN/../lib' -o debian/app/usr/bin/app \
    -Ldebian/app/usr/lib -ltriple
PATH=${STRIP%/*}:$PATH dh_strip && mv debian/app dest)",
     ""},
    {"rpm", "rpmbuild objdump", R"(
mkdir -p dest/bin && cc -g app.c triple_library.c -o dest/bin/app
export RPM_BUILD_ROOT="$PWD/dest"
/usr/lib/rpm/brp-strip "$STRIP" && readelf -SW dest/bin/app | grep -q symtab
objdump=$(command -v objdump)
"$STRIP" dest/bin/app && /usr/lib/rpm/brp-strip-comment-note "$STRIP" "$objdump")",
     ""},
};

struct caller : testing::TestWithParam<caller_row> {};

TEST_P(caller, strips_what_it_installs) {
    const strip_place place;
    if (const std::string tool = place.missing("cc readelf "s + GetParam().tools); !tool.empty())
        GTEST_SKIP() << "this machine lacks " << tool;
    const run_result result =
        place.sh("STRIP=$PWD/bin/strip; exec >&2" + std::string(GetParam().script));
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(place.sh("$(find dest -name app -type f)").out, "12\n");
    for (const std::string& file :
         split(place.sh("find dest -type f -perm -100 -name app -o -name '*.so'").out))
        EXPECT_EQ(what_is_left(place.get(file)), GetParam().left) << file;
}

INSTANTIATE_TEST_SUITE_P(of_the_wrapper, caller, testing::ValuesIn(caller_rows),
                         [](const auto& one) { return one.param.name; });

} // namespace
