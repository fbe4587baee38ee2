// Checked streams: what they say when they fail, where they stand afterwards, and copying.
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

TEST_F(genfile, failures_are_told_in_full_and_handed_back) {
    const gen_stream_ptr s = stream_of("0123456789"), reader = gen_open("f", "rb");
    gen_stream* const r = reader.get();
    const std::string denied = std::string(": ") + strerror(host_has_tools ? EBADF : EACCES);
    const auto call = [&](const std::function<int64_t()>& body) {
        return said_by([&] { gen_eprintf("%d", static_cast<int>(body())); });
    };
    EXPECT_EQ(call([&] { return gen_safe_fwrite64("f", "012345", 2, 3, s.get()); }), "3");
    EXPECT_EQ(call([&] { return gen_safe_fflush("f", s.get()); }), "0");
    EXPECT_EQ(call([&] { return gen_safe_fwrite64(nullptr, "a", 1, 1, r); }),
              "objtrim: fatal: Error writing to file" + denied + "\n0");
    EXPECT_EQ(call([&] { return gen_safe_fclose("a.o", nullptr, nullptr); }),
              "objtrim: error: Attempt to close NULL file a.o\n-1");
    // Nobody builds on a file with a hole in it.
    expect_fatal(
        {{[&] { gen_safe_fflush("f", r); }, "Error writing to 'f'" + denied},
         {[&] { gen_safe_fseek64("f", r, 0, GEN_SEEK_SET); }, "seek failed to 0x0 in 'f'" + denied},
         {[&] { gen_safe_fseek("f", s.get(), -5, GEN_SEEK_SET); },
          "seek failed to -5 in 'f': Invalid argument"},
         {[&] { gen_safe_fseek64(nullptr, s.get(), -11, GEN_SEEK_END); },
          "seek failed to 0xfffffffffffffff5 in file: Invalid argument"},
         {[] { gen_safe_fopen(".", nullptr, "wb"); },
          "Unable to open . for output: Is a directory"},
         {[] { gen_safe_fopen("f", "file", "wbx"); },
          "Unable to open file 'f' for output: File exists"}});
    gen_stream_ptr closed = gen_open("f", "rb");
    close(closed->descriptor);
    EXPECT_EQ(call([&] { return gen_safe_fclose("f", "executable", std::move(closed)); }),
              "objtrim: fatal: Error closing executable 'f': Bad file descriptor\n-1");
}

TEST_F(genfile, positions_in_files_and_parts) {
    const gen_stream_ptr s = stream_of("0123456789");
    EXPECT_TRUE(gen_open_part(*s, 4, 6) && !gen_open_part(*s, 4, 7) && !gen_open_part(*s, 11, 1));
    const int descriptor = gen_open("f", "ab")->descriptor; // which is free again
    const gen_stream_ptr appended = gen_safe_fopen("f", nullptr, "ab");
    EXPECT_EQ(appended->descriptor, descriptor);
    EXPECT_EQ(appended->position, 10U);
    EXPECT_NE(gen_open("private", "wbx"), nullptr);
    EXPECT_EQ(place.state("private").mode, host_mode(0600));
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
    for (const uint64_t size : {0U, 1U, 65'537U, 900'000U, 2'000'000U})
        for (const uint64_t at : {0U, 2U}) { // where the host can copy, and where it cannot
            SCOPED_TRACE(std::to_string(size) + " to " + std::to_string(at));
            const gen_stream_ptr input = gen_open("a.o", "rb"), output = stream_of("012345", at);
            gen_getc(*input); // both have read ahead
            gen_getc(*output);
            const uint64_t copied = std::min<uint64_t>(size, 1'099'999), end = at + 1 + copied;
            EXPECT_EQ(gen_copy_stream(*input, *output, size), copied);
            EXPECT_EQ(input->position, 1 + copied);
            EXPECT_EQ(output->position, end);
            EXPECT_EQ(output->size, std::max<uint64_t>(6, end));
            std::string expected = "012345";
            EXPECT_TRUE(place.get("f") == expected.replace(at + 1, copied, bytes, 1, copied));
            gen_seek(*output, 3, GEN_SEEK_SET);
            EXPECT_EQ(gen_getc(*output), static_cast<uint8_t>(expected[3]));
        }
    const gen_stream_ptr input = gen_open("a.o", "rb"), device = gen_open(null_device, "wb");
    EXPECT_EQ(gen_copy_stream(*input, *device, bytes.size()), bytes.size()); // not by the host
}

} // namespace
