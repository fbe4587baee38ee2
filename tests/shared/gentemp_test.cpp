// Temporary names: their digits, their directory, and what counts as taken. State of the process is
// looked at in children.
#include <cstdlib>
#include <filesystem>

#include "shared/gentemp.h"
#include "shared/host.h"
#include "support/child.h"

namespace {

using gentemp = placed_test;

const bool is_windows = host_paths == host_path_rules::windows;

TEST_F(gentemp, stems_are_written_in_base_32) {
    EXPECT_EQ(gen_temp_stem(1234, 1), "ov_000016i1.");
    EXPECT_EQ(gen_temp_stem(UINT32_MAX, 0x3FF), "ov_3vvvvvvvv.");
    EXPECT_EQ(gen_temp_stem(0, 0x8000), "ov_00000001000.");
    EXPECT_EQ(gen_next_temp_counter(0xFFFFF), 1u);
}

TEST_F(gentemp, user_directory_is_the_first_usable_one_and_is_kept) {
    for (const char* directory : {"tmp", "temp", "own"})
        std::filesystem::create_directory(directory);
    place.put("file", "");
    static const struct {
        const char *tmp, *temp, *suggested, *expected; // the answer, and later ones
    } rows[] = {
        {"tmp", "temp", "own", "tmp tmp"},
        {"file", "temp", nullptr, "temp temp"},
        {"", "none", "own", is_windows ? "own \\" : "own /tmp"},
    };
    for (const auto& row : rows) {
        const auto choose = [&] {
            set_variable("TMP", row.tmp);
            set_variable("TEMP", row.temp);
            const std::string first = gen_user_tmpdir(temp, row.suggested);
            gen_tmpdir(temp);
            set_variable("TMP", "own");
            const std::string kept = gen_tmpdir(temp);
            fprintf(stderr, "%s %s", first.c_str(), kept.c_str());
        };
        expect_text(choose, row.expected);
    }
}

constexpr size_t counter_at = 10; // in a stem: behind "ov_" and the digits of the process id

std::string name_with(uint32_t counter, const char* extension) {
    return "d/" + gen_temp_stem(host_process_id(), counter) + extension;
}

TEST_F(gentemp, no_name_of_a_set_is_taken_and_none_comes_twice) {
    const auto take_names = [&] {
        place.put(name_with(1, "b"), "");
        if (!make_link("nowhere", name_with(2, "c")))
            place.put(name_with(2, "c"), "");
        const std::string_view extensions[] = {"a", ".b", "c"};
        EXPECT_EQ(gen_temp_names(temp, "d/", extensions),
                  (words{name_with(3, "a"), name_with(3, "b"), name_with(3, "c")}));
        set_variable("BUILDER_TEMPORARY_NAME", "s/job"); // a dictated name gives way when taken
        EXPECT_EQ(gen_temp_name(temp, "", "t"), "s/job.t");
        place.put("s/job.t", "");
        EXPECT_EQ(gen_temp_name(temp, "", "t"),
                  "s/" + gen_temp_stem(0, 4).substr(counter_at) + "t");
        fputs(HasFailure() ? "failed" : "", stderr);
    };
    expect_text(take_names, "");
}

} // namespace
