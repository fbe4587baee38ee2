// Many texts sought in one pass over another text.
//
// A pattern set is a trie over byte classes (bytes that no pattern uses share one). Used as it is,
// it tests how a text begins; with the fall-back links of Aho and Corasick ("Efficient string
// matching", 1975) it finds every place where a pattern ends, at a cost that does not depend on
// their number. Most of a text is not even looked at: two bytes tell how far ahead the next pattern
// can begin (Wu and Manber, "A fast algorithm for multi-pattern searching", 1994).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

// What a set has been prepared for: a trie of its own for each of the two.
enum pattern_use { PATTERN_NOTHING, PATTERN_BEGINNINGS, PATTERN_SEARCH };

struct pattern_set {
    std::vector<std::string_view> patterns; // not empty ones
    pattern_use ready_for = PATTERN_NOTHING;
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

// Adds a pattern, which is not copied. The set has to be prepared anew.
void add_pattern(pattern_set& set, std::string_view pattern);

// Makes the set ready for begins_with_pattern, or for the other two routines. What is ready already
// costs nothing.
void prepare_beginnings(pattern_set& set);
void prepare_search(pattern_set& set);

// Whether `text` begins with a pattern.
bool begins_with_pattern(const pattern_set& set, const char* text);

// The last place in `text` where a pattern begins that is found there, or -1.
int64_t last_pattern_start(const pattern_set& set, std::string_view text);

// The last place in `text` where a pattern begins that ends with the text, or -1.
int64_t ending_pattern_start(const pattern_set& set, std::string_view text);
