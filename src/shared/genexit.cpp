// The ways out. However it comes to that, handlers find everything as it was: nothing is unwound,
// and nothing is released any more.
#include "shared/genexit.h"

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "shared/genmem.h"
#include "shared/host.h"

namespace {

std::atomic<bool> exit_in_progress;
gen_exit_handler* handlers;

GEN_PRINTF(3, 4)
void report(gen_message_routine slot, uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    slot(level, format, arguments);
    va_end(arguments);
}

[[noreturn]] void end_after_assertion() {
    if (gen_sink().crash_dump)
        gen_sink().crash_dump("encountered an assertion failure");
    gen_exit(status_failure);
}

// Straight to the descriptor: the streams may need memory. Only an interrupted write is repeated.
void write_raw(std::string_view text) {
    while (host_write(host_error_descriptor, text.data(), static_cast<uint32_t>(text.size())) < 0 &&
           errno == EINTR) {
    }
}

} // namespace

gen_exit_handler::gen_exit_handler(std::function<void()> routine)
    : what(std::move(routine)), next(std::exchange(handlers, this)) {}

gen_exit_handler::~gen_exit_handler() {
    gen_exit_handler** link = &handlers;
    while (*link != this && *link != nullptr)
        link = &(*link)->next;
    if (*link == this)
        *link = next;
}

void gen_end_process(int status) {
    if (exit_in_progress.exchange(true))
        _Exit(status);
    gen_stop_freeing();
    while (const gen_exit_handler* const handler = handlers) {
        handlers = handler->next;
        handler->what();
    }
    exit(status);
}

void gen_exit(int status) {
    gen_sink().exit(status);
    _Exit(status); // a replaced slot must not return, but if it does the program ends all the same
}

void gen_exit_success() {
    gen_exit(0);
}

void gen_fatal(int status, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gen_sink().message(status != 0 ? GEN_FATAL : GEN_BARE, format, arguments);
    va_end(arguments);
    gen_exit(status);
}

void gen_perror_exit(int status, const char* format, ...) {
    gen_break_hook("PERROR_EXIT");
    va_list arguments;
    va_start(arguments, format);
    gen_sink().message(GEN_FATAL + GEN_WITH_SYSTEM_TEXT, format, arguments);
    va_end(arguments);
    gen_exit(status);
}

void gen_assert(bool condition, const char* expression, const char* file, int line,
                int32_t number) {
    if (condition)
        return;
    gen_break_hook("ASSERT");
    char number_text[32] = "";
    if (number != 0)
        snprintf(number_text, sizeof number_text, "[%" PRId32 "] ", number);
    const char* const name = gen_program_name();
    const char* const in = *name ? " in " : "";
    const gen_message_routine slot = gen_sink().assertion_message;
    if (expression && strcmp(expression, "x") != 0)
        report(slot, GEN_PLAIN, "Assertion (%s) %sfailed in '%s' on line %d%s%s", expression,
               number_text, file, line, in, name);
    else
        report(slot, GEN_PLAIN, "Assertion %sfailed in '%s' on line %d%s%s", number_text, file,
               line, in, name);
    end_after_assertion();
}

void gen_assert_message(bool condition, const char* format, ...) {
    if (condition)
        return;
    gen_break_hook("GEN_ASSERT");
    char* marked = gen_asprintf("assertion: %s", format);
    va_list arguments;
    va_start(arguments, format);
    gen_sink().message(GEN_BARE, marked, arguments);
    va_end(arguments);
    gen_free_slot(marked);
    end_after_assertion();
}

void gen_out_of_memory(uint64_t size) {
    char digits[16];
    for (unsigned i = 0; i < sizeof digits; ++i)
        digits[i] = "0123456789ABCDEF"[size >> (4 * (sizeof digits - 1 - i)) & 0xF];
    if (const char* const name = gen_program_name(); *name) {
        write_raw(name);
        write_raw(": ");
    }
    write_raw("fatal: Out of memory (0x");
    write_raw({digits, sizeof digits});
    write_raw(" bytes requested)\n");
    gen_break_hook("OUT_OF_MEM");
    gen_exit(status_no_memory);
}

int gen_break_hook(const char*) {
    return 0;
}

char* gen_str64(char* buffer, int64_t value, char format) {
    if (!buffer)
        gen_fatal(status_failure, "gen_str64(): Buffer to fill is NULL");
    if (format == 'x')
        snprintf(buffer, 17, "%" PRIx64, static_cast<uint64_t>(value));
    else if (format == 'd')
        snprintf(buffer, 21, "%" PRId64, value);
    else
        gen_fatal(status_failure, "gen_str64(): Unrecognized format character");
    return buffer;
}
