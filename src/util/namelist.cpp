// Name lists: the patterns are sorted by kind once, so that a name costs one look-up and a few
// comparisons, whatever the number of names.
#include "util/namelist.h"

#include <algorithm>
#include <cstring>

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
    if (begins_with_star && ends_in_star)
        list.contents.push_back(name);
    else if (ends_in_star)
        list.beginnings.push_back(name);
    else if (begins_with_star)
        list.endings.push_back(name);
}

bool match_exact_name(const name_list& list, const char* name) {
    if (list.count == 0)
        return false;
    const size_t length = strnlen(name, list.longest + 1);
    return length <= list.longest && list.whole.contains(std::string_view(name, length));
}

bool match_name_list(const name_list& list, const char* name) {
    if (match_exact_name(list, name))
        return true;
    for (std::string_view beginning : list.beginnings)
        if (strncmp(name, beginning.data(), beginning.size()) == 0)
            return true;
    if (list.endings.empty() && list.contents.empty())
        return false;
    const std::string_view text(name);
    for (std::string_view ending : list.endings)
        if (text.ends_with(ending))
            return true;
    for (std::string_view content : list.contents)
        if (text.find(content) != std::string_view::npos)
            return true;
    return false;
}
