// ELF fields: order, the end of the file, and what an error does with and without a sink.
#include <algorithm>
#include <cerrno>

#include "objfile/elfio.h"
#include "support/child.h"

namespace {

struct elfio : placed_test {
    ~elfio() override { elf_byte_order = ELF_ORDER_UNSET; }
};

TEST_F(elfio, fields_in_each_order) {
    for (bool big : {true, false}) {
        elf_byte_order = big ? ELF_ORDER_BIG : ELF_ORDER_LITTLE;
        auto const stream = stream_of("");
        elf_write_u16(*stream, 0x8102);
        elf_write_u32(*stream, 0x83040506);
        elf_write_u64(*stream, 0x8708090A0B0C0D0E);
        EXPECT_EQ(place.get("f"), big ? "\x81\x02\x83\4\5\6\x87\x08\x09\x0A\x0B\x0C\x0D\x0E"
                                      : "\2\x81\6\5\4\x83\x0E\x0D\x0C\x0B\x0A\x09\x08\x87");
        gen_seek(*stream, 0, GEN_SEEK_SET);
        EXPECT_EQ(elf_read_u16(*stream), 0x8102);
        EXPECT_EQ(elf_read_u32(*stream), 0x83040506);
        EXPECT_EQ(elf_read_u64(*stream), 0x8708090A0B0C0D0E);
        gen_seek(*stream, -1, GEN_SEEK_CUR); // bytes past the end are 0xFF, and no error
        EXPECT_EQ(elf_read_u32(*stream), big ? 0x0EFFFFFF : 0xFFFFFF87);
        EXPECT_EQ(elf_read_u8(*stream), 0xFF);
        elf_byte_order = big ? ELF_ORDER_LITTLE : ELF_ORDER_BIG; // these two do not look at it
        gen_seek(*stream, 0, GEN_SEEK_SET);
        EXPECT_EQ(elf_read_u16_as(*stream, big), 0x8102);
        EXPECT_EQ(elf_read_u32_as(*stream, big), 0x83040506);
    }
}

TEST_F(elfio, an_unset_order_is_an_error_after_the_bytes_are_taken) {
    elf_silence const silence;
    EXPECT_EQ(silence.flag, 0);
    auto const stream = stream_of("0123456789abcdef");
    EXPECT_EQ(elf_read_u16(*stream) + elf_read_u32(*stream) + elf_read_u64(*stream), 0U);
    EXPECT_EQ(stream->position, 14U);
    EXPECT_EQ(silence.flag, -1);
    elf_write_u16(*stream, 1);
    elf_write_u32(*stream, 1);
    elf_write_u64(*stream, 1);
    EXPECT_EQ(silence.errors(), 6U);
    EXPECT_EQ(place.get("f"), "0123456789abcdef");
}

TEST_F(elfio, errors_are_fatal_without_a_sink) {
    auto const stream = stream_of("0123456789");
    auto const unreadable = gen_open("f", "ab");
    gen_seek(*unreadable, 0, GEN_SEEK_SET);
    expect_fatal({
        {[&] { elf_read_u16(*stream); }, "internal, endian not set"},
        {[&] { elf_write_u64(*stream, 1); }, "internal, endian not set"},
        {[] {
             elf_overflow_hook = [] { errno = EISDIR; };
             elf_overflow();
         },
         "ELF file overflow: Is a directory"},
        {[] { elf_narrow(0x100000000); }, "ELF file overflow"},
        {[] { elf_bad_class(); }, "Unexpected elfbits"},
        {[] { elf_error("a %s b", "%d"); }, "a %d b"},
        {[&] { elf_read_bytes(*stream, 16); }, "read failed, unexpected EOF"},
        {[&] { elf_read_bytes(*stream, UINT64_MAX); }, "read failed, unexpected EOF"},
        {[&] { elf_read_bytes(*unreadable, 4); }, "read failed: Bad file descriptor"},
        {[] {
             gen_calloc_slot = [](uint64_t, uint64_t) -> void* { return nullptr; };
             elf_malloc(1234);
         },
         "out of memory allocating 1234 bytes"},
    });
}

TEST_F(elfio, blocks) {
    static uint64_t most;
    elf_silence const silence;
    auto const stream = stream_of("0123456789");
    EXPECT_STREQ(elf_read_bytes(*stream, 4).text(), "0123"); // with a NUL behind it
    EXPECT_EQ(stream->position, 4U);
    EXPECT_EQ(elf_malloc(0).bytes, nullptr);
    EXPECT_EQ(elf_read_bytes(*stream, 0).size, 0U);
    EXPECT_EQ(silence.errors(), 0U);

    gen_calloc_slot = [](uint64_t count, uint64_t size) {
        most = std::max(most, count * size);
        return gen_calloc(count, size);
    };
    for (uint64_t size : {uint64_t{7}, uint64_t{1} << 40, UINT64_MAX}) {
        gen_block const block = elf_read_bytes(*stream, size);
        EXPECT_TRUE(block.size == 0 && !block.bytes) << size;
    }
    gen_calloc_slot = gen_calloc;
    EXPECT_EQ(silence.errors(), 6U); // a failed read counts twice
    EXPECT_LT(most, 1'000'000U);
}

} // namespace
