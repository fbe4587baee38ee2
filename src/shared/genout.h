// Diagnostics: every message that objtrim writes, the counting of errors, and the only way out of
// the program.
//
// A message is one line on the standard error stream: program name, level word, text. The text of
// a format is given a new-line unless the format already ends in one.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#if defined(__MINGW32__)
#define GEN_PRINTF(format_at, first_at) __attribute__((format(gnu_printf, format_at, first_at)))
#else
#define GEN_PRINTF(format_at, first_at) __attribute__((format(printf, format_at, first_at)))
#endif

// Exit statuses.
constexpr int status_failure = 1;
constexpr int status_no_memory = 3;

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

// Messages so far, by level, and those of level 0 to 3 together: the exit status depends on them.
extern uint32_t gen_error_count[gen_level_count];
extern uint32_t gen_total_errors;

// Selects the upper-case level words ("ERROR: FATAL" for "fatal"). Never switched off again.
extern bool gen_prefixed_messages;

// The name that messages begin with; none when empty. The text is not copied.
void gen_set_program_name(const char* name);
const char* gen_program_name();

// Routine slots: a host of this code may divert messages, bare text, the event log and the exit.
using gen_message_routine = void (*)(uint32_t level, const char* format, va_list arguments);
extern gen_message_routine gen_message_slot;           // all messages but those of gen_assert
extern gen_message_routine gen_assertion_message_slot; // those of gen_assert
extern int (*gen_raw_print_slot)(const char* format, va_list arguments);
extern void (*gen_event_log_slot)(const char* tag, const char* text); // text is cut at 4095 bytes
extern void (*gen_crash_dump_slot)(const char* reason);
extern void (*gen_exit_slot)(int status);

// The routine that gen_message_slot begins with. `level` is a gen_level, plus GEN_WITH_SYSTEM_TEXT
// if wanted; a level above 6 (100 itself included) is printed without a word and not counted.
// `format` may be null.
void gen_message(uint32_t level, const char* format, va_list arguments);

void gen_error(const char* format, ...) GEN_PRINTF(1, 2);
void gen_system_error(const char* format, ...) GEN_PRINTF(1, 2); // with the system's text
void gen_warning(const char* format, ...) GEN_PRINTF(1, 2);
void gen_info(const char* format, ...) GEN_PRINTF(1, 2);
void gen_plain(const char* format, ...) GEN_PRINTF(1, 2);
// Fatal word and system text, but the program goes on. Leaves the error number 0.
void gen_perror(const char* format, ...) GEN_PRINTF(1, 2);

// These report and end the program with `status`.
[[noreturn]] void gen_fatal(int status, const char* format, ...) GEN_PRINTF(2, 3);
[[noreturn]] void gen_perror_exit(int status, const char* format, ...) GEN_PRINTF(2, 3);

// Runs the registered clean-up handlers and ends the process. Called a second time, from such a
// handler, it ends the process at once.
[[noreturn]] void gen_exit(int status);
[[noreturn]] void gen_exit_success();

// Reports a failed assertion and exits with status 1. `expression` null or "x": the report leaves
// it out. `number` other than 0 is shown in brackets. `file` and `line` are fixed by the caller:
// users see them, so they do not follow the compiler's.
void gen_assert(bool condition, const char* expression, const char* file, int line,
                int32_t number = 0);
void gen_assert_message(bool condition, const char* format, ...) GEN_PRINTF(2, 3);

// Reports that `size` bytes could not be had and exits with status 3. Allocates nothing.
[[noreturn]] void gen_out_of_memory(uint64_t size);

// Called with a fixed tag before each fatal end, for a debugger to stop at. Returns 0.
int gen_break_hook(const char* tag);

// `value` as text in `buffer` (at least 21 bytes): 'x' hexadecimal, 'd' signed decimal.
char* gen_str64(char* buffer, int64_t value, char format);

// Characters written, or -1 for a null stream or format.
int gen_fprintf(FILE* stream, const char* format, ...) GEN_PRINTF(2, 3);
int gen_vfprintf(FILE* stream, const char* format, va_list arguments) GEN_PRINTF(2, 0);
// A new string of exactly the needed length, released with gen_free.
char* gen_asprintf(const char* format, ...) GEN_PRINTF(1, 2);
char* gen_vasprintf(const char* format, va_list arguments) GEN_PRINTF(1, 0);
// Bare text to the standard error stream, flushed.
int gen_eprintf(const char* format, ...) GEN_PRINTF(1, 2);
