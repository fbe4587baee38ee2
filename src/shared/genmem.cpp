// Memory: the routines that the allocator slots begin with, and the global operator new over them.
#include "shared/genmem.h"

#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "shared/genexit.h"
#include "shared/host.h"

namespace {

// A cheap look first: only a request whose size and count are both far out of the ordinary is
// tested by division. The halved product may wrap, and the division is then left out; the
// runtime's own check catches what this one lets pass.
bool product_overflows(uint64_t count, uint64_t size) {
    if (count + size <= 0x1FFFFFFFF || (count >> 1) * (size >> 1) < 0x3FFFFFFFFFFFFFFF)
        return false;
    return UINT64_MAX / size <= count || UINT64_MAX / count <= size;
}

void free_nothing(void*) {}

constexpr uint64_t large_block = 4 * 1024 * 1024;

} // namespace

void* (*gen_calloc_slot)(uint64_t, uint64_t) = gen_calloc;
void* (*gen_realloc_slot)(void*, int64_t) = gen_realloc;
void (*gen_free_slot)(void*) = gen_free;

void* gen_calloc(uint64_t count, uint64_t size) {
    if (count == 0)
        return nullptr;
    if (product_overflows(count, size))
        gen_fatal(status_no_memory, "Attempt to allocate %#zx * %#zx bytes\n",
                  static_cast<size_t>(count), static_cast<size_t>(size));
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): this is the allocator
    void* block = calloc(count, size != 0 ? size : 1);
    if (!block)
        gen_out_of_memory(count * size);
    if (count * size >= large_block)
        host_expect_use(block, count * size);
    return block;
}

void* gen_realloc(void* block, int64_t size) {
    if (size < 1) {
        gen_free_slot(block);
        return nullptr;
    }
    const uint64_t wanted = static_cast<uint64_t>(size);
    if (!block)
        return gen_calloc_slot(1, wanted);
    void* resized = realloc(block, wanted);
    if (!resized)
        gen_out_of_memory(wanted);
    return resized;
}

void* gen_realloc_array(void* block, uint64_t count, uint64_t size) {
    return gen_realloc_slot(block, static_cast<int64_t>(count * size));
}

void gen_free(void* block) {
    free(block);
}

void gen_free_and_clear(void** block) {
    if (!block)
        return;
    gen_free_slot(*block);
    *block = nullptr;
}

void gen_stop_freeing() {
#if defined(__SANITIZE_ADDRESS__)
    // Now, for afterwards everything looks lost that a destructor gives back.
    __lsan_do_leak_check();
#endif
    gen_free_slot = free_nothing;
}

gen_block gen_new_block(uint64_t size) {
    gen_block block;
    block.bytes.reset(static_cast<std::byte*>(size != 0 ? gen_calloc_slot(1, size) : nullptr));
    block.size = size;
    return block;
}

void* operator new(size_t size) {
    return gen_calloc_slot(1, size != 0 ? size : 1);
}

void* operator new[](size_t size) {
    return gen_calloc_slot(1, size != 0 ? size : 1);
}

// The sanitizers bring nothrow forms of their own, which would not fit the routines below.
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return operator new[](size);
}

void operator delete(void* block) noexcept {
    gen_free_slot(block);
}

void operator delete[](void* block) noexcept {
    gen_free_slot(block);
}

void operator delete(void* block, size_t) noexcept {
    gen_free_slot(block);
}

void operator delete[](void* block, size_t) noexcept {
    gen_free_slot(block);
}
