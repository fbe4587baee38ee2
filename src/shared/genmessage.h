// Diagnostics: every message that objtrim writes, and the counting of errors.
//
// A message is one line on the standard error stream: program name, level word, text. The text of
// a format is given a new-line unless the format already ends in one.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#if defined(__MINGW32__)
#define GEN_PRINTF(format_at, first_at) __attribute__((format(gnu_printf, format_at, first_at)))
#else
#define GEN_PRINTF(format_at, first_at) __attribute__((format(printf, format_at, first_at)))
#endif

// Message levels. Adding GEN_WITH_SYSTEM_TEXT to a level of 1 to 6 appends the system's text for
// the current error number.
enum gen_level : uint32_t {
    GEN_BARE = 0,
    GEN_DISASTER = 1,
    GEN_FATAL = 2,
    GEN_ERROR = 3,
    GEN_WARNING = 4,
    GEN_INFO = 5,
    GEN_PLAIN = 6,
    GEN_WITH_SYSTEM_TEXT = 100
};
constexpr uint32_t gen_level_count = 7;

// What a message slot begins with. `level` is a gen_level, plus GEN_WITH_SYSTEM_TEXT if wanted; a
// level above 6 (100 itself included) is printed without a word and not counted. `format` may be
// null.
void gen_message(uint32_t level, const char* format, va_list arguments);
using gen_message_routine = void (*)(uint32_t level, const char* format, va_list arguments);
int gen_print_raw(const char* format, va_list arguments);
[[noreturn]] void gen_end_process(int status); // shared/genexit.cpp

// Where messages go, what they have come to, and what else a host of this code may divert.
struct gen_message_sink {
    // By level, and those of level 0 to 3 together: the exit status depends on them.
    uint32_t gen_error_count[gen_level_count] = {};
    uint32_t gen_total_errors = 0;
    bool gen_prefixed_messages = false; // the upper-case level words ("ERROR: FATAL" for "fatal")
    std::string* gathered = nullptr;    // takes what else goes to the standard error stream

    gen_message_routine message = gen_message;           // all messages but those of gen_assert
    gen_message_routine assertion_message = gen_message; // those of gen_assert
    int (*raw_print)(const char* format, va_list arguments) = gen_print_raw;
    void (*event_log)(const char* tag, const char* text) = nullptr; // text is cut at 4095 bytes
    void (*crash_dump)(const char* reason) = nullptr;
    void (*exit)(int status) = gen_end_process;
};

// The sink of this thread; each begins with the process's own.
gen_message_sink& gen_sink();
void gen_use_sink(gen_message_sink& sink);

// The name that messages begin with; none when empty. The text is not copied.
void gen_set_program_name(const char* name);
const char* gen_program_name();

void gen_error(const char* format, ...) GEN_PRINTF(1, 2);
void gen_system_error(const char* format, ...) GEN_PRINTF(1, 2); // with the system's text
void gen_warning(const char* format, ...) GEN_PRINTF(1, 2);
void gen_info(const char* format, ...) GEN_PRINTF(1, 2);
void gen_plain(const char* format, ...) GEN_PRINTF(1, 2);
// Fatal word and system text, but the program goes on. Leaves the error number 0.
void gen_perror(const char* format, ...) GEN_PRINTF(1, 2);
// Bare text to the standard error stream, flushed.
int gen_eprintf(const char* format, ...) GEN_PRINTF(1, 2);

// Characters written, or -1 for a null stream or format.
int gen_fprintf(FILE* stream, const char* format, ...) GEN_PRINTF(2, 3);
int gen_vfprintf(FILE* stream, const char* format, va_list arguments) GEN_PRINTF(2, 0);
// A new string of exactly the needed length, released with gen_free.
char* gen_asprintf(const char* format, ...) GEN_PRINTF(1, 2);
char* gen_vasprintf(const char* format, va_list arguments) GEN_PRINTF(1, 0);
