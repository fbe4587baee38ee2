// Messages as they appear, their counting, the ways out, and what streams say when they fail.
#include <cerrno>
#include <tuple>
#include <unistd.h>

#include "shared/genexit.h"
#include "shared/genmem.h"
#include "shared/genmessage.h"
#include "support/child.h"

namespace {

void say(uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gen_sink().message(level, format, arguments);
    va_end(arguments);
}

TEST(genmessage, levels_have_words_in_both_styles_and_are_counted) {
    // The last: the error number that is left, and how many of each level, and of all errors.
    static const std::tuple<uint32_t, const char*, const char*, const char*> rows[] = {
        {0, "objtrim: n 7", "objtrim: ERROR: n 7", "21 1000000 1"},
        {1, "objtrim: disaster: n 7", "objtrim: ERROR: DISASTER: n 7", "21 0100000 1"},
        {2, "objtrim: fatal: n 7", "objtrim: ERROR: FATAL: n 7", "21 0010000 1"},
        {3, "objtrim: error: n 7", "objtrim: ERROR: n 7", "21 0001000 1"},
        {4, "objtrim: warning: n 7", "objtrim: WARNING: n 7", "21 0000100 0"},
        {5, "objtrim: info: n 7", "objtrim: INFO: n 7", "21 0000010 0"},
        {6, "n 7", "n 7", "21 0000001 0"},
        {100, "objtrim: n 7", "objtrim: n 7", "21 0000000 0"}, // of no level
        {104, "objtrim: warning: n 7: Is a directory", "objtrim: WARNING: n 7: Is a directory",
         "0 0000100 0"},
    };
    for (const auto& [level, plain, prefixed, counts] : rows)
        for (const bool with_prefixes : {false, true}) {
            const auto body = [&, level = level] {
                gen_sink().gen_prefixed_messages = with_prefixes;
                errno = EISDIR;
                say(level, "n %d", 7);
                gen_eprintf("%d ", errno);
                for (const uint32_t count : gen_sink().gen_error_count)
                    gen_eprintf("%u", count);
                gen_eprintf(" %u", gen_sink().gen_total_errors);
            };
            expect_text(body, std::string(with_prefixes ? prefixed : plain) + "\n" + counts);
        }
    for (size_t length = 4070; length < 4100; ++length) { // the usual room ends among them
        const std::string longer(length, 'x');
        expect_text([&] { gen_error("%s", longer.c_str()); }, "objtrim: error: " + longer + "\n");
    }
    expect_text([] { gen_set_program_name(nullptr), gen_perror("x"); }, "fatal: x\n");
}

TEST(genmessage, fatal_ends_and_failed_assertions) {
    const auto exhaust = [] { // in its own words whatever the style, uncounted, without memory
        gen_sink().gen_prefixed_messages = true;
        gen_calloc_slot = [](uint64_t, uint64_t) -> void* { _exit(60); };
        gen_sink().exit = [](int status) { _exit(gen_sink().gen_total_errors == 0 ? status : 61); };
        gen_out_of_memory(UINT64_MAX - 0x10);
    };
    const auto print = [] { // a message is behind earlier output
        dup2(STDERR_FILENO, STDOUT_FILENO);
        printf("work, ");
        gen_perror_exit(7, "x\n");
    };
    const auto leave = [] { // a second exit ends at once, and nothing is freed any more
        static char* const kept = gen_asprintf("%s", "still here, in a block of memory");
        const gen_exit_handler first([] { fputs("the second handler", stderr); });
        const gen_exit_handler second([] {
            gen_free_slot(kept);
            fputs(kept, stderr);
            gen_exit(6);
        });
        gen_exit_handler([] { fputs("gone before the end", stderr); });
        gen_exit(5);
    };
    const std::tuple<int, std::function<void()>, std::string> rows[] = {
        {0, [] { gen_fatal(0, "x"); }, "objtrim: x\n"},
        {1, [] { gen_set_program_name(""), gen_assert(false, "x", "f", 1, INT32_MIN); },
         "Assertion [-2147483648] failed in 'f' on line 1\n"},
        {1, [] { gen_assert_message(false, "bad %s", "%d"); }, "objtrim: assertion: bad %d\n"},
        {3, exhaust, "objtrim: fatal: Out of memory (0xFFFFFFFFFFFFFFEF bytes requested)\n"},
        {7, print, "work, objtrim: fatal: x\n"},
        {6, leave, "still here, in a block of memory"},
    };
    for (const auto& [status, body, text] : rows)
        expect_end(body, status, text);
}

using genfile = placed_test;

TEST_F(genfile, failures_are_told_in_full_and_streams_end) {
    const gen_stream_ptr stream = stream_of("0123456789"), reader = gen_open("f", "rb");
    gen_stream *const s = stream.get(), *const r = reader.get();
    const std::string denied = std::string(": ") + strerror(host_has_tools ? EBADF : EACCES);
    const std::string invalid = ": Invalid argument", open = "Unable to open ";
    expect_text([&] { EXPECT_EQ(gen_safe_fwrite64(nullptr, "a", 1, 1, r), 0); },
                "objtrim: fatal: Error writing to file" + denied + "\n");
    expect_text([&] { EXPECT_EQ(gen_safe_fclose("a.o", nullptr, nullptr), -1); },
                "objtrim: error: Attempt to close NULL file a.o\n");
    // Nobody builds on a file with a hole in it.
    expect_fatal(
        {{[&] { gen_safe_fflush("f", s), gen_safe_fflush("f", r); },
          "Error writing to 'f'" + denied},
         {[&] { gen_safe_fseek64("f", r, 0, GEN_SEEK_SET); }, "seek failed to 0x0 in 'f'" + denied},
         {[&] { gen_safe_fseek("f", s, -5, GEN_SEEK_SET); }, "seek failed to -5 in 'f'" + invalid},
         {[&] { gen_safe_fseek64(nullptr, s, -11, GEN_SEEK_END); },
          "seek failed to 0xfffffffffffffff5 in file" + invalid},
         {[] { gen_safe_fopen(".", nullptr, "wb"); }, open + ". for output: Is a directory"},
         {[] { gen_safe_fopen("f", "file", "wbx"); }, open + "file 'f' for output: File exists"}});
    gen_stream_ptr closed = gen_open("f", "rb");
    close(closed->descriptor);
    expect_text([&] { EXPECT_EQ(gen_safe_fclose("f", "executable", std::move(closed)), -1); },
                "objtrim: fatal: Error closing executable 'f': Bad file descriptor\n");
    EXPECT_TRUE(gen_open_part(*s, 4, 6) && !gen_open_part(*s, 4, 7) && !gen_open_part(*s, 11, 1));
    const int descriptor = gen_open("f", "ab")->descriptor; // which is free again
    const gen_stream_ptr appended = gen_safe_fopen("f", nullptr, "ab");
    EXPECT_TRUE(appended->descriptor == descriptor && appended->position == 10);
    EXPECT_TRUE(gen_open("private", "wbx") && place.state("private").mode == host_mode(0600));
}

} // namespace
