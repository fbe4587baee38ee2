// Messages as they appear, their counting, the ways out, and memory.
#include <cerrno>
#include <cstring>
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
    for (const auto& row : rows)
        for (const bool prefixed : {false, true}) {
            const auto body = [&] {
                gen_sink().gen_prefixed_messages = prefixed;
                errno = EISDIR;
                say(row.level, "n %d", 7);
                const int error = errno;
                for (const uint32_t count : gen_sink().gen_error_count)
                    gen_eprintf("%u", count);
                gen_eprintf(" %u %d", gen_sink().gen_total_errors, error);
            };
            expect_text(body, std::string(prefixed ? row.prefixed : row.plain) + row.rest);
        }
}

TEST(genmessage, every_way_to_say_something) {
    const std::pair<void (*)(), std::string> rows[] = {
        {[] { gen_error("%s", "x\n"); }, "objtrim: error: x\n\n"},
        {[] { errno = EEXIST, gen_system_error("x"); }, "objtrim: error: x: File exists\n"},
        {[] { gen_warning("x\n"), gen_info("x"), gen_plain("x"); },
         "objtrim: warning: x\nobjtrim: info: x\nx\n"},
        {[] { gen_perror("x"); }, "objtrim: fatal: x\n"}, // there is no error number
        {[] { gen_set_program_name(nullptr), gen_perror("x"); }, "fatal: x\n"},
        {[] { gen_eprintf("%d", gen_eprintf("12345")); }, "123455"},
        {[] { gen_eprintf("%d%d", gen_fprintf(nullptr, "x"), gen_fprintf(stdout, nullptr)); },
         "-1-1"},
        {[] { gen_assert(true, "a", "f", 1), gen_assert_message(true, "x"); }, ""},
    };
    for (const auto& [body, text] : rows)
        expect_text(body, text);
    for (size_t length = 4070; length < 4100; ++length) { // the usual room ends among them
        const std::string longer(length, 'x');
        const auto body = [&] {
            gen_sink().event_log = [](const char* tag, const char* text) {
                gen_eprintf("[%s %zu]", tag, strlen(text));
            };
            gen_error("%s", longer.c_str());
            say(GEN_PLAIN, "x");
        };
        const size_t logged = std::min<size_t>(length + strlen("objtrim: error: "), 4095);
        expect_text(body, "objtrim: error: " + longer + "\n[error " + std::to_string(logged) +
                              "]x\n[DOMESSAGE Unknown Code 1]");
    }
}

