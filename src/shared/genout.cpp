// Diagnostics: composing and counting messages, assertions, and the exit path.
//
// A message is composed in a fixed buffer and goes out in one write, so that lines of parallel runs
// do not mix and nothing is allocated to report that memory is short. Only a message that is too
// long for the buffer is written piece by piece.
#include "shared/genout.h"

#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "shared/genmem.h"
#include "shared/host.h"

uint32_t gen_error_count[gen_level_count];
uint32_t gen_total_errors;
bool gen_prefixed_messages;

namespace {

// Indexed by level; null where a level has no word.
constexpr const char* prefixes[] = {nullptr,   "disaster", "fatal", "error",
                                    "warning", "info",     nullptr};
constexpr const char* lucent_prefixes[] = {
    "ERROR", "ERROR: DISASTER", "ERROR: FATAL", "ERROR", "WARNING", "INFO", nullptr};
static_assert(sizeof prefixes / sizeof prefixes[0] == gen_level_count);
static_assert(sizeof lucent_prefixes / sizeof lucent_prefixes[0] == gen_level_count);

constexpr uint32_t lowest_harmless_level = GEN_WARNING;
constexpr size_t log_capacity = 4095; // characters of a message that reach the event log

const char* program_name = "";
bool exit_in_progress;

// One message under construction. Text that does not fit is dropped and remembered as cut.
struct message_text {
    char text[log_capacity + 2] = {}; // room for a new-line and the NUL
    size_t length = 0;
    bool cut = false;
};

void append(message_text& message, const char* text) {
    const size_t wanted = strlen(text);
    const size_t room = log_capacity - message.length;
    const size_t taken = wanted < room ? wanted : room;
    memcpy(message.text + message.length, text, taken);
    message.length += taken;
    message.cut = message.cut || taken < wanted;
}

void append_formatted(message_text& message, const char* format, va_list arguments) {
    const size_t room = log_capacity - message.length;
    const int wanted = vsnprintf(message.text + message.length, room + 1, format, arguments);
    if (wanted < 0)
        return;
    const size_t taken = static_cast<size_t>(wanted) < room ? static_cast<size_t>(wanted) : room;
    message.length += taken;
    message.cut = message.cut || taken < static_cast<size_t>(wanted);
}

bool ends_in_new_line(const char* format) {
    const size_t length = strlen(format);
    return length != 0 && format[length - 1] == '\n';
}

// The parts of a message, as they follow each other on the line.
struct message_parts {
    const char* name = nullptr;
    const char* word = nullptr;
    const char* format = nullptr;
    const char* system_text = nullptr;
    bool new_line = false;
};

void write_in_pieces(const message_parts& parts, va_list arguments) {
    if (parts.name)
        fprintf(stderr, "%s: ", parts.name);
    if (parts.word)
        fprintf(stderr, "%s: ", parts.word);
    if (parts.format)
        vfprintf(stderr, parts.format, arguments);
    if (parts.system_text)
        fprintf(stderr, ": %s", parts.system_text);
    if (parts.new_line)
        fputc('\n', stderr);
}

void write_message(const message_parts& parts, va_list arguments) {
    message_text message;
    if (parts.name) {
        append(message, parts.name);
        append(message, ": ");
    }
    if (parts.word) {
        append(message, parts.word);
        append(message, ": ");
    }
    if (parts.format) {
        va_list again;
        va_copy(again, arguments);
        append_formatted(message, parts.format, again);
        va_end(again);
    }
    if (parts.system_text) {
        append(message, ": ");
        append(message, parts.system_text);
    }
    if (message.cut) {
        write_in_pieces(parts, arguments);
    } else {
        message.text[message.length] = '\n';
        fwrite(message.text, 1, message.length + (parts.new_line ? 1 : 0), stderr);
    }
    fflush(stderr);
    message.text[message.length] = '\0';
    if (gen_event_log_slot)
        gen_event_log_slot(parts.word ? parts.word : "DOMESSAGE Unknown Code", message.text);
}

int print_to_error_stream(const char* format, va_list arguments) {
    const int written = gen_vfprintf(stderr, format, arguments);
    fflush(stderr);
    return written;
}

void end_process(int status) {
    if (exit_in_progress)
        _Exit(status);
    exit_in_progress = true;
    gen_stop_freeing();
    exit(status);
}

GEN_PRINTF(3, 4)
void report(gen_message_routine slot, uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    slot(level, format, arguments);
    va_end(arguments);
}

[[noreturn]] void end_after_assertion() {
    if (gen_crash_dump_slot)
        gen_crash_dump_slot("encountered an assertion failure");
    gen_exit(status_failure);
}

} // namespace

gen_message_routine gen_message_slot = gen_message;
gen_message_routine gen_assertion_message_slot = gen_message;
int (*gen_raw_print_slot)(const char*, va_list) = print_to_error_stream;
void (*gen_event_log_slot)(const char*, const char*);
void (*gen_crash_dump_slot)(const char*);
void (*gen_exit_slot)(int) = end_process;

void gen_set_program_name(const char* name) {
    program_name = name ? name : "";
}

const char* gen_program_name() {
    return program_name;
}

