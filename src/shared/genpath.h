// File names taken apart and put together, by the host's rules or, for tests, by another's.
#pragma once

#include <string>
#include <string_view>

#include "shared/host.h"

// "/", under Windows rules "\" too. A drive's ":" separates as well, but the routines below tell
// that by its place.
bool gen_is_separator(char c, host_path_rules rules = host_paths);

// The text after the last separator.
std::string_view gen_last_component(std::string_view name, host_path_rules rules = host_paths);
// The text after the last "." of the last component; empty when it has none.
std::string_view gen_extension(std::string_view name, host_path_rules rules = host_paths);
// The text before the last separator, empty when there is none. The separator itself is kept when
// it is the first character, when it is a drive's ":", or when it follows one: "/a" gives "/",
// "C:a" gives "C:", "C:\a" gives "C:\".
std::string_view gen_directory_part(std::string_view name, host_path_rules rules = host_paths);
// Directory and name, with a separator between them unless the directory is empty or ends in one.
std::string gen_join(std::string_view directory, std::string_view name,
                     host_path_rules rules = host_paths, char separator = host_separator);
// Begins at a root. Under Windows rules a drive alone is not enough, a root without drive is.
bool gen_is_absolute(std::string_view name, host_path_rules rules = host_paths);

// Whether `name` is a plain file name on every host: one that stays in the directory it is joined
// to, and denotes a file there rather than a device.
bool gen_is_plain_name(std::string_view name);

// ASCII letters only, whatever the locale.
bool gen_equal_ignoring_case(std::string_view a, std::string_view b);
bool gen_ends_with_ignoring_case(std::string_view text, std::string_view end);

// Whether two names denote one file: by their text, letter case ignored on every host, or because
// both exist and the host says that they are the same.
bool same_file_name(const std::string& a, const std::string& b);
