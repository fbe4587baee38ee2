// Children on Windows, which cannot fork: the child is this program again. It runs the same test,
// passes over the bodies of earlier children, and ends behind its own. Directories are numbered
// within a test, so that parent and child work in the same ones.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <process.h>

#include "shared/genmessage.h"
#include "support/child.h"
#include "support/win32.h"

namespace {

// For a child: which body of the test, the parent's process id, and the file for its messages.
const char* const task_variable = "OBJTRIM_TEST_CHILD";

struct child_task {
    int body = 0; // 0: this is no child
    int parent = _getpid();
    char messages[300] = "";
};

child_task read_task() {
    child_task task;
    if (const char* const text = getenv(task_variable))
        sscanf(text, "%d %d %299[^\n]", &task.body, &task.parent, task.messages);
    return task;
}

const child_task task = read_task();

// Counts within the current test, from 1.
int next_in_test(int& count, const testing::TestInfo*& of) {
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    count = test == of ? count + 1 : 1;
    of = test;
    return count;
}

[[noreturn]] void be_child(const std::function<void()>& body) {
    const int messages = open(task.messages, O_WRONLY | O_CREAT | O_TRUNC | O_TEXT, 0600);
    dup2(messages, fileno(stderr));
    gen_set_program_name("objtrim");
    static gen_message_sink sink; // nothing was said yet
    gen_use_sink(sink);
    errno = 0;
    body();
    _exit(child_returned);
}

} // namespace

std::string make_work_directory() {
    static int count;
    static const testing::TestInfo* of;
    const std::string name = std::filesystem::temp_directory_path().string() + "objtrim_test_" +
                             std::to_string(task.parent) + "_" +
                             std::to_string(next_in_test(count, of));
    if (task.body == 0)
        remove_work_directory(name);
    std::filesystem::create_directory(name);
    return name;
}

child_end run_child(const std::function<void()>& body) {
    static int count;
    static const testing::TestInfo* of;
    const int number = next_in_test(count, of);
    if (number == task.body)
        be_child(body);
    if (task.body != 0)
        return {child_returned, ""}; // of no interest
    const std::string messages = std::filesystem::temp_directory_path().string() + "objtrim_test_" +
                                 std::to_string(_getpid()) + ".err";
    const std::string text =
        std::to_string(number) + " " + std::to_string(task.parent) + " " + messages;
    SetEnvironmentVariableA(task_variable, text.c_str());
    // The tests may be shared out among processes; the child has its own share of one.
    for (const char* const share : {"GTEST_TOTAL_SHARDS", "GTEST_SHARD_INDEX"})
        SetEnvironmentVariableA(share, nullptr);
    const int status = run_process(
        "\"" + test_program() + "\" --gtest_filter=" + of->test_suite_name() + "." + of->name(),
        {open_for_child("NUL", GENERIC_READ, OPEN_EXISTING),
         open_for_child("NUL", GENERIC_WRITE, OPEN_EXISTING),
         open_for_child("NUL", GENERIC_WRITE, OPEN_EXISTING)},
        nullptr, nullptr);
    SetEnvironmentVariableA(task_variable, nullptr);
    const child_end end = {status, unix_lines(read_file(messages))};
    std::remove(messages.c_str());
    return end;
}