void gen_message(uint32_t level, const char* format, va_list arguments) {
    const int saved_errno = errno;
    message_parts parts;
    parts.format = format;
    const bool system_text_wanted = level > GEN_WITH_SYSTEM_TEXT;
    if (system_text_wanted)
        level -= GEN_WITH_SYSTEM_TEXT;
    if (level < gen_level_count) {
        parts.word = gen_prefixed_messages ? lucent_prefixes[level] : prefixes[level];
        ++gen_error_count[level];
        if (level < lowest_harmless_level)
            ++gen_total_errors;
    }
    if (level != GEN_PLAIN && *program_name)
        parts.name = program_name;
    if (system_text_wanted && saved_errno != 0)
        parts.system_text = strerror(saved_errno);
    parts.new_line = parts.system_text || (format && !ends_in_new_line(format));

    fflush(stdout); // so that the message follows the output that came before it
    write_message(parts, arguments);
    errno = parts.system_text ? 0 : saved_errno;
}

#define GEN_FORWARD(level)                                                                         \
    va_list arguments;                                                                             \
    va_start(arguments, format);                                                                   \
    gen_message_slot(level, format, arguments);                                                    \
    va_end(arguments)

void gen_error(const char* format, ...) {
    GEN_FORWARD(GEN_ERROR);
}

void gen_system_error(const char* format, ...) {
    GEN_FORWARD(GEN_ERROR + GEN_WITH_SYSTEM_TEXT);
}

void gen_warning(const char* format, ...) {
    GEN_FORWARD(GEN_WARNING);
}

void gen_info(const char* format, ...) {
    GEN_FORWARD(GEN_INFO);
}

void gen_plain(const char* format, ...) {
    GEN_FORWARD(GEN_PLAIN);
}

void gen_perror(const char* format, ...) {
    GEN_FORWARD(GEN_FATAL + GEN_WITH_SYSTEM_TEXT);
}

void gen_fatal(int status, const char* format, ...) {
    GEN_FORWARD(status != 0 ? GEN_FATAL : GEN_BARE);
    gen_exit(status);
}

void gen_perror_exit(int status, const char* format, ...) {
    gen_break_hook("PERROR_EXIT");
    GEN_FORWARD(GEN_FATAL + GEN_WITH_SYSTEM_TEXT);
    gen_exit(status);
}

#undef GEN_FORWARD

void gen_exit(int status) {
    gen_exit_slot(status);
    _Exit(status); // a replaced slot must not return, but if it does the program ends all the same
}

void gen_exit_success() {
    gen_exit(0);
}

void gen_assert(bool condition, const char* expression, const char* file, int line,
                int32_t number) {
    if (condition)
        return;
    gen_break_hook("ASSERT");
    char number_text[32] = "";
    if (number != 0)
        snprintf(number_text, sizeof number_text, "[%" PRId32 "] ", number);
    const char* in = *program_name ? " in " : "";
    if (expression && strcmp(expression, "x") != 0)
        report(gen_assertion_message_slot, GEN_PLAIN,
               "Assertion (%s) %sfailed in '%s' on line %d%s%s", expression, number_text, file,
               line, in, program_name);
    else
        report(gen_assertion_message_slot, GEN_PLAIN, "Assertion %sfailed in '%s' on line %d%s%s",
               number_text, file, line, in, program_name);
    end_after_assertion();
}

void gen_assert_message(bool condition, const char* format, ...) {
    if (condition)
        return;
    gen_break_hook("GEN_ASSERT");
    char* marked = gen_asprintf("assertion: %s", format);
    va_list arguments;
    va_start(arguments, format);
    gen_message_slot(GEN_BARE, marked, arguments);
    va_end(arguments);
    gen_free_slot(marked);
    end_after_assertion();
}

namespace {

// Straight to the descriptor: the streams may need memory. Only an interrupted write is repeated.
void write_raw(const char* text, size_t length) {
    while (host_write(host_error_descriptor, text, static_cast<uint32_t>(length)) < 0 &&
           errno == EINTR) {
    }
}

} // namespace

void gen_out_of_memory(uint64_t size) {
    static constexpr char before[] = "fatal: Out of memory (0x";
    static constexpr char after[] = " bytes requested)\n";
    char digits[16];
    for (unsigned i = 0; i < sizeof digits; ++i)
        digits[i] = "0123456789ABCDEF"[size >> (4 * (sizeof digits - 1 - i)) & 0xF];
    if (*program_name) {
        write_raw(program_name, strlen(program_name));
        write_raw(": ", 2);
    }
    write_raw(before, sizeof before - 1);
    write_raw(digits, sizeof digits);
    write_raw(after, sizeof after - 1);
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

int gen_fprintf(FILE* stream, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = gen_vfprintf(stream, format, arguments);
    va_end(arguments);
    return written;
}

int gen_vfprintf(FILE* stream, const char* format, va_list arguments) {
    return stream && format ? vfprintf(stream, format, arguments) : -1;
}

char* gen_asprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* text = gen_vasprintf(format, arguments);
    va_end(arguments);
    return text;
}

char* gen_vasprintf(const char* format, va_list arguments) {
    va_list counting;
    va_copy(counting, arguments);
    const int length = vsnprintf(nullptr, 0, format, counting);
    va_end(counting);
    const size_t size = length < 0 ? 1 : static_cast<size_t>(length) + 1;
    char* text = static_cast<char*>(gen_calloc_slot(1, size));
    vsnprintf(text, size, format, arguments);
    return text;
}

int gen_eprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = gen_raw_print_slot(format, arguments);
    va_end(arguments);
    return written;
}
