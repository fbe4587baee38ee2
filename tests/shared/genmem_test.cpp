// The allocator's two fatal ends, its rules, and the containers' memory over its slots.
#include <cstring>

#include "shared/genmem.h"
#include "shared/genout.h"
#include "support/child.h"

namespace {

child_end ask_for(uint64_t count, uint64_t size) {
    return run_child([&] { gen_calloc(count, size); });
}

TEST(genmem, impossible_requests_end_the_program) {
    EXPECT_EQ(ask_for(UINT64_MAX - 2, 2),
              child_end(3, "objtrim: fatal: Attempt to allocate 0xfffffffffffffffd * 0x2 bytes\n"));
    // Not every product is looked at: some fail in the runtime, and a sanitizer's allocator has a
    // report of its own.
    if (!is_sanitized_build())
        EXPECT_EQ(ask_for(2, 0x7FFFFFFFFFFFFFFD),
                  child_end(3, "objtrim: fatal: Out of memory (0xFFFFFFFFFFFFFFFA bytes "
                               "requested)\n"));
}

TEST(genmem, containers_and_blocks_take_from_the_slots_and_give_back) {
    static int taken, given_back;
    auto const body = [] {
        gen_calloc_slot = [](uint64_t count, uint64_t size) {
            ++taken;
            return gen_calloc(count, size);
        };
        gen_free_slot = [](void* block) {
            given_back += block != nullptr;
            gen_free(block);
        };
        gen_eprintf("%s", gen_new_block(7001).text());
        gen_eprintf("%s ", std::string(50, 'x').c_str());
        void* text = gen_realloc(nullptr, 16);
        memcpy(text, "kept", 5);
        text = gen_realloc(text, 1'000'000);
        gen_eprintf("%s ", static_cast<char*>(text));
        text = gen_realloc(text, 0);
        gen_eprintf("%d %d %d", text == nullptr, taken, given_back);
    };
    expect_text(body, std::string(50, 'x') + " kept 1 3 3");
}

} // namespace
