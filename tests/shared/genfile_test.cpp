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
    place.put("a", "old");
    expect_fatal({{[] { gen_safe_fopen(".", nullptr, "wb"); },
                   "Unable to open . for output: Is a directory"},
                  {[] { gen_safe_fopen(".", "file", "rb"); },
                   "Unable to open file '.' for input: Is a directory"},
                  {[] { gen_safe_fopen("none", nullptr, "rb+"); },
                   "Unable to open none for input: No such file or directory"},
                  {[] { gen_safe_fopen("a", "file", "wbx"); },
                   "Unable to open file 'a' for output: File exists"}});
    EXPECT_NE(gen_open("private", "wbx"), nullptr);
    EXPECT_EQ(place.state("private").mode, host_mode(0600));
    EXPECT_FALSE(gen_open("private", "wb+x") || gen_open("private", "x"));
    EXPECT_EQ(errno, EINVAL);
    errno = EIO;
    gen_stream_ptr stream = gen_safe_fopen("a", "file", "ab");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(gen_safe_fwrite("a", "newer", 2, 2, stream.get()), 2);
    EXPECT_EQ(gen_safe_fclose("a", nullptr, std::move(stream)), 0);
    EXPECT_EQ(place.get("a"), "oldnewe");
}

TEST_F(genfile, failures_are_told_in_full_and_handed_back) {
    const gen_stream_ptr file = stream_of("0123456789"), reader = gen_open("f", "rb");
    const gen_stream_ptr writer = gen_open("w", "wb");
    gen_stream *const s = file.get(), *const r = reader.get(), *const w = writer.get();
    const std::string reading = "objtrim: fatal: Error reading from ";
    const std::string writing = "objtrim: fatal: Error writing to ";
    const std::string null = "objtrim: error: internal: null buffer passed to gen_safe_fread";
    const std::string denied = strerror(host_has_tools ? EBADF : EACCES) + std::string("\n");
    const std::string bad = strerror(EBADF) + std::string("\n");
    const std::string cut = "(): count exceeds unsigned 32-bit range\n1";
    constexpr uint64_t half = uint64_t{1} << 63, too_many = (uint64_t{1} << 32) + 1;
    char b[12];
    // What is said, and the answer, of a call with the stream at the second of its ten bytes.
    const auto call = [&](const std::function<int64_t()>& body) {
        gen_seek(*s, 1, GEN_SEEK_SET);
        return said_by([&] { gen_eprintf("%d", static_cast<int>(body())); });
    };
    EXPECT_EQ(call([&] { return gen_safe_fread("f", b, 4, 3, s); }), "2");
    EXPECT_EQ(call([&] { return gen_safe_fread("f", b, 9, 1, s); }), "1");
    EXPECT_EQ(call([&] { return gen_safe_fread("f", b, 10, 1, s); }), reading + "'f'\n0");
    EXPECT_EQ(call([&] { return gen_safe_fread("f", b, -1, 1, s); }), reading + "'f'\n0");
    EXPECT_EQ(call([&] { return gen_safe_fread("f", b, 1, -1, s); }), reading + "'f'\n0");
    EXPECT_EQ(call([&] { return gen_safe_fread64("f", b, half, 2, s); }), reading + "'f'\n0");
    EXPECT_EQ(call([&] { return gen_safe_fread64("f", b, 2, 2, s); }), "2");
    EXPECT_EQ(call([&] { return gen_safe_fread64(nullptr, b, 1, 1, w); }),
              reading + "file: " + denied + "0");
    EXPECT_EQ(call([&] { return gen_safe_fread("f", nullptr, 1, 1, s); }), null + "\n-1");
    EXPECT_EQ(call([&] { return gen_safe_fread64("f", nullptr, 1, 1, s); }), null + "64\n-1");
    EXPECT_EQ(call([&] { return gen_safe_fwrite("w", "ab", 1, 2, w); }), "2");
    EXPECT_EQ(call([&] { return gen_safe_fwrite("w", "a", -1, 1, w); }), writing + "'w'\n0");
    EXPECT_EQ(call([&] { return gen_safe_fwrite64("w", "a", 0, 0, w); }), "0");
    EXPECT_EQ(call([&] { return gen_safe_fwrite64("w", "a", half, 2, w); }), writing + "'w'\n0");
    EXPECT_EQ(call([&] { return gen_safe_fwrite(nullptr, "a", 1, 1, r); }),
              writing + "file: " + denied + "0");
    EXPECT_EQ(call([&] { return gen_safe_fclose("a.o", nullptr, nullptr); }),
              "objtrim: error: Attempt to close NULL file a.o\n-1");
    EXPECT_EQ(call([&] { return gen_safe_fflush("f", s); }), "0");
    EXPECT_EQ(call([&] { return gen_read(reader->descriptor, b, too_many); }),
              "objtrim: error: gen_read" + cut);
    EXPECT_EQ(call([&] { return gen_write(w->descriptor, b, too_many); }),
              "objtrim: error: gen_write" + cut);
    // Nobody builds on a file with a hole in it.
    expect_end([&] { gen_safe_fflush("f", r); }, 1, writing + "'f': " + denied);
    expect_end([&] { gen_safe_fseek64("f", r, 0, GEN_SEEK_SET); }, 1,
               "objtrim: fatal: seek failed to 0x0 in 'f': " + denied);
    expect_fatal({{[&] { gen_safe_fseek("f", s, -5, GEN_SEEK_SET); },
                   "seek failed to -5 in 'f': Invalid argument"},
                  {[&] { gen_safe_fseek64(nullptr, s, -11, GEN_SEEK_END); },
                   "seek failed to 0xfffffffffffffff5 in file: Invalid argument"}});
    gen_stream_ptr closed = gen_open("f", "rb");
    close(closed->descriptor);
    EXPECT_EQ(call([&] { return gen_safe_fclose("f", "executable", std::move(closed)); }),
              "objtrim: fatal: Error closing executable 'f': " + bad + "-1");
}

