// Pattern sets: building the trie and its fall-back links, and the three searches.
#include "util/patterns.h"

#include <algorithm>

namespace {

constexpr uint32_t root = 0;

// Of a set that may be changed, the edge may be changed too.
template <class some_set>
auto& edge(some_set& set, uint32_t state, uint32_t byte_class) {
    return set.next[size_t{state} * set.class_count + byte_class];
}

uint8_t class_of(const pattern_set& set, char c) {
    return set.class_of[static_cast<uint8_t>(c)];
}

void assign_classes(pattern_set& set) {
    std::fill(std::begin(set.class_of), std::end(set.class_of), uint8_t{0});
    set.class_count = 1;
    for (std::string_view pattern : set.patterns)
        for (char c : pattern) {
            uint8_t& byte_class = set.class_of[static_cast<uint8_t>(c)];
            if (byte_class == 0)
                byte_class = static_cast<uint8_t>(set.class_count++);
        }
}

uint32_t new_state(pattern_set& set) {
    set.shortest.push_back(0);
    set.next.resize(set.next.size() + set.class_count, root);
    return static_cast<uint32_t>(set.shortest.size() - 1);
}

void insert(pattern_set& set, std::string_view pattern) {
    uint32_t state = root;
    for (char c : pattern) {
        const uint8_t byte_class = class_of(set, c);
        if (edge(set, state, byte_class) == root) {
            const uint32_t added = new_state(set);
            edge(set, state, byte_class) = added;
        }
        state = edge(set, state, byte_class);
    }
    set.shortest[state] = static_cast<uint32_t>(pattern.size());
}

void build_trie(pattern_set& set, pattern_use use) {
    assign_classes(set);
    set.next.clear();
    set.shortest.clear();
    new_state(set);
    for (std::string_view pattern : set.patterns)
        insert(set, pattern);
    set.ready_for = use;
}

// Gives every state an edge for every class: where the trie has none, that of the longest proper
// suffix which is a state too. States are visited by their depth, so that suffixes come first.
void add_fall_backs(pattern_set& set) {
    std::vector<uint32_t> fall_back(set.shortest.size(), root);
    std::vector<uint32_t> queue;
    for (uint32_t c = 0; c < set.class_count; ++c)
        if (const uint32_t child = edge(set, root, c); child != root)
            queue.push_back(child);
    for (size_t at = 0; at < queue.size(); ++at) {
        const uint32_t state = queue[at];
        const uint32_t suffix = fall_back[state];
        const uint32_t inherited = set.shortest[suffix];
        if (inherited != 0) // a suffix is shorter than any pattern that ends only here
            set.shortest[state] = inherited;
        for (uint32_t c = 0; c < set.class_count; ++c) {
            uint32_t& child = edge(set, state, c);
            const uint32_t around = edge(set, suffix, c);
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

void measure_patterns(pattern_set& set) {
    const auto [shortest, longest] = std::ranges::minmax(set.patterns, {}, std::ranges::size);
    set.shortest_length = shortest.size();
    set.longest_length = longest.size();
}

size_t window_of(const pattern_set& set) {
    constexpr size_t longest_window = 200; // a skip fits a byte
    return std::min(set.shortest_length, longest_window);
}

void make_skips(pattern_set& set) {
    const size_t window = window_of(set);
    set.skips.clear();
    if (window < 3)
        return;
    set.skips.resize(size_t{1} << 16, static_cast<uint8_t>(window - 1));
    for (std::string_view pattern : set.patterns)
        for (size_t at = 0; at + 1 < window; ++at) {
            uint8_t& skip = set.skips[byte_pair(pattern, at)];
            skip = std::min(skip, static_cast<uint8_t>(window - 2 - at));
        }
}

// The first place from `at` on where a pattern may begin; the text's end when there is none.
size_t next_candidate(const pattern_set& set, std::string_view text, size_t at) {
    if (set.skips.empty())
        return at;
    const size_t window = window_of(set);
    size_t end = at + window;
    while (end <= text.size()) {
        const uint8_t skip = set.skips[byte_pair(text, end - 2)];
        if (skip == 0)
            return end - window;
        end += skip;
    }
    return text.size();
}

} // namespace

void add_pattern(pattern_set& set, std::string_view pattern) {
    set.patterns.push_back(pattern);
    set.ready_for = PATTERN_NOTHING;
}

void prepare_beginnings(pattern_set& set) {
    if (!set.patterns.empty() && set.ready_for != PATTERN_BEGINNINGS)
        build_trie(set, PATTERN_BEGINNINGS);
}

void prepare_search(pattern_set& set) {
    if (set.patterns.empty() || set.ready_for == PATTERN_SEARCH)
        return;
    build_trie(set, PATTERN_SEARCH);
    add_fall_backs(set);
    measure_patterns(set);
    make_skips(set);
}

bool begins_with_pattern(const pattern_set& set, const char* text) {
    if (set.patterns.empty())
        return false;
    uint32_t state = root;
    for (; *text != '\0'; ++text) {
        state = edge(set, state, class_of(set, *text));
        if (state == root)
            return false;
        if (set.shortest[state] != 0)
            return true;
    }
    return false;
}

int64_t last_pattern_start(const pattern_set& set, std::string_view text) {
    if (set.patterns.empty())
        return -1;
    int64_t last = -1;
    size_t at = next_candidate(set, text, 0);
    while (at < text.size()) {
        uint32_t state = root;
        do {
            state = edge(set, state, class_of(set, text[at++]));
            if (set.shortest[state] != 0)
                last = std::max(last, static_cast<int64_t>(at - set.shortest[state]));
        } while (state != root && at < text.size());
        at = next_candidate(set, text, at);
    }
    return last;
}

int64_t ending_pattern_start(const pattern_set& set, std::string_view text) {
    if (set.patterns.empty())
        return -1;
    uint32_t state = root;
    const size_t tail = std::min(text.size(), set.longest_length);
    for (char c : text.substr(text.size() - tail))
        state = edge(set, state, class_of(set, c));
    const uint32_t length = set.shortest[state];
    return length != 0 ? static_cast<int64_t>(text.size() - length) : -1;
}
