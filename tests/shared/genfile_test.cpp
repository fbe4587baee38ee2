// Checked streams: their words when they fail, where they stand afterwards, and copying.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shared/genfile.h"
#include "shared/genout.h"
#include "support/child.h"

namespace {

using genfile = placed_test;

// Bytes that tell where they are from, over more than one piece of any copy.
std::string pattern(size_t size) {
    std::string bytes(size, 0);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

TEST_F(genfile, opening) {
    place.put("a.o", "old");
    ASSERT_EQ(mkdir("dir", 0755), 0);
    ASSERT_EQ(symlink("target", "link"), 0);
    expect_fatal({
        {[] { gen_safe_fopen("no", "executable", "rb"); },
         "Unable to open executable 'no' for input: No such file or directory"},
        {[] { gen_safe_fopen("no/a", "file", "ab"); },
         "Unable to open file 'no/a' for output: No such file or directory"},
        {[] { gen_safe_fopen("dir", "file", "rb"); },
         "Unable to open file 'dir' for input: Is a directory"},
        {[] { gen_safe_fopen("dir", nullptr, "wb"); },
         "Unable to open dir for output: Is a directory"},
        {[] { gen_safe_fopen("link", nullptr, "wbx"); },
         "Unable to open link for output: File exists"},
    });
    errno = EIO;
    gen_stream_ptr stream = gen_safe_fopen("a.o", "executable", "ab");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(stream->position, 3U);
    EXPECT_EQ(gen_safe_fwrite("a.o", "new", 3, 1, stream.get()), 1);
    EXPECT_EQ(gen_safe_fclose("a.o", nullptr, std::move(stream)), 0);
    EXPECT_EQ(place.get("a.o"), "oldnew");

    mode_t const mask = umask(0);
    stream = gen_open("private", "wbx");
    umask(mask);
    EXPECT_EQ(place.state("private").mode, 0600U);
    EXPECT_EQ(place.list(), (std::vector<std::string>{"a.o", "dir", "link", "private"}));
}

TEST_F(genfile, reading) {
    // Of 10 bytes the third item of 4 is not whole: its bytes are taken, and nothing is said.
    auto const stream = stream_of("0123456789");
    auto const body = [&] {
        char bytes[16];
        gen_eprintf("%d;", gen_safe_fread("a.o", bytes, 4, 3, stream.get()));
        gen_eprintf("%d;", gen_safe_fread("a.o", bytes, 1, 1, stream.get()));
        errno = EIO;
        gen_safe_fread64(nullptr, bytes, 1, 1, stream.get());
        gen_eprintf("%d;", gen_safe_fread("a.o", nullptr, 1, 1, stream.get()));
        gen_safe_fread64("a.o", nullptr, 1, 1, stream.get());
    };
    expect_text(body, "2;objtrim: fatal: Error reading from 'a.o'\n0;"
                      "objtrim: fatal: Error reading from file: Input/output error\n"
                      "objtrim: error: internal: null buffer passed to gen_safe_fread\n-1;"
                      "objtrim: error: internal: null buffer passed to gen_safe_fread64\n");
}

TEST_F(genfile, a_failed_write_is_reported_and_the_next_seek_or_flush_fatal) {
    // Unlike a read, a write that does a part of its items is reported.
    auto write_to = [](const char* path, const char* name) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit const limit = {6, 6};
        setrlimit(RLIMIT_FSIZE, &limit);
        auto const stream = gen_open(path, "wb");
        gen_eprintf("%d;", gen_safe_fwrite(name, "0123456789ab", 4, 3, stream.get()));
        if (name)
            gen_safe_fseek64(name, stream.get(), 0, GEN_SEEK_SET);
        gen_safe_fflush(name, stream.get());
    };
    EXPECT_EQ(run_child([&] { write_to("/dev/full", "o"); }),
              child_end(1, "objtrim: fatal: Error writing to 'o': No space left on device\n0;"
                           "objtrim: fatal: seek failed to 0x0 in 'o': No space left on device\n"));
    EXPECT_EQ(run_child([&] { write_to("o", nullptr); }),
              child_end(1, "objtrim: fatal: Error writing to file: File too large\n1;"
                           "objtrim: fatal: Error writing to file: File too large\n"));
}

TEST_F(genfile, closing) {
    auto const body = [] {
        for (const char* kind : {"executable", static_cast<const char*>(nullptr)}) {
            auto stream = gen_open("/dev/null", "rb");
            close(stream->descriptor);
            gen_eprintf("%d;", gen_safe_fclose("a.o", kind, std::move(stream)));
            gen_eprintf("%d;", gen_safe_fclose("a.o", kind, nullptr));
        }
    };
    expect_text(body, "objtrim: fatal: Error closing executable 'a.o': Bad file descriptor\n-1;"
                      "objtrim: error: Attempt to close NULL file executable 'a.o'\n-1;"
                      "objtrim: fatal: Error closing a.o: Bad file descriptor\n-1;"
                      "objtrim: error: Attempt to close NULL file a.o\n-1;");
}

TEST_F(genfile, seeking) {
    auto const stream = stream_of("0123456789");
    gen_stream* const s = stream.get();
    expect_fatal({{[&] { gen_safe_fseek("a.o", s, -5, GEN_SEEK_SET); },
                   "seek failed to -5 in 'a.o': Invalid argument"},
                  {[&] { gen_safe_fseek(nullptr, s, -5, GEN_SEEK_CUR); },
                   "seek failed to -5 in file: Invalid argument"},
                  {[&] { gen_safe_fseek64("a.o", s, -5, GEN_SEEK_SET); },
                   "seek failed to 0xfffffffffffffffb in 'a.o': Invalid argument"},
                  {[&] { gen_safe_fseek64(nullptr, s, -11, GEN_SEEK_END); },
                   "seek failed to 0xfffffffffffffff5 in file: Invalid argument"}});
    static const struct {
        int64_t offset;
        gen_origin origin;
        int result, byte; // the byte read there, -1 at the end
    } rows[] = {{-3, GEN_SEEK_END, 0, '7'},         {-4, GEN_SEEK_CUR, 0, '4'},
                {-6, GEN_SEEK_CUR, -1, '5'},        {INT64_MAX, GEN_SEEK_CUR, -1, '6'},
                {INT64_MAX, GEN_SEEK_END, -1, '7'}, {100, GEN_SEEK_SET, 0, -1},
                {9, GEN_SEEK_SET, 0, '9'}};
    for (auto const& row : rows) {
        EXPECT_EQ(gen_seek(*s, row.offset, row.origin), row.result);
        EXPECT_EQ(gen_getc(*s), row.byte);
        EXPECT_EQ(s->at_end, row.byte == -1);
    }
}

TEST_F(genfile, reads_follow_the_position_and_see_earlier_writes) {
    std::string expected = pattern(300'000);
    auto const stream = stream_of(expected);
    std::string got(200'000, 0);
    for (uint64_t at : {0U, 65'530U, 70'000U, 65'500U, 3U, 199'999U})
        for (uint64_t size : {1U, 100U, 65'536U, 100'000U}) {
            ASSERT_EQ(gen_safe_fseek64("f", stream.get(), static_cast<int64_t>(at), GEN_SEEK_SET),
                      0);
            ASSERT_EQ(gen_write_stream(*stream, "#", 1), 1U);
            expected[at] = '#';
            ASSERT_EQ(gen_read_stream(*stream, got.data(), size), size);
            ASSERT_EQ(got.compare(0, size, expected, at + 1, size), 0) << at << " " << size;
            ASSERT_EQ(stream->position, at + 1 + size);
        }
    EXPECT_TRUE(place.get("f") == expected);
}

TEST_F(genfile, copying_between_streams) {
    std::string const bytes = pattern(700'000);
    place.put("a.o", bytes);
    for (uint64_t size :
         {uint64_t{0}, uint64_t{1}, uint64_t{65'537}, uint64_t{699'993}, UINT64_MAX}) {
        auto const input = gen_open("a.o", "rb"), output = stream_of("0123456789");
        for (int i = 0; i < 7; ++i) // both have read ahead
            (gen_getc(*input), i < 3 ? gen_getc(*output) : 0);
        uint64_t const copied = std::min<uint64_t>(size, 699'993);
        EXPECT_EQ(gen_copy_stream(*input, *output, size), copied);
        EXPECT_EQ(input->position, 7 + copied);
        EXPECT_EQ(output->position, 3 + copied);
        EXPECT_EQ(output->size, std::max<uint64_t>(10, 3 + copied));
        std::string const expected = std::string("0123456789").replace(3, copied, bytes, 7, copied);
        EXPECT_TRUE(place.get("f") == expected) << size;
        gen_seek(*output, 3, GEN_SEEK_SET);
        EXPECT_EQ(gen_getc(*output), static_cast<uint8_t>(expected[3]));
    }
    for (bool full : {false, true}) { // the host itself cannot copy to a device
        auto const input = gen_open("a.o", "rb");
        auto const output = gen_open(full ? "/dev/full" : "/dev/null", "wb");
        EXPECT_EQ(gen_copy_stream(*input, *output, bytes.size()), full ? 0 : bytes.size());
        EXPECT_EQ(output->write_error, full ? ENOSPC : 0);
    }
}

TEST_F(genfile, counts_beyond_32_bits_are_cut) {
    auto const stream = stream_of("012345");
    auto const body = [&] {
        char bytes[8] = "......";
        for (uint64_t count : {0x100000000U, 0x100000003U})
            gen_eprintf("%d ", static_cast<int>(gen_read(stream->descriptor, bytes, count)));
        gen_eprintf("%s ", bytes);
        gen_eprintf("%d", static_cast<int>(gen_write(stream->descriptor, "abc", 0x100000002)));
    };
    expect_text(body, "objtrim: error: gen_read(): count exceeds unsigned 32-bit range\n0 "
                      "objtrim: error: gen_read(): count exceeds unsigned 32-bit range\n3 012... "
                      "objtrim: error: gen_write(): count exceeds unsigned 32-bit range\n2");
    EXPECT_EQ(place.get("f"), "012ab5");
}

} // namespace
