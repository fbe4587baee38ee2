// Pattern sets: building the trie and its fall-back links, and the three searches.
#include "util/patterns.h"

#include <algorithm>

namespace {

constexpr uint32_t root = 0;

// Of tables that may be changed, the edge may be changed too.
template <class some_tables>
auto& edge(some_tables& tables, uint32_t state, uint32_t byte_class) {
    return tables.next[size_t{state} * tables.class_count + byte_class];
}

uint8_t class_of(const pattern_tables& tables, char c) {
    return tables.class_of[static_cast<uint8_t>(c)];
}

void assign_classes(pattern_tables& tables, const std::vector<std::string_view>& patterns) {
    for (std::string_view pattern : patterns)
        for (char c : pattern) {
            uint8_t& byte_class = tables.class_of[static_cast<uint8_t>(c)];
            if (byte_class == 0)
                byte_class = static_cast<uint8_t>(tables.class_count++);
        }
}

uint32_t new_state(pattern_tables& tables) {
    tables.shortest.push_back(0);
    tables.next.resize(tables.next.size() + tables.class_count, root);
    return static_cast<uint32_t>(tables.shortest.size() - 1);
}

void insert(pattern_tables& tables, std::string_view pattern) {
    uint32_t state = root;
    for (char c : pattern) {
        const uint8_t byte_class = class_of(tables, c);
        if (edge(tables, state, byte_class) == root) {
            const uint32_t added = new_state(tables);
            edge(tables, state, byte_class) = added;
        }
        state = edge(tables, state, byte_class);
    }
    tables.shortest[state] = static_cast<uint32_t>(pattern.size());
}

// Gives every state an edge for every class: where the trie has none, that of the longest proper
// suffix which is a state too. States are visited by their depth, so that suffixes come first.
void add_fall_backs(pattern_tables& tables) {
    std::vector<uint32_t> fall_back(tables.shortest.size(), root);
    std::vector<uint32_t> queue;
    for (uint32_t c = 0; c < tables.class_count; ++c)
        if (const uint32_t child = edge(tables, root, c); child != root)
            queue.push_back(child);
    for (size_t at = 0; at < queue.size(); ++at) {
        const uint32_t state = queue[at];
        const uint32_t suffix = fall_back[state];
        const uint32_t inherited = tables.shortest[suffix];
        if (inherited != 0) // a suffix is shorter than any pattern that ends only here
            tables.shortest[state] = inherited;
        for (uint32_t c = 0; c < tables.class_count; ++c) {
            uint32_t& child = edge(tables, state, c);
            const uint32_t around = edge(tables, suffix, c);
            if (child == root) {
                child = around;
            } else {
                fall_back[child] = around;
                queue.push_back(child);
            }
        }
    }
}

size_t byte_pair(std::string_view text, size_t at) {
    return size_t{static_cast<uint8_t>(text[at])} << 8 | static_cast<uint8_t>(text[at + 1]);
}

size_t window_of(const pattern_tables& tables) {
    constexpr size_t longest_window = 200; // a skip fits a byte
    return std::min(tables.shortest_length, longest_window);
}

void make_skips(pattern_tables& tables, const std::vector<std::string_view>& patterns) {
    const size_t window = window_of(tables);
    if (window < 3)
        return;
    tables.skips.resize(size_t{1} << 16, static_cast<uint8_t>(window - 1));
    for (std::string_view pattern : patterns)
        for (size_t at = 0; at + 1 < window; ++at) {
            uint8_t& skip = tables.skips[byte_pair(pattern, at)];
            skip = std::min(skip, static_cast<uint8_t>(window - 2 - at));
        }
}

pattern_tables make_tables(const pattern_set& set) {
    pattern_tables tables;
    assign_classes(tables, set.patterns);
    new_state(tables);
    for (std::string_view pattern : set.patterns)
        insert(tables, pattern);
    if (set.is_for_beginnings)
        return tables;
    add_fall_backs(tables);
    const auto [shortest, longest] = std::ranges::minmax(set.patterns, {}, std::ranges::size);
    tables.shortest_length = shortest.size();
    tables.longest_length = longest.size();
    make_skips(tables, set.patterns);
    return tables;
}

const pattern_tables& tables_of(const pattern_set& set) {
    if (!set.is_made.load(std::memory_order_acquire)) {
        const std::scoped_lock lock(set.making);
        if (!set.is_made.load(std::memory_order_relaxed))
            set.tables = make_tables(set);
        set.is_made.store(true, std::memory_order_release);
    }
    return set.tables;
}

// The first place from `at` on where a pattern may begin; the text's end when there is none.
size_t next_candidate(const pattern_tables& tables, std::string_view text, size_t at) {
    if (tables.skips.empty())
        return at;
    const size_t window = window_of(tables);
    size_t end = at + window;
    while (end <= text.size()) {
        const uint8_t skip = tables.skips[byte_pair(text, end - 2)];
        if (skip == 0)
            return end - window;
        end += skip;
    }
    return text.size();
}

} // namespace

void add_pattern(pattern_set& set, std::string_view pattern) {
    set.patterns.push_back(pattern);
    set.is_made = false;
}

bool begins_with_pattern(const pattern_set& set, const char* text) {
    if (set.patterns.empty())
        return false;
    const pattern_tables& tables = tables_of(set);
    uint32_t state = root;
    for (; *text != '\0'; ++text) {
        state = edge(tables, state, class_of(tables, *text));
        if (state == root)
            return false;
        if (tables.shortest[state] != 0)
            return true;
    }
    return false;
}

int64_t last_pattern_start(const pattern_set& set, std::string_view text) {
    if (set.patterns.empty())
        return -1;
    const pattern_tables& tables = tables_of(set);
    int64_t last = -1;
    size_t at = next_candidate(tables, text, 0);
    while (at < text.size()) {
        uint32_t state = root;
        do {
            state = edge(tables, state, class_of(tables, text[at++]));
            if (tables.shortest[state] != 0)
                last = std::max(last, static_cast<int64_t>(at - tables.shortest[state]));
        } while (state != root && at < text.size());
        at = next_candidate(tables, text, at);
    }
    return last;
}

int64_t ending_pattern_start(const pattern_set& set, std::string_view text) {
    if (set.patterns.empty())
        return -1;
    const pattern_tables& tables = tables_of(set);
    uint32_t state = root;
    const size_t tail = std::min(text.size(), tables.longest_length);
    for (char c : text.substr(text.size() - tail))
        state = edge(tables, state, class_of(tables, c));
    const uint32_t length = tables.shortest[state];
    return length != 0 ? static_cast<int64_t>(text.size() - length) : -1;
}
