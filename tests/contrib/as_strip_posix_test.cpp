// The wrapper for callers of the usual strip command line: what it makes of each kind of file,
// under each shell, and the tools that call it, as they are on this machine.
//
// Not on Windows: the wrapper is a shell script.
#include <algorithm>
#include <gtest/gtest.h>

#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

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

// A directory with the sources, and the programs under test beside each other in bin.
struct strip_place : work_place {
    strip_place() {
        put("app.c", app_source);
        put("triple_library.c", lib_source);
        sh("mkdir bin && ln -s '" OBJTRIM_PROGRAM "' '" OBJTRIM_AS_STRIP "' bin\n"
           "ln -s objtrim-as-strip bin/strip\n"
           "lbm=$(dirname '" OBJTRIM_PROGRAM "')/lbm; [ ! -x \"$lbm\" ] || ln -s \"$lbm\" bin");
    }
    run_result sh(const std::string& script) const {
        put("script.sh", "set -eu\n" + script);
        return command("sh script.sh");
    }
    bool has(const std::string& tool) const {
        return command("sh -c 'command -v " + tool + "'").status == 0;
    }
};

// What is left of a file: 's' for a symbol table, 'd' for debugging information, 'c' for .comment.
std::string what_is_left(const std::string& bytes) {
    std::string left;
    for (const std::string& name : section_names(bytes))
        for (const auto& [begin, letter] :
             {std::pair(".symtab", 's'), {".debug_", 'd'}, {".comment", 'c'}})
            if (name.starts_with(begin) && left.find(letter) == std::string::npos)
                left += letter;
    std::sort(left.begin(), left.end());
    return left;
}

const char* const subjects = R"(
cc -g -O0 -fPIC -c triple_library.c -o triple.o
cc -g -O0 app.c triple_library.c -o dynamic
cc -g -O0 -static app.c triple_library.c -o static
cc -g -O0 -Wl,--emit-relocs app.c triple_library.c -o relocs
cc -g -O0 -shared -fPIC triple_library.c -o shared
cc -g -O0 -shared -fPIC -nostartfiles triple_library.c -o bare
head -c 9000 dynamic >cut
{ cat dynamic; printf appended; } >appended && chmod +x appended
printf 'template <class t> t twice(t a) { return a + a; } int four() { return twice(2); }' >group.cpp
c++ -g -c group.cpp
ar rc archive.a triple.o app.c && ar rc groups.a triple.o group.o
printf -- "-p  -R '.comment'\n\"blank name\"" >arguments
cp dynamic 'blank name' && cp dynamic -- --strip-debug && touch -d 2001-01-01 'blank name'
)";
// Prints 12 when $FILE, or what is linked with it, is in order.
const char* const trial = R"(
case $FILE in
*.o | *.a | shared | bare) cc app.c "./$FILE" -o trial && ./trial ;;
*) "./$FILE" ;;
esac
)";

// A line of words for the shell, the file that it concerns, and what comes of it: what is left, or
// what the refusal says. `symbols` says which of "plain unused_here" are still there.
struct strip_row {
    const char* line;
    const char* file;
    const char* left;
    const char* refusal = nullptr;
    const char* symbols = nullptr;
};
const strip_row strip_rows[] = {
    {"dynamic", "dynamic", "c"},
    {"-s static", "static", "c"},
    {"--strip-unneeded dynamic", "dynamic", "c"},
    {"--strip-unneeded shared", "shared", "c"},
    {"--strip-all relocs", "relocs", "c"},
    {"-g dynamic", "dynamic", "cs", nullptr, "plain unused_here"},
    {"-S shared", "shared", "cs", nullptr, "plain"},
    {"static -d -R .comment", "static", "s", nullptr, "plain unused_here"},
    {"-N plain dynamic", "dynamic", "cds", nullptr, "unused_here"},
    {"-g -w -N 'pl*' -N 'unused*' static", "static", "cs", nullptr, ""},
    {"-K plain static", "static", "cs", nullptr, "plain"},
    {"--keep-symbol plain dynamic", "dynamic", "cds", "loaded at run time would change"},
    {"-K plain relocs", "relocs", "cds", "relocations would be lost"},
    {"-N plain bare", "bare", "cds", "loaded at run time would change"}, // numbers move, none goes
    {"--remove-section=.comment --remove-section .note dynamic", "dynamic", ""},
    {"-R .text dynamic", "dynamic", "cds", "section .text is loaded"},
    {"-R '.note*' dynamic", "dynamic", "cds", "section .note.gnu.property is loaded"},
    {"-R '.no?e' dynamic", "dynamic", "cds", "-R .no?e: only a *"},
    {"-g -R .symtab dynamic", "dynamic", "cds", "cannot be named"},
    {"-K '*' dynamic", "dynamic", "cds", "without -w"},
    {"-x dynamic", "dynamic", "cds", "option -x has no translation"},
    {"--only-keep-debug dynamic", "dynamic", "cds", "has no translation"},
    {"-o out dynamic static", "dynamic", "cds", "only one file"},
    {"appended", "appended", "cds", "appended"},
    {"-g cut", "cut", nullptr, "ends before its contents do"},
    {"-g triple.o", "triple.o", "cs", nullptr, "plain"},
    {"--strip-unneeded triple.o", "triple.o", "cs"},
    {"-g -N factor triple.o", "triple.o", "cds", "relocations would be lost"},
    {"triple.o", "triple.o", "cds", "use --strip-debug"},
    {"-g group.o", "group.o", nullptr, "section groups"},
    {"-g app.c dynamic", "dynamic", "cs", "app.c: file format not recognized"},
    {"-g missing dynamic", "dynamic", "cs", "missing: no such file"},
    {"@arguments", "blank name", ""},
    {"-v -- --strip-debug", "--strip-debug", "c"},
    {"-po out dynamic && mv out dynamic", "dynamic", "c"},
};

