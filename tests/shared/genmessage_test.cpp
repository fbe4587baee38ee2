// Messages as they appear, their counting, the ways out, and memory.
#include <cerrno>
#include <tuple>
#include <unistd.h>

#include "objfile/elfrel.h"
#include "objfile/elfsym.h"
#include "shared/genexit.h"
#include "shared/genmem.h"
#include "support/child.h"
#include "util/elfstrings.h"

namespace {

void say(uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gen_sink().message(level, format, arguments);
    va_end(arguments);
}

TEST(genmessage, levels_have_words_in_both_styles_and_are_counted) {
    static const struct {
        uint32_t level;
        const char *plain, *prefixed, *text, *counts; // of the levels, and of all errors
        int error_left = EISDIR;
    } rows[] = {
        {0, "objtrim: ", "objtrim: ERROR: ", "n 7", "1000000 1"},
        {1, "objtrim: disaster: ", "objtrim: ERROR: DISASTER: ", "n 7", "0100000 1"},
        {2, "objtrim: fatal: ", "objtrim: ERROR: FATAL: ", "n 7", "0010000 1"},
        {3, "objtrim: error: ", "objtrim: ERROR: ", "n 7", "0001000 1"},
        {4, "objtrim: warning: ", "objtrim: WARNING: ", "n 7", "0000100 0"},
        {5, "objtrim: info: ", "objtrim: INFO: ", "n 7", "0000010 0"},
        {6, "", "", "n 7", "0000001 0"},
        {100, "objtrim: ", "objtrim: ", "n 7", "0000000 0"}, // of no level
        {102, "objtrim: fatal: ", "objtrim: ERROR: FATAL: ", "n 7: Is a directory", "0010000 1", 0},
    };
    for (const auto& [level, plain, prefixed, text, counts, error_left] : rows)
        for (const bool with_prefixes : {false, true}) {
            int error = 0;
            const std::string said = said_by([&, level = level] {
                gen_sink().gen_prefixed_messages = with_prefixes;
                errno = EISDIR;
                say(level, "n %d", 7);
                error = errno;
                for (const uint32_t count : gen_sink().gen_error_count)
                    gen_eprintf("%u", count);
                gen_eprintf(" %u", gen_sink().gen_total_errors);
            });
            EXPECT_EQ(said, std::string(with_prefixes ? prefixed : plain) + text + "\n" + counts);
            EXPECT_EQ(error, error_left) << said;
        }
}

TEST(genmessage, a_message_may_be_of_any_length) {
    expect_text([] { gen_set_program_name(nullptr), gen_perror("x"); }, "fatal: x\n");
    for (size_t length = 4070; length < 4100; ++length) { // the usual room ends among them
        const std::string longer(length, 'x');
        expect_text([&] { gen_error("%s", longer.c_str()); }, "objtrim: error: " + longer + "\n");
    }
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
        {1, [] { gen_assert(false, "a % b", "f", 12); },
         "Assertion (a % b) failed in 'f' on line 12 in objtrim\n"},
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

// What no file of a run can be large enough for.
TEST(genmessage, numbers_that_do_not_fit_are_fatal) {
    elf_access elf = {.elfbits = 32, .elf_byte_order = ELF_ORDER_BIG};
    std::byte entry[8];
    string_move full, middle = prepare_strings("abc", 4);
    append_string(full, "", UINT32_MAX);
    middle.old.size = UINT64_MAX;
    middle.newstrsize = UINT32_MAX - 1;
    expect_fatal({{[] { elf_index_in(0x10000); }, "Invalid section"},
                  {[&] {
                       elf_encode_rel(elf, entry, {0, 1ULL << 56});
                   },
                   "ELF file overflow"},
                  {[&] { append_string(full, "", 1); }, "64-bit value truncated"},
                  {[&] { move_string(middle, 2); }, "64-bit value truncated"}});
}

} // namespace
