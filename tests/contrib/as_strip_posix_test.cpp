// The wrapper for callers of the usual strip command line: what it makes of each kind of file,
// under each shell, and the tools that call it, as they are on this machine.
//
// Not on Windows: the wrapper is a shell script.
#include <gtest/gtest.h>

#include "support/coff_builder.h"
#include "support/runner.h"
#include "support/table.h"

namespace {

using namespace std::string_literals;

const char* const subjects = R"(
cc -g -O0 -fPIC -c triple_library.c -o triple.o && cc -g -O0 -c app.c
cc -g -O0 app.o triple_library.c -o dynamic && cc -g -O0 -static app.o triple_library.c -o static
cc -g -O0 -Wl,--emit-relocs app.o triple_library.c -o relocs
cc -g -O0 -shared -fPIC triple_library.c -o shared
cc -g -O0 -shared -fPIC -nostartfiles triple_library.c -o bare
cc app.o ./shared -o with_shared && cc app.o ./bare -o with_bare
head -c 9000 dynamic >cut; { cat dynamic; printf appended; } >appended && chmod +x appended
printf 'template <class t> t twice(t a) { return a; } int two() { return twice(2); }' >group.cpp
c++ -g -c group.cpp && ar rc archive.a triple.o app.c && ar rc groups.a triple.o group.o
printf -- "-p  -R '.comment'\n\"blank name\"" >arguments
cp dynamic 'blank name' && cp dynamic -- --strip-debug && ln -s dynamic link
)";

// What comes before and behind a run. Prints 12 when $FILE, or what is linked with it, is in order.
const char* const setup = R"(
rm -rf work && mkdir work
cp -dp -- app.c app.o arguments dynamic static link with_shared with_bare "$FILE" work
cd work; status=0
)";
const char* const trial = R"( || status=$?
[ -L link ]
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
exit $status)";

// A directory with the programs under test beside each other in bin, and the sources.
struct strip_place : work_place {
    strip_place() {
        put("app.c", R"(#include <stdio.h>
int triple(int);
static int unused_here(int a) { return a + 1; }
int main(int argc) { return printf("%d\n", triple(3 + argc)) + unused_here(-4); }
)");
        put("triple_library.c", R"(#include <stdlib.h>
int spare_name = 9, factor = 3;
static int plain(int a) { return a * factor; }
int triple(int a) { return getenv("ODD_ENVIRONMENT") ? 0 : plain(a); }
)");
        sh("mkdir bin && ln -s '" OBJTRIM_PROGRAM "' '" OBJTRIM_ARCHIVER "' '" OBJTRIM_AS_STRIP
           "' bin; ln -s objtrim-as-strip bin/strip");
    }
    run_result sh(const std::string& script) const { return command("set -eu\n" + script); }
    // The first of the tools that this machine does not have.
    std::string missing(const std::string& tools) const {
        return sh("for tool in " + tools + "; do command -v $tool >&2 || echo $tool; done").out;
    }
};

// What is left of a file: 's' for a symbol table, 'd' for debugging information, 'c' for .comment,
// and 'p' and 'u' for the names of the two functions that nobody calls from outside.
std::string what_is_left(const std::string& bytes) {
    std::set<char> left;
    for (const std::string& name : section_names(bytes))
        for (const char* const begin : {".symtab", ".debug_", ".comment"})
            if (name.starts_with(begin))
                left.insert(begin[1]);
    for (const std::string name : {"plain", "unused_here"})
        if (section_content(bytes, ".strtab").find('\0' + name + '\0') != name.npos)
            left.insert(name[0]);
    return {left.begin(), left.end()};
}

const char* const strip_rows = R"(
> dynamic | c > -R .text bare | = | section .text is loaded at run time and cannot be removed
> -s static | c > -R '.no?e' bare | = | -R .no?e: only a * at either end can be translated
> --strip-unneeded dynamic | c > --keep-symbol plain dynamic | = | loaded at run time would change
> --strip-unneeded shared | c > -K '*' bare | = | symbol *: without -w a * cannot be translated
> --strip-all relocs | c > -R '.note*' bare | = | section .note.gnu.build-id is loaded at run time
> link | c | | dynamic > -g image.exe | = | symbols of a PE image go together; use --strip-all
> image.exe | > -g groups.a | = | groups.a(group.o): its section groups would not fit
> -N a image.exe | = | a PE image takes none of -R, -K and -N > --strip-unneeded triple.o | cps
> -g dynamic | cpsu > -po out dynamic -R .gnu.switches.text.lipo_info && mv out dynamic | c
> -S shared | cps > -o out dynamic bare | = | with -o there can be only one file > -g triple.o | cps
> static -d -R .comment | psu | | static > -g -N factor triple.o | = | relocations would be lost
> -N plain dynamic | cdsu > -g app.c dynamic | cpsu | app.c: file format not recognized
> -g -w -N 'pl*' -N 'unused*' static | cs > appended | = | the data appended to it would be lost
> -K plain static | cps > --remove-section=.comment --remove-section .note dynamic |
> -K plain relocs | = | relocations would be lost > -g -R .symtab bare | = | .symtab cannot be named
> -N plain bare | = | loaded at run time would change > bare -N | = | option -N needs a value | bare
> -K a -N b bare | = | -K and -N do not go together > -g cut | = | it ends before its contents do
> -x bare | = | option -x has no translation > triple.o | = | cannot be linked; use --strip-debug
> --strip-debug --remove-section=.comment --remove-section=.note -D -R '.gnu.lto_*' -R
  '.gnu.debuglto_*' -N __gnu_lto_slim -N __gnu_lto_v1 archive.a | > @arguments | | | blank name
