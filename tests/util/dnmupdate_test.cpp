// What becomes of the map beside an executable that is stripped.
#include <gtest/gtest.h>

#include "support/dnm_builder.h"
#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

// Sections 1 to 5 and the names; 2 and 4 go.
std::string executable(const elf_form& form, uint16_t type = et::exec) {
    elf_draft draft{.form = form, .type = type};
    for (const char* name : {".text", ".debug_info", ".comment", ".debug_line", ".note"})
        draft.sections.push_back({.name = name, .content = filler(0x28, draft.sections.size())});
    return build_elf(draft);
}

// One record for each two offsets and three section indexes.
dnm_file companion(const std::vector<std::array<int64_t, 5>>& records) {
    dnm_file file = sample_dnm();
    const dnm_fields like = file.sections[0];
    file.sections.assign(records.size(), like);
    for (size_t i = 0; i < records.size(); ++i) {
        const char* const fields[] = {"offset", "second_offset", "index1", "index2", "index3"};
        for (size_t field = 0; field < 5; ++field)
            file.sections[i][fields[field]] = records[i][field];
    }
    file.entries[29]["max"] = file.entries[1]["max"] = static_cast<int64_t>(records.size());
    return file;
}

int64_t offset_of(const std::string& file, uint64_t section) {
    return static_cast<int64_t>(get_field(file, field::sh_offset, section));
}

TEST(dnmupdate, records_follow_their_sections) {
    for (const elf_form& form : elf_forms) {
        const std::string file = executable(form);
        const auto at = [&file](uint64_t section) { return offset_of(file, section); };
        work_place place;
        place.put("prog.elf", file);
        place.put("prog.dnm",
                  build_dnm(companion({{at(1), 0, 1, 2, 3},
                                       {at(3), at(5), 3, 5, 4},
                                       {at(5), 1, 5, -1, 99},
                                       {at(2), at(4), 2, 3, 5},
                                       {at(5), at(5), -1, 2, 3},
                                       {at(5), at(3), 0, 1, 2},
                                       {at(5) + 1, 0, 99, 5, 6}})),
                  0640);
        EXPECT_EQ(place.trim("prog.elf").err, "");
        const std::string result = place.get("prog.elf");
        const auto now = [&result](uint64_t section) { return offset_of(result, section); };
        EXPECT_LT(now(2), at(3));
        EXPECT_TRUE(place.get("prog.dnm") ==
                    build_dnm(in_written_order(companion({{at(1), 0, 1, -1, 2},
                                                          {now(2), now(3), 2, 3, -1},
                                                          {now(3), 1, 3, -1, -1},
                                                          {0, 0, -1, -1, -1},
                                                          {at(5), at(5), -1, 2, 3},
                                                          {now(3), now(2), -1, 1, -1},
                                                          {now(3) + 1, 0, -1, 3, 4}}))))
            << form.name;
        EXPECT_EQ(place.state("prog.dnm").mode, host_mode(0640));
        EXPECT_EQ(place.list(), split("prog.dnm prog.elf"));
    }
}

TEST(dnmupdate, options_and_kinds_of_file_decide) {
    const struct {
        const char* options;
        uint16_t type;
        bool updated;
    } cases[] = {{"", et::exec, true},
                 {"-o=other", et::exec, true},
                 {"--dont-update-dnm --update-dnm", et::exec, true},
                 {"--update-dnm --dont-update-dnm", et::exec, false},
                 {"", et::dyn, false},
                 {"-stripreloc", et::rel, false},
                 {"-vxworks", et::exec, false},
                 {"-r=.none", et::exec, false}};
    for (const auto& [options, type, updated] : cases) {
        work_place place;
        place.put("a.b/prog", executable(elf_forms[0], type));
        place.put("a.b/prog.dnm", build_dnm(companion({{0x1000, 0, 3, 3, 3}})));
        const file_state before = place.state("a.b/prog.dnm");
        EXPECT_EQ(place.trim(options + std::string(" a.b/prog")).status, 0);
        EXPECT_EQ(place.state("a.b/prog.dnm") == before, !updated) << options << type;
    }
}

// The executable is stripped all the same.
TEST(dnmupdate, a_map_that_cannot_be_read_stays) {
    for (const char* const bytes : {"", "text"}) {
        work_place place;
        const std::string file = executable(elf_forms[1]);
        place.put("prog.elf", file);
        place.put("prog.dnm", bytes);
        const run_result result = place.trim("prog.elf");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "objtrim: error: <libst>: failed while reading \"prog.dnm\" (pos 1, "
                              "errno 0)\nobjtrim: warning: failed to read prog.dnm\n");
        EXPECT_LT(place.get("prog.elf").size(), file.size());
        EXPECT_EQ(place.get("prog.dnm"), bytes);
    }
}

} // namespace
