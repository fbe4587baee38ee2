// Work places: files in, programs run, files out. The host's part is in a file of its own.
#include "support/runner.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "support/record.h"

bool make_link(const std::string& target, const std::string& name) {
    std::error_code error;
    std::filesystem::create_symlink(target, name, error);
    return !error;
}

std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
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

work_place::work_place() : directory(make_work_directory()) {}

work_place::~work_place() {
    std::error_code ignored;
    for (const char* end : {".out", ".err"})
        std::filesystem::remove(directory + end, ignored);
    remove_work_directory(directory);
}

void work_place::put(const std::string& name, const std::string& bytes, uint32_t mode) const {
    const std::string full = path(name);
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream(full, std::ios::binary) << bytes;
    set_mode_and_age(full, mode);
}

std::string work_place::get(const std::string& name) const {
    return read_file(path(name));
}

file_state work_place::state(const std::string& name) const {
    file_state state = file_state_of(path(name));
    if (std::filesystem::is_regular_file(path(name)))
        state.bytes = get(name);
    return state;
}

words work_place::list(const std::string& below) const {
    words names;
    for (const auto& entry : std::filesystem::directory_iterator(path(below)))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

run_result work_place::trim(const std::string& line, const run_limits& limits) const {
    const bool limited = limits.file_size != 0 || limits.memory != 0;
    const run_record record(limited ? "" : directory);
    const run_result result = run_program(directory, line, limits);
    record.write(line, result);
    return result;
}

run_result work_place::command(const std::string& line) const {
    return run_tool(directory, line);
}
