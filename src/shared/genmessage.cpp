// Composing and counting messages.
//
// A message goes out in one write, so that lines of parallel runs do not mix. It is composed in a
// fixed buffer: only one that is too long for it takes memory.
#include "shared/genmessage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "shared/genmem.h"

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
gen_message_sink process_sink;
thread_local gen_message_sink* thread_sink = &process_sink;

// One message under construction. What does not fit is counted all the same.
struct message_text {
    char* text = nullptr;
    size_t room = 0; // without the NUL
    size_t length = 0;
};

void append_formatted(message_text& message, const char* format, va_list arguments) {
    const size_t at = std::min(message.length, message.room);
    const int added = vsnprintf(message.text + at, message.room - at + 1, format, arguments);
    message.length += static_cast<size_t>(std::max(added, 0));
}

GEN_PRINTF(2, 3)
void append(message_text& message, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    append_formatted(message, format, arguments);
    va_end(arguments);
}

void put(const char* text, size_t length) {
    if (thread_sink->gathered)
        thread_sink->gathered->append(text, length);
    else
        fwrite(text, 1, length, stderr);
}

// The parts of a message, as they follow each other on the line.
struct message_parts {
    const char* name = nullptr;
    const char* word = nullptr;
    const char* format = nullptr;
    const char* system_text = nullptr;
    bool new_line = false;
};

void compose(message_text& message, const message_parts& parts, va_list arguments) {
    for (const char* const part : {parts.name, parts.word})
        if (part)
            append(message, "%s: ", part);
    if (parts.format) {
        va_list again;
        va_copy(again, arguments);
        append_formatted(message, parts.format, again);
        va_end(again);
    }
    if (parts.system_text)
        append(message, ": %s", parts.system_text);
}

void write_message(const message_parts& parts, va_list arguments) {
    char usual[log_capacity + 2]; // room for a new-line and the NUL
    std::string longer;
    message_text message = {usual, log_capacity};
    compose(message, parts, arguments);
    if (message.length > message.room) {
        longer.resize(message.length + 1); // and as much here
        message = {longer.data(), message.length};
        compose(message, parts, arguments);
    }
    message.text[message.length] = '\n';
    put(message.text, message.length + (parts.new_line ? 1 : 0));
    fflush(stderr);
    message.text[std::min(message.length, log_capacity)] = '\0';
    if (thread_sink->event_log)
        thread_sink->event_log(parts.word ? parts.word : "DOMESSAGE Unknown Code", message.text);
}

} // namespace

gen_message_sink& gen_sink() {
    return *thread_sink;
}

void gen_use_sink(gen_message_sink& sink) {
    thread_sink = &sink;
}

void gen_set_program_name(const char* name) {
    program_name = name ? name : "";
}

const char* gen_program_name() {
    return program_name;
}

void gen_message(uint32_t level, const char* format, va_list arguments) {
    const int saved_errno = errno;
    gen_message_sink& sink = *thread_sink;
    message_parts parts;
    parts.format = format;
    const bool system_text_wanted = level > GEN_WITH_SYSTEM_TEXT;
    if (system_text_wanted)
        level -= GEN_WITH_SYSTEM_TEXT;
    if (level < gen_level_count) {
        parts.word = sink.gen_prefixed_messages ? lucent_prefixes[level] : prefixes[level];
        ++sink.gen_error_count[level];
        if (level < lowest_harmless_level)
            ++sink.gen_total_errors;
    }
    if (level != GEN_PLAIN && *program_name)
        parts.name = program_name;
    if (system_text_wanted && saved_errno != 0)
        parts.system_text = strerror(saved_errno);
    parts.new_line = parts.system_text || (format && !std::string_view(format).ends_with('\n'));

    fflush(stdout); // so that the message follows the output that came before it
    write_message(parts, arguments);
    errno = parts.system_text ? 0 : saved_errno;
}

#define GEN_FORWARD(level)                                                                         \
    va_list arguments;                                                                             \
    va_start(arguments, format);                                                                   \
    thread_sink->message(level, format, arguments);                                                \
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

#undef GEN_FORWARD

int gen_print_raw(const char* format, va_list arguments) {
    if (!thread_sink->gathered) {
        const int written = gen_vfprintf(stderr, format, arguments);
        fflush(stderr);
        return written;
    }
    char* const text = gen_vasprintf(format, arguments);
    const size_t length = strlen(text);
    put(text, length);
    gen_free_slot(text);
    return static_cast<int>(length);
}

int gen_eprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = thread_sink->raw_print(format, arguments);
    va_end(arguments);
    return written;
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