TEST_F(genfile, positions_and_reads) {
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
    const gen_stream_ptr s = stream_of("0123456789");
    EXPECT_TRUE(gen_open_part(*s, 4, 6) && !gen_open_part(*s, 4, 7) && !gen_open_part(*s, 11, 1));
    const int descriptor = gen_open("f", "rb")->descriptor; // which is free again
    EXPECT_EQ(gen_open("f", "rb")->descriptor, descriptor);
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

TEST_F(genfile, copying_goes_as_far_as_the_input_and_moves_both_positions) {
    std::string bytes = filler(700'000, 1);
    place.put("a.o", bytes);
    bytes.resize(1'100'000);
    gen_set_length("a.o", bytes.size()); // a part that is never written
    for (uint64_t size :
         {uint64_t{0}, uint64_t{1}, uint64_t{65'537}, uint64_t{900'000}, UINT64_MAX})
        for (const uint64_t at : {0U, 2U}) { // where the host can copy, and where it cannot
            SCOPED_TRACE(std::to_string(size) + " to " + std::to_string(at));
            const gen_stream_ptr input = gen_open("a.o", "rb"),
                                 output = stream_of("0123456789", at);
            gen_getc(*input); // both have read ahead
            gen_getc(*output);
            const uint64_t copied = std::min<uint64_t>(size, 1'099'999), end = at + 1 + copied;
            EXPECT_EQ(gen_copy_stream(*input, *output, size), copied);
            EXPECT_EQ(input->position, 1 + copied);
            EXPECT_EQ(output->position, end);
            EXPECT_EQ(output->size, std::max<uint64_t>(10, end));
            std::string expected = "0123456789";
            expected.replace(at + 1, copied, bytes, 1, copied);
            EXPECT_TRUE(place.get("f") == expected);
            gen_seek(*output, 3, GEN_SEEK_SET);
            EXPECT_EQ(gen_getc(*output), static_cast<uint8_t>(expected[3]));
        }
    const gen_stream_ptr input = gen_open("a.o", "rb"), device = gen_open(null_device, "wb");
    EXPECT_EQ(gen_copy_stream(*input, *device, bytes.size()), bytes.size()); // not by the host
}

} // namespace
