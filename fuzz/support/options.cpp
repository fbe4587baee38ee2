// Each value is tried with one spelling: they take turns.
#include "support/options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "util/optiontable.h"

namespace {

struct value_samples {
    std::string_view value;
    std::vector<const char*> samples;
};

[[noreturn]] void give_up(const char* what, std::string_view option) {
    fprintf(stderr, "options: %s: %.*s\n", what, static_cast<int>(option.size()), option.data());
    exit(2);
}

const std::vector<const char*>& samples_of(std::string_view value) {
    static const value_samples all[] = {
        {"secname", {".comment", ".symtab", ".debug*", ".text", "*", ""}},
        {"symbol", {"f*", "main", "*e", "*a*", "*", "local"}},
        {"file", {"result"}}, // whatever else is left is a fault
    };
    for (const value_samples& row : all)
        if (row.value == value)
            return row.samples;
    give_up("there are no samples of this value", value);
}

std::vector<std::string> make_options() {
    std::vector<std::string> options;
    for (const option_row& row : option_table) {
        const std::string_view name = option_name(row.spelling);
        std::vector<std::string> spellings = {std::string(name)};
        if (!row.alias.empty())
            spellings.emplace_back(row.alias);
        if (!name.ends_with('=')) {
            options.insert(options.end(), spellings.begin(), spellings.end());
            continue;
        }
        size_t turn = 0;
        for (const char* const sample : samples_of(row.spelling.substr(name.size())))
            options.push_back(spellings[turn++ % spellings.size()] + sample);
    }
    if (options.size() > 8 * choice_size)
        give_up("there are more options than bits in a choice", options.back());
    return options;
}

} // namespace

const std::vector<std::string>& all_options() {
    static const std::vector<std::string> options = make_options();
    return options;
}

std::vector<const char*> chosen_options(option_choice choice) {
    std::vector<const char*> options;
    for (const std::string& option : all_options()) {
        if ((choice & 1) != 0)
            options.push_back(option.c_str());
        choice >>= 1;
    }
    return options;
}

option_choice option_bit(const std::string& option) {
    const std::vector<std::string>& options = all_options();
    const auto found = std::find(options.begin(), options.end(), option);
    if (found == options.end())
        give_up("not among the options", option);
    return option_choice{1} << (found - options.begin());
}
