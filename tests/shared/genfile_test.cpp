// Checked streams: their words when they fail, where they stand afterwards, and copying.
#include <algorithm>
#include <cerrno>
#include <unistd.h>

#include "shared/genfile.h"
#include "shared/genmessage.h"
#include "support/child.h"
#include "support/elf_builder.h"

namespace {

using genfile = placed_test;

TEST_F(genfile, opening_in_modes_that_make_or_keep_files) {
    place.put("dir/a.o", "old");
    expect_fatal({{[] { gen_safe_fopen("dir", nullptr, "wb"); },
                   "Unable to open dir for output: Is a directory"},
                  {[] { gen_safe_fopen("dir/a.o", "file", "wbx"); },
                   "Unable to open file 'dir/a.o' for output: File exists"}});
    EXPECT_NE(gen_open("private", "wbx"), nullptr);
    EXPECT_EQ(place.state("private").mode, host_mode(0600));
    errno = EIO;
    gen_stream_ptr stream = gen_safe_fopen("dir/a.o", "file", "ab");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(gen_safe_fwrite("dir/a.o", "new", 3, 1, stream.get()), 1);
    EXPECT_EQ(gen_safe_fclose("dir/a.o", nullptr, std::move(stream)), 0);
    EXPECT_EQ(place.get("dir/a.o"), "oldnew");
}

TEST_F(genfile, failed_reads_and_closes_are_reported_and_handed_back) {
    auto const body = [&] {
        gen_stream_ptr stream = stream_of("0123456789");
        char bytes[12];
        // Of 10 bytes the third item of 4 is not whole: its bytes are taken, and nothing is said.
        gen_eprintf("%d;", gen_safe_fread("a.o", bytes, 4, 3, stream.get()));
        gen_eprintf("%d;", gen_safe_fread("a.o", bytes, 1, 1, stream.get()));
        close(stream->descriptor);
        gen_eprintf("%d;", gen_safe_fread(nullptr, bytes, 1, 1, stream.get()));
        gen_eprintf("%d;", gen_safe_fclose("a.o", "executable", std::move(stream)));
        gen_eprintf("%d;", gen_safe_fclose("a.o", nullptr, nullptr));
    };
    expect_text(body, "2;objtrim: fatal: Error reading from 'a.o'\n0;"
                      "objtrim: fatal: Error reading from file: Bad file descriptor\n0;"
                      "objtrim: fatal: Error closing executable 'a.o': Bad file descriptor\n-1;"
                      "objtrim: error: Attempt to close NULL file a.o\n-1;");
}

TEST_F(genfile, a_failed_write_is_reported_and_the_next_seek_fatal) {
    if (!host_has_limits)
        GTEST_SKIP() << "no write can be made to fail on this host";
    auto const body = [] {
        limit_own_files(6);
        auto const stream = gen_open("o", "wb");
        // Unlike a read, a write that does a part of its items is reported.
        gen_eprintf("%d;", gen_safe_fwrite("o", "0123456789ab", 4, 3, stream.get()));
        gen_safe_fseek64("o", stream.get(), 0, GEN_SEEK_SET);
    };
    EXPECT_EQ(run_child(body),
              child_end(1, "objtrim: fatal: Error writing to 'o': File too large\n1;"
                           "objtrim: fatal: seek failed to 0x0 in 'o': File too large\n"));
}

TEST_F(genfile, seeking_outside_what_a_position_can_be_fails) {
    auto const s = stream_of("0123456789");
    expect_fatal({{[&] { gen_safe_fseek("a.o", s.get(), -5, GEN_SEEK_SET); },
                   "seek failed to -5 in 'a.o': Invalid argument"},
                  {[&] { gen_safe_fseek64(nullptr, s.get(), -11, GEN_SEEK_END); },
                   "seek failed to 0xfffffffffffffff5 in file: Invalid argument"}});
    static const struct {
        int64_t offset;
        gen_origin origin;
        int result, byte; // the byte read there, -1 at the end
    } rows[] = {{-3, GEN_SEEK_END, 0, '7'},  {-6, GEN_SEEK_CUR, 0, '2'},
                {-4, GEN_SEEK_CUR, -1, '3'}, {INT64_MAX, GEN_SEEK_CUR, -1, '4'},
                {100, GEN_SEEK_SET, 0, -1},  {9, GEN_SEEK_SET, 0, '9'}};
    for (auto const& row : rows) {
        EXPECT_EQ(gen_seek(*s, row.offset, row.origin), row.result);
        EXPECT_EQ(gen_getc(*s), row.byte);
        EXPECT_EQ(s->at_end, row.byte == -1);
    }
}

TEST_F(genfile, reads_follow_the_position_and_see_earlier_writes) {
    std::string expected = filler(300'000, 1);
    auto const stream = stream_of(expected);
    std::string got(200'000, 0);
    for (int64_t at : {0, 65'530, 70'000, 65'500, 3, 199'999})
        for (uint64_t size : {1U, 100U, 65'536U, 100'000U}) {
            gen_safe_fseek64("f", stream.get(), at, GEN_SEEK_SET);
            EXPECT_EQ(gen_write_stream(*stream, "#", 1), 1U);
            expected[static_cast<size_t>(at)] = '#';
            EXPECT_EQ(gen_read_stream(*stream, got.data(), size), size);
            EXPECT_EQ(got.compare(0, size, expected, stream->position - size, size), 0) << at;
        }
    EXPECT_TRUE(place.get("f") == expected);
}

TEST_F(genfile, copying_goes_as_far_as_the_input_and_moves_both_positions) {
    std::string const bytes = filler(700'000, 1);
    place.put("a.o", bytes);
    for (uint64_t size : {uint64_t{0}, uint64_t{1}, uint64_t{65'537}, UINT64_MAX}) {
        auto const input = gen_open("a.o", "rb"), output = stream_of("0123456789", 2);
        gen_getc(*input); // both have read ahead
        gen_getc(*output);
        uint64_t const copied = std::min<uint64_t>(size, 699'999);
        EXPECT_EQ(gen_copy_stream(*input, *output, size), copied);
        EXPECT_EQ(input->position, 1 + copied);
        EXPECT_EQ(output->position, 3 + copied);
        EXPECT_EQ(output->size, std::max<uint64_t>(10, 3 + copied));
        std::string const expected = std::string("0123456789").replace(3, copied, bytes, 1, copied);
        EXPECT_TRUE(place.get("f") == expected) << size;
        gen_seek(*output, 3, GEN_SEEK_SET);
        EXPECT_EQ(gen_getc(*output), static_cast<uint8_t>(expected[3]));
    }
    auto const input = gen_open("a.o", "rb"), device = gen_open(null_device, "wb");
    EXPECT_EQ(gen_copy_stream(*input, *device, bytes.size()), bytes.size()); // not by the host
}

} // namespace
