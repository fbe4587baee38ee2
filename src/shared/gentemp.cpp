// Temporary names.
//
// A name is only a name: between the test that it is free and the making of the file someone else
// may take it, so whoever makes the file does it exclusively.
#include "shared/gentemp.h"

#include <cstdlib>

#include "shared/genpath.h"
#include "shared/host.h"

namespace {

constexpr uint32_t counter_limit = 0xFFFFF; // 20 bits: four digits

const char* last_resort_directory() {
    const char* const root = host_paths == host_path_rules::windows ? "\\" : "/tmp";
    return host_usable_directory(root) ? root : ".";
}

void append_base32(std::string& text, uint32_t value, int digits) {
    while (digits-- > 0)
        text += "0123456789abcdefghijklmnopqrstuv"[(value >> 5 * digits) & 31];
}

void append_counter(std::string& text, uint32_t counter) {
    int digits = 4;
    while (digits > 1 && counter >> 5 * (digits - 1) == 0)
        --digits;
    append_base32(text, counter, digits);
    text += '.';
}

uint32_t next_counter(gen_temp_space& space) {
    uint32_t before = space.counter;
    while (!space.counter.compare_exchange_weak(before, gen_next_temp_counter(before))) {
    }
    return gen_next_temp_counter(before);
}

// A build system may dictate the stem. Once that name is found taken, the counter replaces it: the
// value's last component is dropped, its directories stay.
std::string dictated_stem(gen_temp_space& space, const std::string& directory, const char* value,
                          bool is_first) {
    std::string stem = gen_join(directory, value);
    if (is_first)
        return stem.ends_with('.') ? stem : stem + '.';
    stem.resize(stem.size() - gen_last_component(stem).size());
    append_counter(stem, next_counter(space));
    return stem;
}

} // namespace

std::string gen_tmpdir(gen_temp_space& space) {
    return space.input_directory ? *space.input_directory : gen_user_tmpdir(space);
}

std::string gen_user_tmpdir(gen_temp_space& space, const char* suggested) {
    std::optional<std::string>& known = space.user_directory;
    if (known)
        return *known;
    for (const char* const variable : {"TMP", "TEMP"}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && host_usable_directory(value))
            return known.emplace(value);
    }
    if (suggested != nullptr && host_usable_directory(suggested))
        return suggested;
    return known.emplace(last_resort_directory());
}

std::string gen_temp_stem(uint32_t process_id, uint32_t counter) {
    std::string stem = "ov_";
    append_base32(stem, process_id, 7);
    append_counter(stem, counter);
    return stem;
}

uint32_t gen_next_temp_counter(uint32_t counter) {
    return counter < counter_limit ? counter + 1 : 1;
}

std::vector<std::string> gen_temp_names(gen_temp_space& space, const std::string& directory,
                                        std::span<const std::string_view> extensions) {
    const char* const dictated = std::getenv("BUILDER_TEMPORARY_NAME");
    std::vector<std::string> names;
    for (uint32_t attempt = 0; attempt < counter_limit; ++attempt) {
        const std::string stem =
            dictated != nullptr
                ? dictated_stem(space, directory, dictated, attempt == 0)
                : gen_join(directory, gen_temp_stem(host_process_id(), next_counter(space)));
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

std::optional<std::string> gen_temp_name(gen_temp_space& space, const std::string& directory,
                                         std::string_view extension) {
    std::vector<std::string> names = gen_temp_names(space, directory, {&extension, 1});
    if (names.empty())
        return std::nullopt;
    return std::move(names[0]);
}
