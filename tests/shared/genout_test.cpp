// Messages as they appear on the standard error stream, their counting, and the ways out.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "shared/genmem.h"
#include "shared/genout.h"
#include "support/child.h"

namespace {

void say(uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gen_message_slot(level, format, arguments);
    va_end(arguments);
}

TEST(genout, levels_in_both_styles_with_their_counting) {
    // Behind the text: the counters of the levels, of all errors, and the error number left behind.
    static const struct {
        uint32_t level;
        const char *plain, *prefixed, *rest;
    } rows[] = {
        {0, "objtrim: ", "objtrim: ERROR: ", "n 7\n<1000000 1 2>"},
        {1, "objtrim: disaster: ", "objtrim: ERROR: DISASTER: ", "n 7\n<0100000 1 2>"},
        {2, "objtrim: fatal: ", "objtrim: ERROR: FATAL: ", "n 7\n<0010000 1 2>"},
        {3, "objtrim: error: ", "objtrim: ERROR: ", "n 7\n<0001000 1 2>"},
        {4, "objtrim: warning: ", "objtrim: WARNING: ", "n 7\n<0000100 0 2>"},
        {5, "objtrim: info: ", "objtrim: INFO: ", "n 7\n<0000010 0 2>"},
        {6, "", "", "n 7\n<0000001 0 2>"},
        {7, "objtrim: ", "objtrim: ", "n 7\n<0000000 0 2>"},
        {100, "objtrim: ", "objtrim: ", "n 7\n<0000000 0 2>"},
        {102, "objtrim: fatal: ", "objtrim: ERROR: FATAL: ", "n 7: SYSTEM\n<0010000 1 0>"},
        {104, "objtrim: warning: ", "objtrim: WARNING: ", "n 7: SYSTEM\n<0000100 0 0>"},
        {106, "", "", "n 7: SYSTEM\n<0000001 0 0>"},
        {UINT32_MAX, "objtrim: ", "objtrim: ", "n 7: SYSTEM\n<0000000 0 0>"},
    };
    for (auto const& row : rows)
        for (bool prefixed : {false, true}) {
            std::string expected = std::string(prefixed ? row.prefixed : row.plain) + row.rest;
            if (size_t const at = expected.find("SYSTEM"); at != std::string::npos)
                expected.replace(at, 6, "No such file or directory");
            auto const body = [&] {
                gen_prefixed_messages = prefixed;
                errno = ENOENT;
                say(row.level, "n %d", 7);
                int const error = errno;
                fputc('<', stderr);
                for (uint32_t count : gen_error_count)
                    fprintf(stderr, "%u", count);
                fprintf(stderr, " %u %d>", gen_total_errors, error);
            };
            expect_text(body, expected);
        }
}

TEST(genout, names_new_lines_and_system_texts) {
    static const struct {
        const char* name;
        uint32_t level;
        int error;
        const char *format, *text;
    } rows[] = {
        {nullptr, 3, 0, "x", "error: x\n"},
        {"o%s", 3, 0, "line\n", "o%s: error: line\n"},
        {"o", 3, 0, "%s", "o: error: argument\n\n"}, // the format decides, not what it became
        {"o", 3, 0, nullptr, "o: error: "},
        {"o", 102, 0, "x\n", "o: fatal: x\n"},
        {"o", 102, EISDIR, "x\n", "o: fatal: x\n: Is a directory\n"},
        {"o", 102, EISDIR, nullptr, "o: fatal: : Is a directory\n"},
    };
    for (auto const& row : rows) {
        auto const body = [&] {
            gen_set_program_name(row.name);
            errno = row.error;
            say(row.level, row.format, "argument\n");
        };
        expect_text(body, row.text);
    }
}

TEST(genout, event_log_gets_the_tag_and_at_most_4095_bytes) {
    static const struct {
        uint32_t level;
        size_t length;
        const char *begin, *end, *event;
    } rows[] = {
        {7, 3, "objtrim: ", "\n", "[DOMESSAGE Unknown Code 12 trim: xxx]"},
        {3, 9000, "objtrim: error: ", "\n", "[error 4095 xxxxxxxxx]"},
        {102, 4070, "objtrim: fatal: ", ": Is a directory\n", "[fatal 4095 : Is a di]"},
    };
    for (auto const& row : rows) {
        std::string const text(row.length, 'x');
        auto const body = [&] {
            gen_event_log_slot = [](const char* tag, const char* copy) {
                fprintf(stderr, "[%s %zu %s]", tag, strlen(copy), strchr(copy, 0) - 9);
            };
            errno = EISDIR;
            say(row.level, "%s", text.c_str());
        };
        expect_text(body, row.begin + text + row.end + row.event);
    }
}

TEST(genout, routines_reach_the_slots) {
    auto const body = [] {
        gen_message_slot = [](uint32_t level, const char* format, va_list list) {
            fprintf(stderr, "(%u ", level);
            vfprintf(stderr, format, list);
            fputc(')', stderr);
        };
        gen_assertion_message_slot = [](uint32_t level, const char*, va_list) {
            fprintf(stderr, "assertion %u", level);
        };
        gen_error("%d", 1);
        gen_warning("b");
        gen_info("c");
        gen_plain("d");
        gen_perror("e");
        gen_assert(false, "x", "f", 1);
    };
    EXPECT_EQ(run_child(body), child_end(1, "(3 1)(4 b)(5 c)(6 d)(102 e)assertion 6"));
}

TEST(genout, ends) {
    static const struct {
        const char* name;
        void (*body)();
        int status;
        const char* text;
    } rows[] = {
        {"o", [] { gen_fatal(1, "no '%s'", "a.o"); }, 1, "o: fatal: no 'a.o'\n"},
        {"o", [] { gen_fatal(0, "x"); }, 0, "o: x\n"},
        {"o", [] { (errno = EIO, gen_perror_exit(4, "x")); }, 4,
         "o: fatal: x: Input/output error\n"},
        {"o", [] { gen_exit_success(); }, 0, ""},
        {"o", [] { gen_assert(true, "a", "f", 1); }, child_returned, ""},
        {"o", [] { gen_assert_message(true, "a"); }, child_returned, ""},
        {"o", [] { gen_assert(false, "a % b", "src/f", 12); }, 1,
         "Assertion (a % b) failed in 'src/f' on line 12 in o\n[encountered an assertion failure]"},
        {"o", [] { gen_assert(false, "xx", "f", 1, INT32_MIN); }, 1,
         "Assertion (xx) [-2147483648] failed in 'f' on line 1 in o\n[encountered an assertion "
         "failure]"},
        {"", [] { gen_assert(false, "x", "f", 1, 5); }, 1,
         "Assertion [5] failed in 'f' on line 1\n[encountered an assertion failure]"},
        {nullptr, [] { gen_assert(false, nullptr, "f", 1); }, 1,
         "Assertion failed in 'f' on line 1\n[encountered an assertion failure]"},
        {"o", [] { gen_assert_message(false, "bad %s", "%d"); }, 1,
         "o: assertion: bad %d\n[encountered an assertion failure]"},
        {"o", [] { gen_str64(nullptr, 1, 'x'); }, 1,
         "o: fatal: gen_str64(): Buffer to fill is NULL\n"},
        {"o", [] { gen_str64(std::string(32, ' ').data(), 1, 'X'); }, 1,
         "o: fatal: gen_str64(): Unrecognized format character\n"},
        {"o", [] { gen_out_of_memory(0x1234); }, 3,
         "o: fatal: Out of memory (0x0000000000001234 bytes requested)\n"},
        {"",
         [] { // in its own words whatever the style, uncounted, without memory or the stream
             gen_prefixed_messages = true;
             setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
             gen_calloc_slot = [](uint64_t, uint64_t) -> void* { _exit(60); };
             gen_exit_slot = [](int status) { _exit(gen_total_errors == 0 ? status : 61); };
             gen_out_of_memory(UINT64_MAX - 0x10);
         },
         3, "fatal: Out of memory (0xFFFFFFFFFFFFFFEF bytes requested)\n"},
        {"o",
         [] { // the message follows the ordinary output before it
             dup2(STDERR_FILENO, STDOUT_FILENO);
             printf("work, ");
             gen_warning("x");
         },
         child_returned, "work, o: warning: x\n"},
    };
    for (auto const& row : rows) {
        auto const body = [&] {
            gen_crash_dump_slot = [](const char* why) { fprintf(stderr, "[%s]", why); };
            gen_set_program_name(row.name);
            row.body();
        };
        EXPECT_EQ(run_child(body), child_end(row.status, row.text));
    }
}

TEST(genout, exit_again_from_a_handler_ends_at_once_and_frees_nothing) {
    static char* kept;
    auto const body = [] {
        kept = gen_asprintf("%s", "still here, in a block of memory");
        atexit([] { fputs("the second handler", stderr); });
        atexit([] {
            gen_free_slot(kept);
            fputs(kept, stderr);
            gen_exit(6);
        });
        gen_exit(5);
    };
    EXPECT_EQ(run_child(body), child_end(6, "still here, in a block of memory"));
}

TEST(genout, formatting) {
    char text[32];
    EXPECT_STREQ(gen_str64(text, 0, 'x'), "0");
    EXPECT_STREQ(gen_str64(text, -0xABC, 'x'), "fffffffffffff544");
    EXPECT_STREQ(gen_str64(text, INT64_MIN, 'd'), "-9223372036854775808");
    std::string const longer(70000, 'y');
    char* const made = gen_asprintf("%s%d", longer.c_str(), 5);
    EXPECT_EQ(made, longer + "5");
    gen_free_slot(made);
    EXPECT_EQ(gen_fprintf(nullptr, "x"), -1);
    EXPECT_EQ(run_child([] { _exit(gen_eprintf("a%s", "b")); }), child_end(2, "ab"));
}

} // namespace
