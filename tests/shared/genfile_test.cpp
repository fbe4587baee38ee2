// Checked streams: what they answer and say, where they stand afterwards, and copying.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "shared/genfile.h"
#include "shared/genmessage.h"
#include "support/child.h"
#include "support/elf_builder.h"

namespace {

using genfile = placed_test;

TEST_F(genfile, modes_make_keep_or_refuse_files) {
    place.put("dir/a.o", "old");
    expect_fatal({{[] { gen_safe_fopen("dir", nullptr, "wb"); },
                   "Unable to open dir for output: Is a directory"},
                  {[] { gen_safe_fopen("dir", "file", "rb"); },
                   "Unable to open file 'dir' for input: Is a directory"},
                  {[] { gen_safe_fopen("none", nullptr, "rb+"); },
                   "Unable to open none for input: No such file or directory"},
                  {[] { gen_safe_fopen("dir/a.o", "file", "wbx"); },
                   "Unable to open file 'dir/a.o' for output: File exists"}});
    EXPECT_NE(gen_open("private", "wbx"), nullptr);
    EXPECT_EQ(place.state("private").mode, host_mode(0600));
    EXPECT_FALSE(gen_open("private", "wb+x"));
    EXPECT_FALSE(gen_open("private", "x"));
    EXPECT_EQ(errno, EINVAL);
    errno = EIO;
    gen_stream_ptr stream = gen_safe_fopen("dir/a.o", "file", "ab");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(gen_safe_fwrite("dir/a.o", "newer", 2, 2, stream.get()), 2);
    EXPECT_EQ(gen_safe_fclose("dir/a.o", nullptr, std::move(stream)), 0);
    EXPECT_EQ(place.get("dir/a.o"), "oldnewe");
}

TEST_F(genfile, failures_are_told_in_full_and_handed_back) {
    const gen_stream_ptr s = stream_of("0123456789"), reader = gen_open("f", "rb");
    const gen_stream_ptr writer = gen_open("w", "wb");
    const std::string reason = std::string(": ") + strerror(host_has_tools ? EBADF : EACCES) + "\n";
    const std::string reading = "fatal: Error reading from ", null = "error: internal: null buffer";
    const std::string beyond = "(): count exceeds unsigned 32-bit range\n";
    constexpr uint64_t half = uint64_t{1} << 63, too_many = (uint64_t{1} << 32) + 1;
    char b[12];
    const auto close_twice = [&] {
        gen_stream_ptr closed = gen_open("f", "rb");
        close(closed->descriptor);
        return gen_safe_fclose("a.o", "executable", std::move(closed));
    };
    const struct {
        std::function<int64_t()> call; // with the stream at the second of its ten bytes
        int64_t answer;
        std::string said = {};
    } rows[] = {
        {[&] { return gen_safe_fread("f", b, 4, 3, s.get()); }, 2},
        {[&] { return gen_safe_fread("f", b, 9, 1, s.get()); }, 1},
        {[&] { return gen_safe_fread("f", b, 10, 1, s.get()); }, 0, reading + "'f'\n"},
        {[&] { return gen_safe_fread("f", b, -1, 1, s.get()); }, 0, reading + "'f'\n"},
        {[&] { return gen_safe_fread("f", b, 1, -1, s.get()); }, 0, reading + "'f'\n"},
        {[&] { return gen_safe_fread64("f", b, half, 2, s.get()); }, 0, reading + "'f'\n"},
        {[&] { return gen_safe_fread64("f", b, 2, 2, s.get()); }, 2},
        {[&] { return gen_safe_fread64(nullptr, b, 1, 1, writer.get()); }, 0,
         reading + "file" + reason},
        {[&] { return gen_safe_fread("f", nullptr, 1, 1, s.get()); }, -1,
         null + " passed to gen_safe_fread\n"},
        {[&] { return gen_safe_fread64("f", nullptr, 1, 1, s.get()); }, -1,
         null + " passed to gen_safe_fread64\n"},
        {[&] { return gen_safe_fwrite("w", "ab", 1, 2, writer.get()); }, 2},
        {[&] { return gen_safe_fwrite("w", "a", -1, 1, writer.get()); }, 0,
         "fatal: Error writing to 'w'\n"},
        {[&] { return gen_safe_fwrite64("w", "a", 0, 0, writer.get()); }, 0},
        {[&] { return gen_safe_fwrite64("w", "a", half, 2, writer.get()); }, 0,
         "fatal: Error writing to 'w'\n"},
        {[&] { return gen_safe_fwrite(nullptr, "a", 1, 1, reader.get()); }, 0,
         "fatal: Error writing to file" + reason},
        {close_twice, -1,
         "fatal: Error closing executable 'a.o'" + std::string(": ") + strerror(EBADF) + "\n"},
        {[] { return gen_safe_fclose("a.o", nullptr, nullptr); }, -1,
         "error: Attempt to close NULL file a.o\n"},
        {[&] { return gen_safe_fflush("f", s.get()); }, 0},
        {[&] { return gen_read(s->descriptor, b, too_many); }, 1, "error: gen_read" + beyond},
        {[&] { return gen_write(s->descriptor, b, too_many); }, 1, "error: gen_write" + beyond},
    };
    for (const auto& [call, answer, said] : rows) {
        gen_seek(*s, 1, GEN_SEEK_SET);
        expect_text([&] { gen_eprintf("%lld", static_cast<long long>(call())); },
                    (said.empty() ? "" : "objtrim: " + said) + std::to_string(answer));
    }
    // Nobody builds on a file with a hole in it.
    const std::string refused = "objtrim: fatal: Error writing to 'f'" + reason;
    expect_end([&] { gen_safe_fflush("f", reader.get()); }, 1, refused);
    const std::string in_hole = "objtrim: fatal: seek failed to 0x0 in 'f'" + reason;
    expect_end([&] { gen_safe_fseek64("f", reader.get(), 0, GEN_SEEK_SET); }, 1, in_hole);
}

TEST_F(genfile, seeking_outside_what_a_position_can_be_fails) {
    const gen_stream_ptr s = stream_of("0123456789");
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
    for (const auto& row : rows) {
        EXPECT_EQ(gen_seek(*s, row.offset, row.origin), row.result) << row.offset;
        EXPECT_EQ(gen_getc(*s), row.byte) << row.offset;
        EXPECT_EQ(s->at_end, row.byte == -1) << row.offset;
    }
}

TEST_F(genfile, reads_follow_the_position_and_see_earlier_writes) {
    std::string expected = filler(300'000, 1);
    const gen_stream_ptr stream = stream_of(expected);
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
    std::string bytes = filler(700'000, 1);
    place.put("a.o", bytes);
    bytes.resize(1'100'000);
    gen_set_length("a.o", bytes.size()); // a part that is never written
    for (uint64_t size :
         {uint64_t{0}, uint64_t{1}, uint64_t{65'537}, uint64_t{900'000}, UINT64_MAX})
        for (const bool unit : {false, true}) { // where the host can copy
            const gen_stream_ptr input = gen_open("a.o", "rb");
            const gen_stream_ptr output = stream_of("0123456789", unit ? 0 : 2);
            gen_getc(*input); // both have read ahead
            gen_getc(*output);
            const uint64_t copied = std::min<uint64_t>(size, 1'099'999),
                           end = (unit ? 1 : 3) + copied;
            EXPECT_EQ(gen_copy_stream(*input, *output, size), copied);
            EXPECT_EQ(input->position, 1 + copied) << size;
            EXPECT_EQ(output->position, end) << size;
            EXPECT_EQ(output->size, std::max<uint64_t>(10, end)) << size;
            std::string expected = "0123456789";
            expected.replace(end - copied, copied, bytes, 1, copied);
            EXPECT_TRUE(place.get("f") == expected) << size << (unit ? " in place" : " moved");
            gen_seek(*output, 3, GEN_SEEK_SET);
            EXPECT_EQ(gen_getc(*output), static_cast<uint8_t>(expected[3])) << size;
        }
    const gen_stream_ptr input = gen_open("a.o", "rb"), device = gen_open(null_device, "wb");
    EXPECT_EQ(gen_copy_stream(*input, *device, bytes.size()), bytes.size()); // not by the host
}

} // namespace
