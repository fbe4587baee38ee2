// The smaller shared routines at their edges: what they answer, and what they say of wrong
// requests; and the containers' memory over the allocator's slots.
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

#include "objfile/elfrel.h"
#include "objfile/elfsym.h"
#include "shared/genexit.h"
#include "shared/genfile.h"
#include "shared/genmem.h"
#include "support/child.h"
#include "util/elfstrings.h"
#include "util/version.h"

namespace {

struct routines : placed_test {};

TEST_F(routines, wrong_requests_are_told) {
    const gen_stream_ptr stream = stream_of("abc");
    char byte = 0;
    const std::string error = "objtrim: error: ";
    const std::pair<std::function<bool()>, std::string> rows[] = {
        {[&] { return gen_safe_fread("f", nullptr, 1, 1, stream.get()) == -1; },
         "internal: null buffer passed to gen_safe_fread\n"},
        {[&] { return gen_safe_fread64("f", nullptr, 1, 1, stream.get()) == -1; },
         "internal: null buffer passed to gen_safe_fread64\n"},
        {[&] { return gen_read(stream->descriptor, &byte, uint64_t{1} << 32) == 0; },
         "gen_read(): count exceeds unsigned 32-bit range\n"},
        {[&] { return gen_write(stream->descriptor, &byte, uint64_t{1} << 32) == 0; },
         "gen_write(): count exceeds unsigned 32-bit range\n"},
    };
    for (const auto& row : rows) {
        const auto body = [&row] {
            if (!row.first())
                _exit(1);
        };
        expect_text(body, error + row.second);
    }
    expect_fatal(
        {{[] { gen_str64(nullptr, 1, 'x'); }, "gen_str64(): Buffer to fill is NULL"},
         {[&] { gen_str64(&byte, 1, 'o'); }, "gen_str64(): Unrecognized format character"}});
    elf_access elf = {.elfbits = 32, .elf_byte_order = ELF_ORDER_BIG};
    std::byte entry[8];
    string_move full, middle = prepare_strings("abc", 4);
    append_string(full, "", UINT32_MAX);
    middle.old.size = UINT64_MAX;
    middle.newstrsize = UINT32_MAX - 1;
    expect_fatal({{[] { elf_index_in(0x10000); }, "Invalid section"},
                  {[&] {
                       elf_encode_rel(elf, entry, {0, uint64_t{1} << 56});
                   },
                   "ELF file overflow"},
                  {[&] { append_string(full, "", 1); }, "64-bit value truncated"},
                  {[&] { move_string(middle, 2); }, "64-bit value truncated"}});
    EXPECT_EQ(gen_read(stream->descriptor, &byte, 1), 1);
    EXPECT_EQ(byte, 'a');
    EXPECT_FALSE(gen_open("f", "x"));
}

TEST_F(routines, numbers_and_blocks) {
    const char* end = "";
    EXPECT_EQ(gen_strtoul(nullptr, &end, 10), 0);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(gen_strtoul("4294967295z", &end, 10), -1);
    EXPECT_EQ(*end, 'z');
    EXPECT_EQ(gen_strtoul("0x10", nullptr, 0), 16);
    EXPECT_EQ(gen_strlen("four"), 4);
    char text[21];
    EXPECT_STREQ(gen_str64(text, -1, 'x'), "ffffffffffffffff");
    EXPECT_STREQ(gen_str64(text, INT64_MIN, 'd'), "-9223372036854775808");

    EXPECT_EQ(gen_calloc(0, 100), nullptr);
    void* block = gen_realloc_array(nullptr, 4, 4);
    EXPECT_EQ(std::string(static_cast<char*>(block), 16), std::string(16, '\0'));
    EXPECT_EQ(gen_realloc(block, 0), nullptr);
    block = gen_calloc(1, 1);
    gen_free_and_clear(&block);
    EXPECT_EQ(block, nullptr);
    gen_free_and_clear(nullptr);
}

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

TEST_F(routines, version_stamps) {
    const std::string product = "Orvale Software, Compiler v2023.5.4";
    const auto begins = [](const std::string& text, const std::string& start) {
        return text.starts_with(start) && text.find_first_not_of(' ', start.size()) == text.npos;
    };
    EXPECT_TRUE(begins(version_stamp(0), "@(#)" + product));
    EXPECT_TRUE(begins(version_stamp(VERSION_MARKED), product));
    EXPECT_TRUE(begins(version_stamp(VERSION_CHANGED), "Compiler v2023.5.4"));
    EXPECT_TRUE(begins(customer_stamp(VERSION_MARKED), "[Customer version stamp space]"));
    EXPECT_EQ(customer_stamp(VERSION_CHANGED), "");
    EXPECT_TRUE(begins(directory_stamp(VERSION_CHANGED), "[Directory] src/util"));
    EXPECT_TRUE(begins(version_control_stamp(VERSION_CHANGED), "[VCInfo] objtrim"));
}

} // namespace
