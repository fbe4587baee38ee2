// The allocator's rules, its two fatal ends, and the containers' memory over its slots.
#include <algorithm>
#include <cstring>

#include "shared/genmem.h"
#include "support/child.h"

namespace {

struct {
    uint64_t allocated, released, count, size;
} calls;

// Counts what goes through the slots while it lives.
struct slot_watch {
    slot_watch() {
        calls = {};
        gen_calloc_slot = [](uint64_t count, uint64_t size) {
            calls = {calls.allocated + 1, calls.released, count, size};
            return gen_calloc(count, size);
        };
        gen_free_slot = [](void* block) {
            calls.released += block != nullptr;
            gen_free(block);
        };
    }
    ~slot_watch() {
        gen_calloc_slot = gen_calloc;
        gen_free_slot = gen_free;
    }
};

bool all_zero(const char* block, size_t size) {
    return std::all_of(block, block + size, [](char c) { return c == 0; });
}

TEST(genmem, impossible_requests_end_the_program) {
    // Overflow is looked for only where the halved product, itself cut to 64 bits, is large. What
    // slips through fails in the runtime, and is reported with the cut product; but a sanitizer's
    // allocator has a report of its own.
    static const struct {
        uint64_t count, size;
        const char* text;
        bool in_runtime;
    } rows[] = {
        {UINT64_MAX - 2, 2, "Attempt to allocate 0xfffffffffffffffd * 0x2 bytes", false},
        {1ULL << 32, 1ULL << 32, "Attempt to allocate 0x100000000 * 0x100000000 bytes", false},
        {2, 0x7FFFFFFFFFFFFFFF, "Attempt to allocate 0x2 * 0x7fffffffffffffff bytes", false},
        {2, 0x7FFFFFFFFFFFFFFD, "Out of memory (0xFFFFFFFFFFFFFFFA bytes requested)", true},
        {1, UINT64_MAX, "Out of memory (0xFFFFFFFFFFFFFFFF bytes requested)", true},
        {3, 0x6000000000000000, "Out of memory (0x2000000000000000 bytes requested)", true},
        {1ULL << 33, 1ULL << 33, "Out of memory (0x0000000000000000 bytes requested)", true},
    };
    for (auto const& row : rows) {
        if (row.in_runtime && is_sanitized_build())
            continue;
        EXPECT_EQ(run_child([&] { gen_calloc(row.count, row.size); }),
                  child_end(3, std::string("objtrim: fatal: ") + row.text + "\n"));
    }
}

TEST(genmem, resizing_and_releasing) {
    EXPECT_EQ(gen_calloc(0, UINT64_MAX), nullptr);
    slot_watch const watch;
    for (int64_t size : {int64_t{0}, int64_t{-1}, INT64_MIN})
        EXPECT_EQ(gen_realloc(gen_calloc(1, 8), size), nullptr) << size;
    EXPECT_EQ(calls.released, 3U);

    char* text = static_cast<char*>(gen_realloc(nullptr, 16));
    EXPECT_EQ(calls.count, 1U);
    EXPECT_EQ(calls.size, 16U);
    EXPECT_TRUE(all_zero(text, 16));
    memcpy(text, "0123456789abcde", 16);
    void* block = gen_realloc_array(text, 1000, 10);
    EXPECT_STREQ(static_cast<char*>(block), "0123456789abcde");
    gen_free_and_clear(&block);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(calls.released, 4U);
    gen_free_and_clear(nullptr);
    gen_free(nullptr);
}

TEST(genmem, containers_and_blocks_use_the_slots) {
    EXPECT_EQ(gen_new_block(0).view().size(), 0U);
    slot_watch const watch;
    {
        std::string const letters(5000, 'x');
        EXPECT_GE(calls.count * calls.size, letters.size());
        gen_block const block = gen_new_block(7001);
        EXPECT_GE(calls.count * calls.size, block.size);
        EXPECT_EQ(block.view().size(), 7001U);
        EXPECT_TRUE(all_zero(block.text(), 7001));
        EXPECT_EQ(calls.allocated, 2U);
    }
    EXPECT_EQ(calls.released, 2U);
}

} // namespace
