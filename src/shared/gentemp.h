// Temporary names, and the directory in which temporary things are made.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Where temporary things are made, and under which names. Whoever strips files has one; those of
// one process share the counter, since their names begin with the same process id.
struct gen_temp_space {
    std::atomic<uint32_t>& counter; // 0 at first
    // Of the latest ELF input, so that a result can be renamed over it. Empty: the current
    // directory, and names have no directory part.
    std::optional<std::string> input_directory = {};
    std::optional<std::string> user_directory = {}; // once it is known
};

// The directory for new temporary things: the input's or, before there is one, the user's.
std::string gen_tmpdir(gen_temp_space& space);

// The user's temporary directory: TMP, TEMP, `suggested` (for this call only), or the host's last
// resort, whichever is first a directory in which files can be made. Kept once it is known.
std::string gen_user_tmpdir(gen_temp_space& space, const char* suggested = nullptr);

// Up to three unused names that share one stem, "ov_" with the process id and a counter in base 32,
// and differ in their extensions (given with or without the dot), in `directory`. Nothing when
// every stem is taken. No file is made.
std::vector<std::string> gen_temp_names(gen_temp_space& space, const std::string& directory,
                                        std::span<const std::string_view> extensions);
// The first of them, for the one extension.
std::optional<std::string> gen_temp_name(gen_temp_space& space, const std::string& directory,
                                         std::string_view extension);

// What such a stem is made of: "ov_", seven digits of the process id, one to four of the counter,
// "."; and the value that the counter takes after `counter`, from 1 to 0xFFFFF and round again.
std::string gen_temp_stem(uint32_t process_id, uint32_t counter);
uint32_t gen_next_temp_counter(uint32_t counter);
