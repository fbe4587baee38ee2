// Messages as they appear on the standard error stream, their counting, and the ways out.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "shared/genexit.h"
#include "shared/genmem.h"
#include "support/child.h"

namespace {

void say(uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gen_sink().message(level, format, arguments);
    va_end(arguments);
}

TEST(genmessage, levels_have_words_in_both_styles_and_are_counted) {
    // Behind the text: the counters of the levels, of all errors, and the error number left behind
    // (21, "Is a directory", unless the text says it).
    static const struct {
        uint32_t level;
        const char *plain, *prefixed, *rest;
    } rows[] = {
        {0, "objtrim: ", "objtrim: ERROR: ", "n 7\n1000000 1 21"},
        {1, "objtrim: disaster: ", "objtrim: ERROR: DISASTER: ", "n 7\n0100000 1 21"},
        {2, "objtrim: fatal: ", "objtrim: ERROR: FATAL: ", "n 7\n0010000 1 21"},
        {3, "objtrim: error: ", "objtrim: ERROR: ", "n 7\n0001000 1 21"},
        {4, "objtrim: warning: ", "objtrim: WARNING: ", "n 7\n0000100 0 21"},
        {5, "objtrim: info: ", "objtrim: INFO: ", "n 7\n0000010 0 21"},
        {6, "", "", "n 7\n0000001 0 21"},
        {100, "objtrim: ", "objtrim: ", "n 7\n0000000 0 21"}, // of no level
        {102, "objtrim: fatal: ", "objtrim: ERROR: FATAL: ", "n 7: Is a directory\n0010000 1 0"},
    };
    for (auto const& row : rows)
        for (bool prefixed : {false, true}) {
            auto const body = [&] {
                gen_sink().gen_prefixed_messages = prefixed;
                errno = EISDIR;
                say(row.level, "n %d", 7);
                int const error = errno;
                for (uint32_t count : gen_sink().gen_error_count)
                    fprintf(stderr, "%u", count);
                fprintf(stderr, " %u %d", gen_sink().gen_total_errors, error);
            };
            expect_text(body, std::string(prefixed ? row.prefixed : row.plain) + row.rest);
        }
}

struct ending {
    void (*body)();
    int status;
    std::string text;
};

void expect_endings(std::initializer_list<ending> endings) {
    for (auto const& [body, status, text] : endings)
        EXPECT_EQ(run_child(body), child_end(status, text));
}

TEST(genmessage, a_message_is_one_whole_line_behind_earlier_output) {
    static std::string const longer(9000, 'x');
    auto const log_and_say = [] {
        gen_sink().event_log = [](const char* tag, const char* text) {
            fprintf(stderr, "[%s %zu]", tag, strlen(text));
        };
        gen_error("%s", longer.c_str());
    };
    auto const print_and_say = [] {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        printf("work, ");
        gen_warning("x\n");
    };
    auto const say_without_name = [] {
        gen_set_program_name(nullptr);
        gen_perror("x");
    };
    expect_endings({
        {log_and_say, child_returned, "objtrim: error: " + longer + "\n[error 4095]"},
        {print_and_say, child_returned, "work, objtrim: warning: x\n"},
        {say_without_name, child_returned, "fatal: x\n"}, // there is no error number
        {[] { say(3, "%s", "x\n"); }, child_returned, "objtrim: error: x\n\n"},
    });
}

TEST(genmessage, fatal_ends_and_failed_assertions) {
    auto const exhaust = [] { // in its own words whatever the style, uncounted, without memory
        gen_sink().gen_prefixed_messages = true;
        gen_calloc_slot = [](uint64_t, uint64_t) -> void* { _exit(60); };
        gen_sink().exit = [](int status) { _exit(gen_sink().gen_total_errors == 0 ? status : 61); };
        gen_out_of_memory(UINT64_MAX - 0x10);
    };
    expect_endings({
        {[] { gen_fatal(1, "no '%s'", "a.o"); }, 1, "objtrim: fatal: no 'a.o'\n"},
        {[] { gen_fatal(0, "x"); }, 0, "objtrim: x\n"},
        {[] { gen_assert(true, "a", "f", 1); }, child_returned, ""},
        {[] { gen_assert(false, "a % b", "f", 12); }, 1,
         "Assertion (a % b) failed in 'f' on line 12 in objtrim\n"},
        {[] { gen_assert(false, "x", "f", 1, INT32_MIN); }, 1,
         "Assertion [-2147483648] failed in 'f' on line 1 in objtrim\n"},
        {[] { gen_assert_message(false, "bad %s", "%d"); }, 1, "objtrim: assertion: bad %d\n"},
        {exhaust, 3, "objtrim: fatal: Out of memory (0xFFFFFFFFFFFFFFEF bytes requested)\n"},
    });
}

TEST(genmessage, exit_again_from_a_handler_ends_at_once_and_frees_nothing) {
    static char* kept;
    auto const body = [] {
        kept = gen_asprintf("%s", "still here, in a block of memory");
        const gen_exit_handler first([] { fputs("the second handler", stderr); });
        const gen_exit_handler second([] {
            gen_free_slot(kept);
            fputs(kept, stderr);
            gen_exit(6);
        });
        gen_exit_handler([] { fputs("gone before the end", stderr); });
        gen_exit(5);
    };
    EXPECT_EQ(run_child(body), child_end(6, "still here, in a block of memory"));
}

} // namespace