struct wrapper_under : testing::TestWithParam<const char*> {};

TEST_P(wrapper_under, takes_each_kind_of_file) {
    const strip_place place;
    const std::string shell = GetParam();
    if (!place.has(shell.substr(0, shell.find(' '))) || !place.has("cc"))
        GTEST_SKIP() << "this machine lacks cc or " << shell;
    ASSERT_EQ(place.sh(subjects).err, "");
    for (const strip_row& row : strip_rows) {
        SCOPED_TRACE(row.line);
        const std::string file = row.file;
        place.sh("rm -rf work && mkdir work && cp -p app.c arguments dynamic static work\n"
                 "cp -p -- '" +
                 file + "' work");
        const file_state before = place.state("work/" + file);
        const run_result result = place.sh("cd work\n" + shell + " ../bin/strip " + row.line);
        const file_state after = place.state("work/" + file);
        EXPECT_EQ(result.status, row.refusal ? 1 : 0);
        EXPECT_EQ(result.err.find(row.refusal ? row.refusal : "refused") != std::string::npos,
                  row.refusal != nullptr)
            << result.err;
        EXPECT_EQ(after.mode, before.mode);
        if (!row.left)
            continue;
        EXPECT_EQ(what_is_left(after.bytes), row.left);
        if (std::string(row.left).find('d') != std::string::npos && row.refusal)
            EXPECT_TRUE(after == before);
        if (strchr("@-", row.line[0]) &&
            strstr("@arguments -po out dynamic && mv out dynamic", row.line))
            EXPECT_EQ(after.modified, before.modified);
        if (row.symbols)
            EXPECT_EQ(place
                          .sh("cd work && nm -- " + std::string(row.file) +
                              " | grep -owE 'plain|unused_here' | sort | tr '\\n' ' '")
                          .out,
                      *row.symbols ? std::string(row.symbols) + " " : "");
        if (!strstr("group.o appended", row.file))
            EXPECT_EQ(place.sh("cd work; FILE='" + file + "'" + trial).out, "12\n");
    }
}

INSTANTIATE_TEST_SUITE_P(shells, wrapper_under, testing::Values("dash", "bash", "busybox sh"),
                         [](const auto& one) {
                             return std::string(one.param, strcspn(one.param, " "));
                         });

TEST(as_strip, strips_each_object_of_an_archive) {
    const strip_place place;
    if (!place.has("cc") || place.sh("[ -x bin/lbm ]").status != 0)
        GTEST_SKIP() << "there is no cc, or no lbm beside objtrim";
    ASSERT_EQ(place.sh(subjects).err, "");
    // As dh_strip calls it.
    const std::string options =
        "--strip-debug --remove-section=.comment --remove-section=.note "
        "--enable-deterministic-archives -R '.gnu.lto_*' -R '.gnu.debuglto_*' -N __gnu_lto_slim "
        "-N __gnu_lto_v1 ";
    EXPECT_EQ(place.sh("bin/strip " + options + "archive.a").err, "");
    EXPECT_EQ(place.sh("ar t archive.a").out, "triple.o\napp.c\n");
    EXPECT_EQ(place.sh("ar p archive.a app.c").out, app_source);
    EXPECT_EQ(place.sh("readelf -SW archive.a | grep -cE 'debug|comment' || :").out, "0\n");
    EXPECT_EQ(place.sh("FILE=archive.a" + std::string(trial)).out, "12\n");
    const std::string before = place.get("groups.a");
    EXPECT_NE(place.sh("bin/strip -g groups.a").err.find("groups.a(group.o): its section groups"),
              std::string::npos);
    EXPECT_EQ(place.get("groups.a"), before);
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
cat >CMakeLists.txt <<TEXT
cmake_minimum_required(VERSION 3.20)
project(app C)
add_library(triple SHARED triple_library.c)
add_executable(app app.c)
target_link_libraries(app triple)
set_target_properties(app PROPERTIES INSTALL_RPATH "\$ORIGIN/../lib")
install(TARGETS app triple LIBRARY DESTINATION lib)
TEXT
cmake -S . -B b -DCMAKE_BUILD_TYPE=Debug -DCMAKE_STRIP="$STRIP" && cmake --build b
DESTDIR=$PWD/dest cmake --install b --strip)"},
    {"meson", "meson ninja", R"(
cat >meson.build <<TEXT
project('app', 'c')
triple = shared_library('triple', 'triple_library.c', install: true)
executable('app', 'app.c', link_with: triple, install: true, install_rpath: '\$ORIGIN/../lib')
TEXT
printf "[binaries]\nc = 'cc'\nstrip = '%s'\n" "$STRIP" >machine.ini
meson setup --native-file machine.ini --libdir lib --buildtype debug b
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
    {"bazel_command_line", "cc", R"(
mkdir -p dest/bin && cc -g app.c triple_library.c -o app
"$STRIP" -S -p -o dest/bin/app -R .gnu.switches.text.quote_paths \
    -R .gnu.switches.text.bracket_paths -R .gnu.switches.text.system_paths \
    -R .gnu.switches.text.cpp_defines -R .gnu.switches.text.cpp_includes \
    -R .gnu.switches.text.cl_args -R .gnu.switches.text.lipo_info \
    -R .gnu.switches.text.annotation app)",
     "cs"},
};

struct caller : testing::TestWithParam<caller_row> {};

TEST_P(caller, strips_what_it_installs) {
    const strip_place place;
    for (const std::string& tool : split("cc readelf " + std::string(GetParam().tools)))
        if (!place.has(tool))
            GTEST_SKIP() << "this machine has no " << tool;
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
