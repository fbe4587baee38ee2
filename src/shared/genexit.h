// The ways out of the program: fatal messages, failed assertions, exhausted memory, and the one
// exit that they all take.
#pragma once

#include <cstdint>
#include <functional>

#include "shared/genmessage.h"

// Exit statuses.
constexpr int status_failure = 1;
constexpr int status_no_memory = 3;

// What is to be done when the process ends while this lives. It belongs to the main thread.
struct gen_exit_handler {
    explicit gen_exit_handler(std::function<void()> routine);
    ~gen_exit_handler();
    gen_exit_handler(const gen_exit_handler&) = delete;
    gen_exit_handler& operator=(const gen_exit_handler&) = delete;

    std::function<void()> what;
    gen_exit_handler* next;
};

// Runs the handlers, the latest first, and ends the process. Called a second time, from such a
// handler, it ends the process at once.
[[noreturn]] void gen_exit(int status);
[[noreturn]] void gen_exit_success();

// These report and end the program with `status`.
[[noreturn]] void gen_fatal(int status, const char* format, ...) GEN_PRINTF(2, 3);
[[noreturn]] void gen_perror_exit(int status, const char* format, ...) GEN_PRINTF(2, 3);

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
