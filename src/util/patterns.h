// Many texts sought in one pass over another text.
//
// A pattern set is a trie over byte classes (bytes that no pattern uses share one). Used as it is,
// it tests how a text begins; with the fall-back links of Aho and Corasick ("Efficient string
// matching", 1975) it finds every place where a pattern ends, at a cost that does not depend on
// their number. Most of a text is not even looked at: two bytes tell how far ahead the next pattern
// can begin (Wu and Manber, "A fast algorithm for multi-pattern searching", 1994).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

// What a search goes by.
struct pattern_tables {
    uint8_t class_of[256] = {}; // 0 for a byte that no pattern uses
    uint32_t class_count = 1;
    std::vector<uint32_t> next;     // by state * class_count + class
    std::vector<uint32_t> shortest; // by state: length of the shortest pattern that ends here, or 0
    size_t longest_length = 0;      // of the patterns
    size_t shortest_length = 0;
    // By two bytes: how far a window that ends in them, as long as the shortest pattern, may move
    // on without missing a pattern's beginning. Empty where that is never more than a byte.
    std::vector<uint8_t> skips;
};

struct pattern_set {
    const bool is_for_beginnings;                // for begins_with_pattern, not for the other two
    std::vector<std::string_view> patterns = {}; // not empty ones
    // Made at the first search, by the thread that comes first.
    mutable std::atomic<bool> is_made = false;
    mutable std::mutex making = {};
    mutable pattern_tables tables = {};
};

// Adds a pattern, which is not copied, while nobody searches.
void add_pattern(pattern_set& set, std::string_view pattern);

// Whether `text` begins with a pattern.
bool begins_with_pattern(const pattern_set& set, const char* text);

// The last place in `text` where a pattern begins that is found there, or -1.
int64_t last_pattern_start(const pattern_set& set, std::string_view text);

// The last place in `text` where a pattern begins that ends with the text, or -1.
int64_t ending_pattern_start(const pattern_set& set, std::string_view text);
