// The smaller shared routines at their edges: what they answer, and what they say of wrong
// requests.
#include <gtest/gtest.h>
#include <unistd.h>

#include "objfile/elfsym.h"
#include "shared/genfile.h"
#include "shared/genmem.h"
#include "shared/genout.h"
#include "support/child.h"
#include "util/elfstrings.h"

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
    elf_byte_order = ELF_ORDER_BIG;
    std::byte entry[8];
    string_move full, middle = prepare_strings("abc", 4);
    append_string(full, "", UINT32_MAX);
    middle.old.size = UINT64_MAX;
    middle.newstrsize = UINT32_MAX - 1;
    expect_fatal({{[] { elf_index_in(0x10000); }, "Invalid section"},
                  {[&] {
                       elf_encode_rel(entry, {0, uint64_t{1} << 56}, 32);
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

} // namespace
