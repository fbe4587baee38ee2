// The tools that call the wrapper, as they are on this machine. Each installs a program, which has
// to run and to be stripped.
//
// Not on Windows: the wrapper is a shell script.
#include <gtest/gtest.h>

#include "support/strip_place.h"

namespace {

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
