// Work places: files in, programs run, files out. The host's part is in a file of its own.
#include "support/runner.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <numeric>
#include <regex>
#include <sstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

constexpr uint64_t largest_read = 64u << 20; // of larger files the size has to do

// Process id and counter are different in each run, and the separator before a temporary name is
// the host's.
std::string without_temporary_names(const std::string& text) {
    static const std::regex name("[/\\\\]?ov_[0-9a-v]+\\.");
    return std::regex_replace(text, name, "@ov.");
}

// Names, sorted, and what tells their contents. The tests of all hosts hash alike.
std::string contents_of(const std::string& directory) {
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
        if (entry.is_regular_file() && !entry.is_symlink()) {
            const uint64_t size = entry.file_size();
            files.insert(without_temporary_names(
                             entry.path().lexically_relative(directory).generic_string()) +
                         "=" +
                         std::to_string(size > largest_read ? size
                                                            : std::hash<std::string>()(read_file(
                                                                  entry.path().string()))));
        }
    return std::accumulate(
        files.begin(), files.end(), std::string(),
        [](std::string all, const std::string& file) { return all + " " + file; });
}

} // namespace

bool make_link(const std::string& target, const std::string& name) {
    std::error_code error;
    fs::create_symlink(target, name, error);
    return !error;
}

std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void set_variable(const char* name, const char* value) {
    static auto& settings = *new std::list<std::string>; // the environment refers to them
    putenv(settings.emplace_back(std::string(name) + "=" + value).data());
}

uint32_t host_mode(uint32_t mode) {
    return host_has_tools ? mode : (mode & 0200) != 0 ? 0644 : 0444;
}

words split(const std::string& line) {
    std::istringstream text(line);
    words result;
    for (std::string word; text >> word;)
        result.push_back(word == "''" ? "" : word);
    return result;
}

std::set<std::string> split_set(const std::string& line) {
    const words list = split(line);
    return {list.begin(), list.end()};
}

work_place::~work_place() {
    std::error_code ignored;
    for (const char* end : {".out", ".err"})
        fs::remove(directory + end, ignored);
    if (!host_has_tools) // what is read-only is not removed there
        for (const auto& entry : fs::recursive_directory_iterator(directory, ignored))
            fs::permissions(entry, fs::perms::owner_write, fs::perm_options::add, ignored);
    fs::remove_all(directory, ignored);
}

void work_place::put(const std::string& name, const std::string& bytes, uint32_t mode) const {
    const fs::path full = path(name);
    const std::chrono::sys_seconds past(std::chrono::seconds(1'000'000'000));
    std::error_code ignored;
    fs::create_directories(full.parent_path());
    std::ofstream(full, std::ios::binary) << bytes;
    fs::last_write_time(full, std::chrono::file_clock::from_sys(past), ignored);
    fs::permissions(full, static_cast<fs::perms>(mode), ignored);
}

file_state work_place::state(const std::string& name) const {
    std::error_code ignored;
    struct stat found = {};
    if (stat(path(name).c_str(), &found) != 0)
        return {};
    return {fs::is_regular_file(path(name)) ? get(name) : "", found.st_ino,
            host_mode(found.st_mode & 07777),
            fs::last_write_time(path(name), ignored).time_since_epoch().count()};
}

words work_place::list(const std::string& below) const {
    words names;
    for (const auto& entry : fs::directory_iterator(path(below)))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

run_result work_place::trim(const std::string& line, const run_limits& limits) const {
    const bool limited = limits.file_size != 0 || limits.memory != 0;
    const char* const record = limited ? nullptr : getenv("OBJTRIM_TEST_RECORD");
    const std::string before = record != nullptr ? contents_of(directory) : "";
    const run_result result = run_program(directory, line, limits);
    if (record != nullptr) {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        std::string said = without_temporary_names(result.out + result.err);
        std::replace(said.begin(), said.end(), '\n', '|');
        std::ofstream(record, std::ios::app | std::ios::binary)
            << test.test_suite_name() << '.' << test.name() << " [" << line << "] on" << before
            << " gives " << result.status << contents_of(directory) << " and says " << said << "\n";
    }
    return result;
}
