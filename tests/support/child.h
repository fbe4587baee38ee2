// Runs a piece of test code in a child, so that the end of a program can be looked at from
// outside; gives a test a directory to work in, and a space for temporary things.
#pragma once

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "shared/genfile.h"
#include "shared/gentemp.h"
#include "support/runner.h"

constexpr int child_returned = 200; // the status of a child whose body came to its end

using child_end = std::pair<int, std::string>; // exit status, 128 + n for signal n; messages

// Runs `body` in a child, with program name objtrim and error number 0. Its exit status, and all
// that it wrote to standard error. On hosts that cannot fork the child is a second run of the test
// as far as this call, in the same directories: a test must get there again by the same way.
child_end run_child(const std::function<void()>& body);
// Runs `body` in so many children at once, each with its number. It has to answer true in all.
void expect_together(int children, const std::function<bool(int child)>& body);
// The body returns, and has written the text.
void expect_text(const std::function<void()>& body, const std::string& text);
// Each body ends with status 1 and the text as a fatal message.
using fatal_case = std::pair<std::function<void()>, const char*>;
void expect_fatal(const std::vector<fatal_case>& cases);

// A test whose current directory is new and empty.
struct placed_test : testing::Test {
    placed_test() { std::filesystem::current_path(place.directory); }
    ~placed_test() override { std::filesystem::current_path("/"); }
    // A stream at `position` of the new file "f".
    gen_stream_ptr stream_of(const std::string& bytes, int64_t position = 0) const;

    work_place place;
    std::atomic<uint32_t> temp_counter = 0;
    gen_temp_space temp = {temp_counter};
};
