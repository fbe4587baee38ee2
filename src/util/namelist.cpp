// Name lists: a name costs one look-up and one walk along its characters, whatever the number of
// patterns.
#include "util/namelist.h"

#include <algorithm>
#include <cstring>

namespace {

// Looks at the beginning of a name only.
bool match_head(const name_list& list, const char* name) {
    return list.matches_all || match_exact_name(list, name) ||
           begins_with_pattern(list.beginnings, name);
}

bool has_tail_patterns(const name_list& list) {
    return !list.endings.patterns.empty() || !list.contents.patterns.empty();
}

// The other patterns match a text, or any end of it, up to a certain place: how many of its ends
// do, counted from the whole text on. 0 when not even that matches.
size_t tail_match_limit(const name_list& list, std::string_view text) {
    return static_cast<size_t>(std::max(last_pattern_start(list.contents, text),
                                        ending_pattern_start(list.endings, text)) +
                               1);
}

} // namespace

void append_name(name_list& list, std::string_view name) {
    ++list.count;
    list.longest = std::max(list.longest, name.size());
    // A pattern matches its own text, so the whole names serve both ways of matching.
    list.whole.insert(name);

    const bool ends_in_star = name.ends_with('*');
    const bool begins_with_star = name.starts_with('*');
    if (ends_in_star)
        name.remove_suffix(1);
    if (begins_with_star && !name.empty()) // a lone star is already gone
        name.remove_prefix(1);
    if (ends_in_star && name.empty())
        list.matches_all = true;
    else if (begins_with_star && ends_in_star)
        add_pattern(list.contents, name);
    else if (ends_in_star)
        add_pattern(list.beginnings, name);
    else if (begins_with_star)
        add_pattern(list.endings, name);
}

bool match_exact_name(const name_list& list, const char* name) {
    if (list.count == 0)
        return false;
    const size_t length = strnlen(name, list.longest + 1);
    return length <= list.longest && list.whole.contains(std::string_view(name, length));
}

bool match_name_list(const name_list& list, const char* name) {
    return match_head(list, name) || (has_tail_patterns(list) && tail_match_limit(list, name) != 0);
}

name_judge make_judge(const name_list& list, const string_index& strings) {
    name_judge judge = {&list, &strings, {}};
    if (has_tail_patterns(list))
        judge.tail_limits = gen_new_block(uint64_t{strings.count} * sizeof(uint32_t));
    return judge;
}

bool is_named(name_judge& judge, uint32_t offset) {
    const name_list& list = *judge.list;
    if (list.count == 0)
        return false;
    const string_index& strings = *judge.strings;
    if (strings.size == 0)
        return match_name_list(list, "");
    if (match_head(list, strings.strings + offset))
        return true;
    if (!has_tail_patterns(list))
        return false;
    const string_place place = find_string(strings, offset);
    uint32_t& limit = reinterpret_cast<uint32_t*>(judge.tail_limits.bytes.get())[place.number];
    if (limit == 0)
        limit = static_cast<uint32_t>(std::min<size_t>(
                    tail_match_limit(list, strings.strings + place.start), UINT32_MAX - 1)) +
                1;
    return offset - place.start < limit - 1;
}
