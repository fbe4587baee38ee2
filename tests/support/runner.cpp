// Work places: files in, programs run, files out. The host's part is in a file of its own.
#include "support/runner.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <list>
#include <numeric>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

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
            const std::string name = entry.path().lexically_relative(directory).generic_string();
            const bool is_large = entry.file_size() > 64u << 20; // its size has to do
            const std::string bytes = is_large ? "" : read_file(entry.path().string());
            files.insert(" " + without_temporary_names(name) + "=" +
                         std::to_string(entry.file_size() ^ std::hash<std::string>()(bytes)));
        }
    return std::accumulate(files.begin(), files.end(), std::string());
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
    words result(std::istream_iterator<std::string>(text), {});
    std::ranges::replace(result, "''", "");
    return result;
}

std::set<std::string> split_set(const std::string& line) {
    const words list = split(line);
    return {list.begin(), list.end()};
}

std::string make_work_directory() {
    const char* const parent = "OBJTRIM_TEST_PARENT";
    static const bool is_child = getenv(parent) != nullptr;
    static int count;
    static const testing::TestInfo* of;
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    count = std::exchange(of, test) == test ? count + 1 : 1;
    if (!is_child)
        set_variable(parent, ("objtrim_test_" + std::to_string(getpid())).c_str());
    const std::string end = std::to_string(test ? test->line() : 0) + "_" + std::to_string(count);
    const fs::path directory = fs::temp_directory_path() / (getenv(parent) + ("_" + end));
    if (!is_child)
        fs::remove_all(directory);
    fs::create_directory(directory);
    return directory.string();
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
    struct stat found = {};
    if (stat(path(name).c_str(), &found) != 0)
        return {};
    return {fs::is_regular_file(path(name)) ? get(name) : "", found.st_ino,
            host_mode(found.st_mode & 07777),
            fs::last_write_time(path(name)).time_since_epoch().count()};
}

words work_place::list(const std::string& below) const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(path(below)))
        names.insert(entry.path().filename().string());
    return {names.begin(), names.end()};
}

run_result work_place::trim(const std::string& line, const run_limits& limits) const {
    const bool limited = limits.file_size != 0 || limits.memory != 0;
    const char* const record = limited ? nullptr : getenv("OBJTRIM_TEST_RECORD");
    const std::string before = record ? contents_of(directory) : "";
    const run_result result = run_program(directory, line, limits);
    if (record) {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        std::string said = without_temporary_names(result.out + result.err);
        std::ranges::replace(said, '\n', '|');
        std::ofstream(record, std::ios::app | std::ios::binary)
            << test.test_suite_name() << '.' << test.name() << " [" << line << "] on" << before
            << " gives " << result.status << contents_of(directory) << " and says " << said << "\n";
    }
    return result;
}