TEST(genmessage, fatal_ends_and_failed_assertions) {
    const auto exhaust = [] { // in its own words whatever the style, uncounted, without memory
        gen_sink().gen_prefixed_messages = true;
        gen_calloc_slot = [](uint64_t, uint64_t) -> void* { _exit(60); };
        gen_sink().exit = [](int status) { _exit(gen_sink().gen_total_errors == 0 ? status : 61); };
        gen_out_of_memory(UINT64_MAX - 0x10);
    };
    const auto dump = [] {
        gen_sink().crash_dump = [](const char* reason) { gen_eprintf("%s", reason); };
        gen_sink().exit = [](int) {}; // which must not return, but does
        gen_assert(false, nullptr, "f", 1, 2);
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
    const std::string fatal = "objtrim: fatal: ", much = fatal + "Attempt to allocate 0x";
    const std::string none = fatal + "Out of memory (0x", requested = " bytes requested)\n";
    const std::tuple<int, std::function<void()>, std::string> rows[] = {
        {1, [] { gen_fatal(1, "no '%s'", "a.o"); }, fatal + "no 'a.o'\n"},
        {0, [] { gen_fatal(0, "x"); }, "objtrim: x\n"},
        {1, [] { gen_assert(false, "a % b", "f", 12); },
         "Assertion (a % b) failed in 'f' on line 12 in objtrim\n"},
        {1, [] { gen_assert(false, "x", "f", 1, INT32_MIN); },
         "Assertion [-2147483648] failed in 'f' on line 1 in objtrim\n"},
        {1, [] { gen_set_program_name(""), gen_assert(false, "xx", "f", 1, 3); },
         "Assertion (xx) [3] failed in 'f' on line 1\n"},
        {1, dump,
         "Assertion [2] failed in 'f' on line 1 in objtrim\nencountered an assertion failure"},
        {1, [] { gen_assert_message(false, "bad %s", "%d"); }, "objtrim: assertion: bad %d\n"},
        {3, exhaust, none + "FFFFFFFFFFFFFFEF" + requested},
        {7, print, "work, " + fatal + "x\n"},
        {6, leave, "still here, in a block of memory"},
        {3, [] { gen_calloc(UINT64_MAX - 2, 2); }, much + "fffffffffffffffd * 0x2 bytes\n"},
        {3, [] { gen_calloc(2, INT64_MAX - 1); }, much + "2 * 0x7ffffffffffffffe bytes\n"},
        {3, [] { gen_calloc(INT64_MAX - 1, 2); }, much + "7ffffffffffffffe * 0x2 bytes\n"},
    };
    for (const auto& [status, body, text] : rows)
        expect_end(body, status, text);
    // Not every product is looked at: some fail in the runtime, and a sanitizer's allocator has a
    // report of its own.
    if (!is_sanitized_build())
        expect_end([] { gen_calloc(2, INT64_MAX - 2); }, 3, none + "FFFFFFFFFFFFFFFA" + requested);
    if (!is_sanitized_build())
        expect_end([] { gen_realloc(gen_calloc(1, 1), INT64_MAX); }, 3,
                   none + "7FFFFFFFFFFFFFFF" + requested);
}

// What no file of a run can be large enough for, and what is asked for wrongly.
TEST(genmessage, numbers_that_do_not_fit_are_fatal) {
    elf_access elf = {.elfbits = 32, .elf_byte_order = ELF_ORDER_BIG};
    std::byte entry[8];
    char text[21];
    string_move full, middle = prepare_strings("abc", 4);
    append_string(full, "", UINT32_MAX);
    middle.old.size = UINT64_MAX;
    middle.newstrsize = UINT32_MAX - 1;
    expect_fatal(
        {{[] { elf_index_in(0x10000); }, "Invalid section"},
         {[&] {
              elf_encode_rel(elf, entry, {0, 1ULL << 56});
          },
          "ELF file overflow"},
         {[&] { append_string(full, "", 1); }, "64-bit value truncated"},
         {[&] { move_string(middle, 2); }, "64-bit value truncated"},
         {[] { gen_str64(nullptr, 1, 'x'); }, "gen_str64(): Buffer to fill is NULL"},
         {[&] { gen_str64(text, 1, 'o'); }, "gen_str64(): Unrecognized format character"}});
    EXPECT_STREQ(gen_str64(text, -1, 'x'), "ffffffffffffffff");
    EXPECT_STREQ(gen_str64(text, INT64_MIN, 'd'), "-9223372036854775808");
    const char* end = "";
    EXPECT_EQ(gen_strtoul(nullptr, &end, 10), 0);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(gen_strtoul("4294967295z", &end, 10), -1);
    EXPECT_EQ(*end, 'z');
    EXPECT_EQ(gen_strtoul("0x10", nullptr, 0), gen_strlen("sixteen letters."));
}

// Containers and blocks take from the slots and give back to them, in every form of new and delete.
TEST(genmem, everything_goes_through_the_slots) {
    static int taken, given_back;
    const auto calloc_slot = gen_calloc_slot;
    const auto free_slot = gen_free_slot;
    gen_calloc_slot = [](uint64_t count, uint64_t size) {
        ++taken;
        return gen_calloc(count, size);
    };
    gen_free_slot = [](void* block) {
        given_back += block != nullptr;
        gen_free(block);
    };
    const bool zeroed = *gen_new_block(1).text() == '\0' && !gen_new_block(0).text();
    operator delete(operator new(0));
    operator delete[](operator new[](0));
    operator delete(operator new(1, std::nothrow), 1);
    operator delete[](operator new[](1, std::nothrow), 1);
    char* text = static_cast<char*>(gen_realloc(nullptr, 16));
    memcpy(text, "kept", 5);
    text = static_cast<char*>(gen_realloc_array(text, 1000, 5'000));
    const bool kept = strcmp(text, "kept") == 0;
    const bool released = gen_realloc(text, 0) == nullptr && gen_calloc(0, 100) == nullptr;
    void* block = gen_calloc(1, 0);
    gen_free_and_clear(&block);
    gen_free_and_clear(nullptr);
    gen_calloc_slot = calloc_slot;
    gen_free_slot = free_slot;
    EXPECT_TRUE(zeroed && kept && released && block == nullptr);
    EXPECT_EQ(taken, 6);
    EXPECT_EQ(given_back, 7); // one was not from the slot
}

} // namespace
