// Pattern sets: building the trie and its fall-back links, and the three searches.
#include "util/patterns.h"

#include <algorithm>

namespace {

constexpr uint32_t root = 0;

uint32_t& edge(pattern_set& set, uint32_t state, uint8_t byte_class) {
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

void build_trie(pattern_set& set) {
    assign_classes(set);
    set.next.clear();
    set.shortest.clear();
    new_state(set);
    for (std::string_view pattern : set.patterns)
        insert(set, pattern);
    set.has_trie = true;
    set.has_fall_backs = false;
}

// Gives every state an edge for every class: where the trie has none, that of the longest proper
// suffix which is a state too. States are visited by their depth, so that suffixes come first.
void add_fall_backs(pattern_set& set) {
    std::vector<uint32_t> fall_back(set.shortest.size(), root);
    std::vector<uint32_t> queue;
    for (uint32_t c = 0; c < set.class_count; ++c)
        if (const uint32_t child = edge(set, root, static_cast<uint8_t>(c)); child != root)
            queue.push_back(child);
    for (size_t at = 0; at < queue.size(); ++at) {
        const uint32_t state = queue[at];
        const uint32_t suffix = fall_back[state];
        const uint32_t inherited = set.shortest[suffix];
        if (inherited != 0) // a suffix is shorter than any pattern that ends only here
            set.shortest[state] = inherited;
        for (uint32_t c = 0; c < set.class_count; ++c) {
            uint32_t& child = edge(set, state, static_cast<uint8_t>(c));
            const uint32_t around = edge(set, suffix, static_cast<uint8_t>(c));
            if (child == root) {
                child = around;
            } else {
                fall_back[child] = around;
                queue.push_back(child);
            }
        }
    }
}

void prepare_search(pattern_set& set) {
    if (set.has_fall_backs)
        return;
    build_trie(set);
    add_fall_backs(set);
    set.has_fall_backs = true;
}

} // namespace

void add_pattern(pattern_set& set, std::string_view pattern) {
    set.patterns.push_back(pattern);
    set.has_trie = false;
    set.has_fall_backs = false;
}

bool begins_with_pattern(pattern_set& set, const char* text) {
    if (set.patterns.empty())
        return false;
    if (!set.has_trie || set.has_fall_backs)
        build_trie(set);
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

int64_t last_pattern_start(pattern_set& set, std::string_view text) {
    if (set.patterns.empty())
        return -1;
    prepare_search(set);
    int64_t last = -1;
    uint32_t state = root;
    for (size_t at = 0; at < text.size(); ++at) {
        state = edge(set, state, class_of(set, text[at]));
        if (set.shortest[state] != 0)
            last = std::max(last, static_cast<int64_t>(at + 1 - set.shortest[state]));
    }
    return last;
}

int64_t ending_pattern_start(pattern_set& set, std::string_view text) {
    if (set.patterns.empty())
        return -1;
    prepare_search(set);
    uint32_t state = root;
    for (char c : text)
        state = edge(set, state, class_of(set, c));
    const uint32_t length = set.shortest[state];
    return length != 0 ? static_cast<int64_t>(text.size() - length) : -1;
}
