// Temporary names.
//
// A name is only a name: between the test that it is free and the making of the file someone else
// may take it, so whoever makes the file does it exclusively.
#include "shared/gentemp.h"

#include <cstdlib>

#include "shared/genpath.h"
#include "shared/host.h"

static constexpr uint32_t counter_limit = 0xFFFFF; // 20 bits: four digits

static std::optional<std::string> user_tmpdir() {
    return gen_user_tmpdir();
}

std::optional<std::string> (*gen_tmpdir_hook)() = user_tmpdir;

static const char* last_resort_directory() {
    const char* const root = host_paths == host_path_rules::windows ? "\\" : "/tmp";
    return host_usable_directory(root) ? root : ".";
}

std::optional<std::string> gen_user_tmpdir(const char* suggested) {
    static std::optional<std::string> known;
    if (known)
        return known;
    for (const char* const variable : {"TMP", "TEMP"}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && host_usable_directory(value)) {
            known = value;
            return known;
        }
    }
    if (suggested != nullptr && host_usable_directory(suggested))
        return suggested;
    known = last_resort_directory();
    return known;
}

static char base32_digit(uint32_t value, int bit_position) {
    return "0123456789abcdefghijklmnopqrstuv"[(value >> bit_position) & 31];
}

static void append_counter(std::string& text, uint32_t counter) {
    int position = 15;
    while (position > 0 && counter >> position == 0)
        position -= 5;
    for (; position >= 0; position -= 5)
        text += base32_digit(counter, position);
    text += '.';
}

std::string gen_temp_stem(uint32_t process_id, uint32_t counter) {
    std::string stem = "ov_";
    for (int position = 30; position >= 0; position -= 5)
        stem += base32_digit(process_id, position);
    append_counter(stem, counter);
    return stem;
}

uint32_t gen_next_temp_counter(uint32_t counter) {
    return counter < counter_limit ? counter + 1 : 1;
}

static uint32_t next_counter() {
    static uint32_t counter = 0;
    counter = gen_next_temp_counter(counter);
    return counter;
}

// A build system may dictate the stem. Once that name is found taken, the counter replaces it: the
// value's last component is dropped, its directories stay.
static std::string dictated_stem(const std::string& directory, const char* value, bool is_first) {
    std::string stem = gen_join(directory, value);
    if (is_first) {
        if (!stem.ends_with('.'))
            stem += '.';
        return stem;
    }
    stem.resize(stem.size() - gen_last_component(stem).size());
    append_counter(stem, next_counter());
    return stem;
}

std::vector<std::string> gen_temp_names(const char* directory,
                                        std::span<const std::string_view> extensions) {
    std::string where;
    if (directory != nullptr)
        where = directory;
    else if (const std::optional<std::string> answer = gen_tmpdir_hook())
        where = *answer;
    const char* const dictated = std::getenv("BUILDER_TEMPORARY_NAME");

    std::vector<std::string> names;
    for (uint32_t attempt = 0; attempt < counter_limit; ++attempt) {
        const std::string stem =
            dictated != nullptr ? dictated_stem(where, dictated, attempt == 0)
                                : gen_join(where, gen_temp_stem(host_process_id(), next_counter()));
        names.clear();
        bool is_free = true;
        for (std::string_view extension : extensions) {
            if (extension.starts_with('.'))
                extension.remove_prefix(1);
            names.push_back(stem + std::string(extension));
            is_free = is_free && !host_name_taken(names.back().c_str());
        }
        if (is_free)
            return names;
    }
    names.clear();
    return names;
}

std::optional<std::string> gen_temp_name(const char* directory, std::string_view extension) {
    std::vector<std::string> names = gen_temp_names(directory, {&extension, 1});
    if (names.empty())
        return std::nullopt;
    return std::move(names[0]);
}
