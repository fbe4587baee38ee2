// File names as text. Nothing here but same_file_name asks the host about files.
//
// A colon separates under Windows rules only behind a drive's letter: elsewhere it belongs to a
// stream of the file, and under POSIX rules it is a letter like any other.
#include "shared/genpath.h"

#include <algorithm>
#include <optional>

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool is_letter(char c) {
    return lower(c) >= 'a' && lower(c) <= 'z';
}

bool has_drive(std::string_view name, host_path_rules rules) {
    return rules == host_path_rules::windows && name.size() >= 2 && name[1] == ':' &&
           is_letter(name[0]);
}

// Where the last separator stands; npos when there is none.
size_t find_last_separator(std::string_view name, host_path_rules rules) {
    for (size_t at = name.size(); at > 0; --at)
        if (gen_is_separator(name[at - 1], rules))
            return at - 1;
    return has_drive(name, rules) ? 1 : std::string_view::npos;
}

// Windows looks for devices before it looks for files: "nul.o" is one, whatever the extension.
bool is_device_name(std::string_view name) {
    name = name.substr(0, name.find('.'));
    while (name.ends_with(' '))
        name.remove_suffix(1);
    for (const char* const device : {"con", "prn", "aux", "nul", "conin$", "conout$", "clock$"})
        if (gen_equal_ignoring_case(name, device))
            return true;
    const std::string_view port = name.substr(0, 3);
    return name.size() == 4 && name[3] >= '0' && name[3] <= '9' &&
           (gen_equal_ignoring_case(port, "com") || gen_equal_ignoring_case(port, "lpt"));
}

std::string_view without_trailing_separator(std::string_view name) {
    if (!name.empty() && gen_is_separator(name.back()))
        name.remove_suffix(1);
    return name;
}

bool same_text(const std::string& a, const std::string& b) {
    const std::string_view last_of_a = gen_last_component(a);
    const std::string_view last_of_b = gen_last_component(b);
    if (!last_of_a.empty() && !last_of_b.empty() && !gen_equal_ignoring_case(last_of_a, last_of_b))
        return false;
    if (gen_equal_ignoring_case(a, b))
        return true;
    const std::optional<std::string> full_a = host_full_path(a.c_str());
    const std::optional<std::string> full_b = host_full_path(b.c_str());
    return full_a && full_b &&
           gen_equal_ignoring_case(without_trailing_separator(*full_a),
                                   without_trailing_separator(*full_b));
}

} // namespace

bool gen_is_separator(char c, host_path_rules rules) {
    return c == '/' || (c == '\\' && rules == host_path_rules::windows);
}

std::string_view gen_last_component(std::string_view name, host_path_rules rules) {
    const size_t separator = find_last_separator(name, rules);
    return separator == std::string_view::npos ? name : name.substr(separator + 1);
}

std::string_view gen_extension(std::string_view name, host_path_rules rules) {
    const std::string_view component = gen_last_component(name, rules);
    const size_t dot = component.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : component.substr(dot + 1);
}

std::string_view gen_directory_part(std::string_view name, host_path_rules rules) {
    const size_t separator = find_last_separator(name, rules);
    if (separator == std::string_view::npos)
        return std::string_view();
    const bool is_first = separator == 0;
    const bool is_at_drive = has_drive(name, rules) && separator <= 2;
    return name.substr(0, separator + (is_first || is_at_drive ? 1 : 0));
}

std::string gen_join(std::string_view directory, std::string_view name, host_path_rules rules,
                     char separator) {
    std::string joined(directory);
    const bool complete = directory.empty() || gen_is_separator(directory.back(), rules) ||
                          (directory.size() == 2 && has_drive(directory, rules));
    if (!complete)
        joined += separator;
    joined += name;
    return joined;
}

bool gen_is_absolute(std::string_view name, host_path_rules rules) {
    if (has_drive(name, rules))
        name.remove_prefix(2);
    return !name.empty() && gen_is_separator(name[0], rules);
}

bool gen_is_plain_name(std::string_view name) {
    if (name.empty() || name == "." || name == ".." || is_device_name(name))
        return false;
    for (const char c : name)
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F || c == '/' || c == '\\' || c == ':')
            return false;
    return true;
}

bool gen_equal_ignoring_case(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, lower, lower);
}

bool gen_ends_with_ignoring_case(std::string_view text, std::string_view end) {
    return text.size() >= end.size() &&
           gen_equal_ignoring_case(text.substr(text.size() - end.size()), end);
}

bool same_file_name(const std::string& a, const std::string& b) {
    if (same_text(a, b))
        return true;
    const std::optional<host_status> status_a = host_status_of(a.c_str());
    const std::optional<host_status> status_b = host_status_of(b.c_str());
    return status_a && status_b && status_a->device == status_b->device &&
           status_a->number == status_b->number && status_a->number != 0; // 0: it cannot tell
}
