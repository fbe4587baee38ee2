// What went in and came out, as text without what differs from run to run.
#include "support/record.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace {

constexpr uint64_t largest_read = 64u << 20; // of larger files the size has to do

std::string hash_of(const std::string& bytes) {
    uint64_t sum = 0xCBF29CE484222325; // FNV-1a
    for (const char c : bytes)
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    char text[17];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(sum));
    return text;
}

// Process id and counter are different in each run, and the separator before a temporary name is
// the host's.
std::string without_temporary_names(const std::string& text) {
    static const std::regex name("[/\\\\]?ov_[0-9a-v]+\\.");
    return std::regex_replace(text, name, "@ov.");
}

// Names and contents, sorted.
std::string contents_of(const std::string& directory) {
    words files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
        if (entry.is_regular_file() && !entry.is_symlink())
            files.push_back(without_temporary_names(
                                entry.path().lexically_relative(directory).generic_string()) +
                            "=" +
                            (entry.file_size() > largest_read
                                 ? std::to_string(entry.file_size())
                                 : hash_of(read_file(entry.path().string()))));
    std::sort(files.begin(), files.end());
    std::string all;
    for (const std::string& file : files)
        all += " " + file;
    return all;
}

} // namespace

run_record::run_record(const std::string& place)
    : directory(getenv("OBJTRIM_TEST_RECORD") != nullptr ? place : ""),
      before(directory.empty() ? "" : contents_of(directory)) {}

void run_record::write(const std::string& line, const run_result& result) const {
    if (directory.empty())
        return;
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    std::string said = without_temporary_names(result.out + result.err);
    std::replace(said.begin(), said.end(), '\n', '|');
    std::ofstream(getenv("OBJTRIM_TEST_RECORD"), std::ios::app | std::ios::binary)
        << test->test_suite_name() << '.' << test->name() << " [" << line << "] on" << before
        << " gives " << result.status << contents_of(directory) << " and says " << said << "\n";
}
