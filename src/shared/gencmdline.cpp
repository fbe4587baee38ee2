// Splitting of command lines, see gencmdline.h.
//
// The program and the arguments follow different rules: a backslash is never special in the
// program's name, but before a quote it is in an argument.
#include "shared/gencmdline.h"

#include <algorithm>
#include <optional>

#include "shared/host.h"

namespace {

constexpr std::string_view blanks = " \t";

size_t skip_blanks(std::string_view line, size_t at) {
    return std::min(line.find_first_not_of(blanks, at), line.size());
}

size_t find_blank(std::string_view line, size_t at) {
    return std::min(line.find_first_of(blanks, at), line.size());
}

bool is_file(const std::string& name) {
    const std::optional<host_status> status = host_status_of(name.c_str());
    return status && !status->is_directory;
}

std::optional<std::string> find_program(std::string_view text) {
    std::string name(text);
    if (is_file(name))
        return name;
    name += ".exe";
    if (is_file(name))
        return name;
    return std::nullopt;
}

// Sets the program and returns where the arguments begin. The runtime counts text that sticks to a
// closing quote as the program's name, so it is no argument.
size_t split_quoted_program(std::string_view line, size_t start, std::string& program) {
    const size_t end = std::min(line.find('"', start + 1), line.size());
    const std::string_view text = line.substr(start + 1, end - start - 1);
    program = find_program(text).value_or(std::string(text));
    return find_blank(line, end);
}

size_t split_plain_program(std::string_view line, size_t start, std::string& program) {
    size_t end = start;
    do {
        end = find_blank(line, end + 1);
        if (std::optional<std::string> found = find_program(line.substr(start, end - start))) {
            program = std::move(*found);
            return end;
        }
    } while (end < line.size());
    end = find_blank(line, start);
    program = line.substr(start, end - start);
    return end;
}

// The argument that begins at `at`, which is moved behind it. 2n backslashes before a quote are n,
// and the quote groups; 2n + 1 are n and a literal quote; two quotes within quotes are one.
std::string next_argument(std::string_view line, size_t& at) {
    std::string argument;
    bool in_quotes = false;
    while (at < line.size() && (in_quotes || blanks.find(line[at]) == std::string_view::npos)) {
        const size_t backslashes = std::min(line.find_first_not_of('\\', at), line.size()) - at;
        at += backslashes;
        const bool at_quote = at < line.size() && line[at] == '"';
        argument.append(at_quote ? backslashes / 2 : backslashes, '\\');
        if (at_quote) {
            const bool escaped = backslashes % 2 != 0;
            const bool doubled =
                !escaped && in_quotes && at + 1 < line.size() && line[at + 1] == '"';
            if (escaped || doubled)
                argument += '"';
            else
                in_quotes = !in_quotes;
            at += doubled ? 2 : 1;
        } else if (backslashes == 0) {
            argument += line[at++];
        }
    }
    return argument;
}

} // namespace

gen_command gen_split_command_line(std::string_view line) {
    gen_command command;
    size_t at = skip_blanks(line, 0);
    if (at == line.size())
        return command;
    at = line[at] == '"' ? split_quoted_program(line, at, command.program)
                         : split_plain_program(line, at, command.program);
    for (at = skip_blanks(line, at); at < line.size(); at = skip_blanks(line, at))
        command.arguments.push_back(next_argument(line, at));
    return command;
}
