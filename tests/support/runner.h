// Runs the built program, or another one, in an empty directory of its own with a clean
// environment, and tells what it wrote, how it ended and what it left behind.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

using words = std::vector<std::string>;

// The words of a line that are separated by blanks; two quotes with nothing between are an empty
// word.
words split(const std::string& line);
std::set<std::string> split_set(const std::string& line);

// Limits for programs, and programs of the system to work with; Windows has none that fit.
#ifdef _WIN32
constexpr bool host_has_limits = false, host_has_tools = false;
#else
constexpr bool host_has_limits = true, host_has_tools = true;
#endif

struct run_limits {
    uint64_t file_size = 0; // longest file that it may write; 0: no limit
    uint64_t memory = 0;    // bytes that it may allocate; 0: no limit
};

struct run_result {
    int status = -1; // exit status; 128 + n when signal n ended it
    std::string out, err;
};

struct file_state {
    std::string bytes;
    uint64_t inode = 0;   // where the host has such numbers
    uint32_t mode = 0;    // permission bits
    int64_t modified = 0; // as finely as the host tells it

    bool operator==(const file_state&) const = default;
};

// A file's bytes; none when it cannot be read.
std::string read_file(const std::string& name);

// Numbered within a test: where the child of one is this program again, it comes the same way, and
// works in the same ones.
std::string make_work_directory();
// The host's part of what follows. Standard output goes to a file beside the directory, so that
// nobody has to read while a program runs.
run_result run_program(const std::string& directory, const std::string& line,
                       const run_limits& limits);
run_result run_tool(const std::string& directory, const std::string& line);

// The directory; removed with everything in it at the end.
struct work_place {
    const std::string directory = make_work_directory();

    work_place() = default;
    ~work_place();
    work_place(const work_place&) = delete;

    std::string path(const std::string& name) const { return directory + "/" + name; }
    // The file is dated in the past, so that any later change shows in its time.
    void put(const std::string& name, const std::string& bytes, uint32_t mode = 0644) const;
    std::string get(const std::string& name) const { return read_file(path(name)); }
    file_state state(const std::string& name) const;
    words list(const std::string& below = "") const; // sorted

    // Runs the built program on the words of a line, which the shell splits without looking for
    // files. Names in it are relative to the directory. When the variable OBJTRIM_TEST_RECORD names
    // a file, a line there says what went in and came out, so that hosts can be compared.
    run_result trim(const std::string& line, const run_limits& limits = {}) const;
    // Runs any program, looked for along PATH.
    run_result command(const std::string& line) const { return run_tool(directory, line); }
};

// Programs started directly, without a shell: quick, many at once, and open to signals. Not on
// Windows.
struct process {
    int id = -1;
    int errors = -1; // the end of a pipe that takes what it writes to standard error
};

// In the directory, with these settings as its whole environment. `prepare` is called in
// the child before the program. A program that hangs is ended by SIGALRM.
process start(const std::string& directory, const std::string& program, const words& arguments,
              const words& environment = {}, const std::function<void()>& prepare = nullptr);
// Waits for it, and for those to whom it left its standard error.
run_result end_of(process& started);

// Tests that go through many moments or sizes go through more of them in a long run, which the
// variable OBJTRIM_STRESS asks for with the factor.
int stress_factor();

void set_variable(const char* name, const char* value);
// False where a test can make no symbolic links.
bool make_link(const std::string& target, const std::string& name);
// What the host makes of permission bits: on Windows there is only the owner's right to write.
uint32_t host_mode(uint32_t mode);
// Whether the build is an instrumented one, which takes memory of its own.
inline bool is_sanitized_build() {
#ifdef __SANITIZE_ADDRESS__
    return true;
#else
    return false;
#endif
}
