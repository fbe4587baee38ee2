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

// One record for each two offsets and three section indexes; "@" and a digit, perhaps with "+", is
// the offset of that section, or a byte more.
dnm_file companion(const std::string& file, const std::string& records) {
    dnm_file map = sample_dnm();
    const dnm_fields like = map.sections[0];
    const char* const fields[] = {"offset", "second_offset", "index1", "index2", "index3"};
    map.sections.clear();
    for (size_t i = 0; const std::string& word : split(records)) {
        if (i % 5 == 0)
            map.sections.push_back(like);
        const uint64_t section = static_cast<uint64_t>(word[1] - '0');
        map.sections.back()[fields[i++ % 5]] =
            word[0] != '@' ? std::stoll(word)
                           : static_cast<int64_t>(get_field(file, field::sh_offset, section)) +
                                 word.ends_with('+');
    }
    map.entries[29]["max"] = map.entries[1]["max"] = static_cast<int64_t>(map.sections.size());
    return map;
}

TEST(dnmupdate, records_follow_their_sections) {
    for (const elf_form& form : elf_forms) {
        const std::string file = executable(form);
        work_place place;
        place.put("prog.elf", file);
        place.put("prog.dnm",
                  build_dnm(companion(file, "@1 0 1 2 3  @3 @5 3 5 4  @5 1 5 -1 99  @2 @4 2 3 5 "
                                            "999 999 -1 2 3  @5 @3 0 1 2  @5+ 0 99 5 6")),
                  0640);
        EXPECT_EQ(place.trim("prog.elf").err, "");
        const std::string after = place.get("prog.elf");
        EXPECT_LT(get_field(after, field::sh_offset, 2), get_field(file, field::sh_offset, 3));
        EXPECT_TRUE(place.get("prog.dnm") ==
                    build_dnm(in_written_order(
                        companion(after, "@1 0 1 -1 2  @2 @3 2 3 -1  @3 1 3 -1 -1  0 0 -1 -1 -1 "
                                         "999 999 -1 2 3  @3 @2 -1 1 -1  @3+ 0 -1 3 4"))))
            << form.name;
        EXPECT_EQ(place.state("prog.dnm").mode, host_mode(0640));
        EXPECT_EQ(place.list(), split("prog.dnm prog.elf"));
    }
}

// The executable is stripped all the same when its map cannot be read.
TEST(dnmupdate, options_kinds_of_file_and_bytes_decide) {
    const std::string whole = build_dnm(companion("", "4096 0 3 3 3"));
    const std::pair<std::string, uint16_t> updated[] = {
        {"", et::exec}, {"-o=other", et::exec}, {"--dont-update-dnm --update-dnm", et::exec}};
    const std::pair<std::string, uint16_t> kept[] = {{"--update-dnm --dont-update-dnm", et::exec},
                                                     {"", et::dyn},
                                                     {"-stripreloc", et::rel},
                                                     {"-vxworks", et::exec},
                                                     {"-r=.none", et::exec}};
    const auto run = [](const auto& row, const std::string& map, bool is_updated) {
        SCOPED_TRACE(row.first + " " + std::to_string(row.second));
        work_place place;
        place.put("a.b/prog", executable(elf_forms[0], row.second));
        place.put("a.b/prog.dnm", map);
        const file_state before = place.state("a.b/prog.dnm");
        const run_result result = place.trim(row.first + " a.b/prog");
        EXPECT_EQ(place.state("a.b/prog.dnm") == before, !is_updated);
        EXPECT_EQ(place.get("a.b/prog").size() < executable(elf_forms[0]).size(),
                  row.first.find_first_of("=v") == std::string::npos);
        return result;
    };
    for (const auto& row : updated)
        EXPECT_EQ(run(row, whole, true).err, "");
    for (const auto& row : kept)
        EXPECT_EQ(run(row, whole, false).status, 0);
    for (const char* const map : {"", "text"})
        EXPECT_EQ(
            run(updated[0], map, false).err,
            "objtrim: error: <libst>: failed while reading \"a.b/prog.dnm\" (pos 1, errno 0)\n"
            "objtrim: warning: failed to read a.b/prog.dnm\n");
}

} // namespace