> -g missing dynamic | cpsu | missing: no such file > -v -- --strip-debug | c)";

// Each row under another shell, or in a long run under all.
TEST(as_strip, takes_each_kind_of_file) {
    const strip_place place;
    if (const std::string absent = place.missing("cc c++ ar dash bash busybox"); !absent.empty())
        GTEST_SKIP() << "this machine lacks " << absent;
    ASSERT_EQ(place.sh(subjects).err, "");
    place.put("image.exe", build_pe({}).bytes);
    const words shells = {"dash", "bash", "busybox sh"};
    const std::vector<words> rows = rows_of(strip_rows);
    for (size_t i = 0; i < rows.size() * (stress_factor() > 1 ? shells.size() : 1); ++i) {
        const words& row = rows[i % rows.size()];
        const std::string &left = row[1], &refusal = row[2],
                          file = row[3].empty() ? split(row[0]).back() : row[3];
        const std::string line =
            shells[(i + i / rows.size()) % shells.size()] + " ../bin/strip " + row[0];
        SCOPED_TRACE(line);
        const run_result result = place.sh("FILE='" + file + "'" + setup + line + trial);
        const file_state before = place.state(file), after = place.state("work/" + file);
        const bool is_changed = left != "=";
        EXPECT_EQ(result.status, !refusal.empty());
        EXPECT_NE(result.err.find(refusal), std::string::npos) << result.err;
        EXPECT_TRUE(result.out.ends_with("12\n")) << "it does not run: " << result.err;
        EXPECT_EQ(is_changed ? what_is_left(after.bytes) : "=", left);
        EXPECT_EQ(after.bytes != before.bytes, is_changed);
        EXPECT_EQ(after.mode, before.mode);
        EXPECT_EQ(after.modified != before.modified,
                  is_changed && row[0][0] != '@' && !row[0].starts_with("-p"));
    }
}

// The tools that call the wrapper, as they are on this machine. Each installs a program, and may
// be a library, below dest, which have to run and to be stripped.
using caller_row = std::array<const char*, 4>; // name, what is left, tools, script
const caller_row caller_rows[] = {
    {"cmake", "c", "cmake", R"(
printf 'cmake_minimum_required(VERSION 3.20)\nproject(app C)\n' >CMakeLists.txt
printf 'add_executable(app app.c triple_library.c)\ninstall(TARGETS app)\n' >>CMakeLists.txt
cmake -S . -B b -DCMAKE_BUILD_TYPE=Debug -DCMAKE_STRIP="$STRIP" && cmake --build b
DESTDIR=$PWD/dest cmake --install b --strip)"},
    {"install", "c", "install", R"(
cc -g app.c triple_library.c -o app && install -D -s --strip-program="$STRIP" app dest/bin/app)"},
    {"dh_strip", "", "dh_strip objcopy", R"(
mkdir -p debian/app/usr/bin debian/app/usr/lib
printf '%s\n' 'Source: app' 'Maintainer: A <a@example.org>' \
    'Build-Depends: debhelper-compat (= 13)' '' 'Package: app' 'Architecture: any' >debian/control
cd debian/app/usr && cc -g -shared -fPIC -Wl,--build-id $OLDPWD/triple_library.c -o lib/libtriple.so
cc -g $OLDPWD/app.c -Wl,--build-id '-Wl,-rpath,$ORIGIN/../lib' -o bin/app -Llib -ltriple && cd -
PATH=${STRIP%/*}:$PATH dh_strip && mv debian/app dest)"},
    {"rpm", "", "rpmbuild objdump", R"(
export RPM_BUILD_ROOT="$PWD/dest"
mkdir -p dest/bin && cc -g app.c triple_library.c -o dest/bin/app
/usr/lib/rpm/brp-strip "$STRIP" && readelf -SW dest/bin/app | grep -q symtab
"$STRIP" dest/bin/app && /usr/lib/rpm/brp-strip-comment-note "$STRIP" `command -v objdump`)"},
};

struct caller : testing::TestWithParam<caller_row> {};

TEST_P(caller, strips_what_it_installs) {
    const auto [name, left, tools, script] = GetParam();
    const strip_place place;
    if (const std::string absent = place.missing("cc readelf "s + tools); !absent.empty())
        GTEST_SKIP() << "this machine lacks " << absent;
    const run_result result = place.sh("STRIP=$PWD/bin/strip; exec >&2"s + script);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(place.sh("$(find dest -name app -type f)").out, "12\n");
    for (const std::string& file : split(place.sh("find dest -name app -o -name '*.so'").out))
        EXPECT_EQ(what_is_left(place.get(file)), left) << file;
}

INSTANTIATE_TEST_SUITE_P(of_the_wrapper, caller, testing::ValuesIn(caller_rows),
                         [](const auto& one) { return one.param[0]; });

} // namespace
