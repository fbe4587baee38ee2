// Pieces of test code of which the words or the end are looked at; and tests with a directory to
// work in, and a space for temporary things.
#pragma once

#include <filesystem>
#include <gtest/gtest.h>

#include "shared/genfile.h"
#include "shared/gentemp.h"
#include "support/runner.h"

// The messages of a body, which has the program name objtrim, the error number 0, and a sink of its
// own.
std::string said_by(const std::function<void()>& body);
void expect_text(const std::function<void()>& body, const std::string& text);
// The body ends the program with the status, and has written the text. It runs in a child, a fork
// or, on Windows, this program again: the test gets there by the same way, in the same directories.
void expect_end(const std::function<void()>& body, int status, const std::string& text);
// Each body ends with status 1 and the text as a fatal message.
void expect_fatal(const std::vector<std::pair<std::function<void()>, std::string>>& cases);

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
