// Temporary names: their digits, their directory, and what counts as taken. State of the process is
// looked at in children.
#include <cstdlib>
#include <filesystem>
#include <unistd.h>
#include <utility>

#include "shared/gentemp.h"
#include "shared/host.h"
#include "support/child.h"

namespace {

using gentemp = placed_test;

TEST_F(gentemp, stems_are_written_in_base_32) {
    static const struct {
        uint32_t process, counter;
        const char* stem;
    } rows[] = {
        {1234, 1, "ov_000016i1."},        {1, 0, "ov_00000010."},
        {UINT32_MAX, 31, "ov_3vvvvvvv."}, {0x40000000, 32, "ov_100000010."},
        {0, 0x3FF, "ov_0000000vv."},      {0, 0x400, "ov_0000000100."},
        {0, 0x8000, "ov_00000001000."},   {0, 0xFFFFF, "ov_0000000vvvv."},
    };
    for (const auto& row : rows)
        EXPECT_EQ(gen_temp_stem(row.process, row.counter), row.stem);
    EXPECT_EQ(gen_next_temp_counter(0), 1u);
    EXPECT_EQ(gen_next_temp_counter(0xFFFFE), 0xFFFFFu);
    EXPECT_EQ(gen_next_temp_counter(0xFFFFF), 1u);
}

TEST_F(gentemp, user_directory_is_the_first_usable_one_and_is_kept) {
    for (const char* directory : {"tmp", "temp", "own"})
        std::filesystem::create_directory(directory);
    place.put("file", "");
    static const struct {
        const char *tmp, *temp, *suggested, *first, *then;
    } rows[] = {
        {"tmp", "temp", "own", "tmp", "tmp"},      {nullptr, "temp", "own", "temp", "temp"},
        {"none", "temp", nullptr, "temp", "temp"}, {"file", "temp", nullptr, "temp", "temp"},
        {"", nullptr, "own", "own", "/tmp"},       {nullptr, "none", "file", "/tmp", "/tmp"},
    };
    for (const auto& row : rows) {
        const auto choose = [&] {
            for (const auto& [name, value] : {std::pair("TMP", row.tmp), {"TEMP", row.temp}})
                value != nullptr ? setenv(name, value, 1) : unsetenv(name);
            const std::string first = gen_user_tmpdir(row.suggested).value_or("nothing");
            const std::string then = gen_tmpdir_hook().value_or("nothing");
            setenv("TMP", "own", 1);
            const std::string kept = gen_user_tmpdir("temp").value_or("nothing");
            fprintf(stderr, "%s %s %s", first.c_str(), then.c_str(), kept.c_str());
        };
        expect_text(choose, std::string(row.first) + " " + row.then + " " + row.then);
    }
}

TEST_F(gentemp, directory_is_given_or_the_hooks) {
    using answer = std::optional<std::string>;
    static const struct {
        answer (*hook)();
        const char *given, *extension, *begin, *end;
    } rows[] = {
        {[] { return answer(); }, nullptr, "tmp", "ov_", ".tmp"},
        {[] { return answer(""); }, nullptr, "t", "ov_", ".t"},
        {[] { return answer("d/"); }, nullptr, ".a.b", "d/ov_", ".a.b"},
        {[] { return answer("d/"); }, "", "", "ov_", "."},
        {[] { return answer("d/"); }, "x", ".tmp", "x/ov_", ".tmp"},
    };
    for (const auto& row : rows) {
        const auto hook_before = std::exchange(gen_tmpdir_hook, row.hook);
        const std::string name = gen_temp_name(row.given, row.extension).value_or("");
        gen_tmpdir_hook = hook_before;
        EXPECT_TRUE(name.starts_with(row.begin)) << name;
        EXPECT_TRUE(name.ends_with(row.end)) << name;
        EXPECT_EQ(name.find("//"), std::string::npos) << name;
    }
}

// The counter that a name was made from.
uint32_t counter_of(const std::string& name) {
    return static_cast<uint32_t>(std::strtoul(name.c_str() + 10, nullptr, 32));
}

std::string name_with(uint32_t counter, const char* extension) {
    return gen_temp_stem(host_process_id(), counter) + extension;
}

TEST_F(gentemp, no_name_of_a_set_is_taken_and_none_comes_twice) {
    const uint32_t start = counter_of(gen_temp_name("", "tmp").value());
    EXPECT_EQ(gen_temp_name("", "tmp"), name_with(start + 1, "tmp"));
    place.put(name_with(start + 2, "b"), "");
    std::filesystem::create_symlink("nowhere", name_with(start + 3, "c"));
    std::filesystem::create_directory(name_with(start + 4, "a"));
    const std::string_view extensions[] = {"a", ".b", "c"};
    const std::vector<std::string> expected = {name_with(start + 5, "a"), name_with(start + 5, "b"),
                                               name_with(start + 5, "c")};
    EXPECT_EQ(gen_temp_names("", extensions), expected);
}

TEST_F(gentemp, a_dictated_name_gives_way_to_the_counter_when_taken) {
    std::filesystem::create_directories("d/s");
    for (const char* value : {"job", "job.", "s/job"}) {
        const auto take_names = [&] {
            const std::string where = *value == 's' ? "d/s/" : "d/";
            const uint32_t start = counter_of(gen_temp_name("", "t").value());
            setenv("BUILDER_TEMPORARY_NAME", value, 1);
            EXPECT_EQ(gen_temp_name("d", "t"), where + "job.t");
            EXPECT_EQ(gen_temp_name("d", "t"), where + "job.t");
            place.put(where + "job.t", "");
            place.put(where + gen_temp_stem(0, start + 1).substr(10) + "t", "");
            EXPECT_EQ(gen_temp_name("d", "t"),
                      where + gen_temp_stem(0, start + 2).substr(10) + "t");
            fputs(HasFailure() ? value : "", stderr);
        };
        expect_text(take_names, "");
        std::filesystem::remove("d/job.t");
    }
}

} // namespace
