// Temporary names, and the directory in which temporary things are made.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Answers the directory for new temporary files; nothing means the current one, without a
// directory part. Starts as the user's temporary directory; the ELF stripper replaces it by the
// directory of its input, so that a result can be renamed over it.
extern std::optional<std::string> (*gen_tmpdir_hook)();

// The user's temporary directory: TMP, TEMP, `suggested` (for this call only), or the host's last
// resort, whichever is first a directory in which files can be made. Kept once it is known.
std::optional<std::string> gen_user_tmpdir(const char* suggested = nullptr);

// Up to three unused names that share one stem, "ov_" with the process id and a counter in base 32,
// and differ in their extensions (given with or without the dot), in `directory` or, when that is
// null, in the one the hook answers. Nothing when every stem is taken. No file is made.
std::vector<std::string> gen_temp_names(const char* directory,
                                        std::span<const std::string_view> extensions);
// The first of them, for the one extension.
std::optional<std::string> gen_temp_name(const char* directory, std::string_view extension);

// What such a stem is made of: "ov_", seven digits of the process id, one to four of the counter,
// "."; and the value that the counter takes after `counter`, from 1 to 0xFFFFF and round again.
std::string gen_temp_stem(uint32_t process_id, uint32_t counter);
uint32_t gen_next_temp_counter(uint32_t counter);
