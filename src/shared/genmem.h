// Memory: the allocator's routine slots and what stands on them.
//
// Allocation never returns null for want of memory: exhaustion ends the program with status 3. The
// standard containers use the same slots, through the global operator new and delete that
// genmem.cpp defines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

extern void* (*gen_calloc_slot)(uint64_t count, uint64_t size);
extern void* (*gen_realloc_slot)(void* block, int64_t size);
extern void (*gen_free_slot)(void* block);

// A zeroed block of `count` items of `size` bytes; null for a count of 0.
void* gen_calloc(uint64_t count, uint64_t size);
// The resized block. A size below 1 releases it and gives null; a null block is allocated zeroed.
void* gen_realloc(void* block, int64_t size);
// The product is not checked.
void* gen_realloc_array(void* block, uint64_t count, uint64_t size);
// Null is ignored.
void gen_free(void* block);
void gen_free_and_clear(void** block);

// From now on releasing memory does nothing; clean-up handlers at exit may still look at it.
void gen_stop_freeing();

struct gen_releaser {
    void operator()(void* block) const { gen_free_slot(block); }
};

// Bytes of one table or string table, owned.
struct gen_block {
    std::unique_ptr<std::byte[], gen_releaser> bytes;
    uint64_t size = 0;

    std::span<std::byte> view() const { return {bytes.get(), size}; }
    const char* text() const { return reinterpret_cast<const char*>(bytes.get()); }
};

// A block of `size` zeroed bytes; an empty one for 0.
gen_block gen_new_block(uint64_t size);
