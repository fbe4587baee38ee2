// What becomes of the map beside an executable that is stripped.
#include <gtest/gtest.h>

#include "support/dnm_builder.h"
#include "support/symbol_builder.h"

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
        int64_t& value = map.sections.back()[fields[i++ % 5]];
        value = std::stoll(word.substr(word[0] == '@'));
        if (word[0] == '@')
            value =
                int64_t(get_field(file, field::sh_offset, uint64_t(value))) + word.ends_with('+');
    }
    map.entries[29]["max"] = map.entries[1]["max"] = int64_t(map.sections.size());
    return map;
}

TEST(dnmupdate, records_follow_their_sections) {
    const char* const before = "@1 0 1 2 3  @3 @5 3 5 4  @5 1 5 -1 99  @2 @4 2 3 5 "
                               "999 999 -1 2 3  @5 @3 0 1 2  @5+ 0 99 5 6";
    const char* const after = "@1 0 1 -1 2  @2 @3 2 3 -1  @3 1 3 -1 -1  0 0 -1 -1 -1 "
                              "999 999 -1 2 3  @3 @2 -1 1 -1  @3+ 0 -1 3 4";
    for (const elf_form& form : elf_forms) {
        work_place place;
        place.put("prog.elf", executable(form));
        place.put("prog.dnm", build_dnm(companion(executable(form), before)), 0640);
        EXPECT_EQ(place.trim("prog.elf").err, "");
        const dnm_file expected = companion(place.get("prog.elf"), after);
        EXPECT_TRUE(place.get("prog.dnm") == build_dnm(in_written_order(expected))) << form.name;
        EXPECT_EQ(place.state("prog.dnm").mode, host_mode(0640));
    }
}

TEST(dnmupdate, options_kinds_of_file_and_bytes_decide) {
    const std::string whole = build_dnm(companion("", "4096 0 3 3 3"));
    const std::tuple<std::string, uint16_t, bool> rows[] = {
        {"", et::exec, true},          {"-o=other", et::exec, true},
        {"", et::dyn, false},          {"--dont-update-dnm --update-dnm", et::exec, true},
        {"-r=.none", et::exec, false}, {"--update-dnm --dont-update-dnm", et::exec, false},
        {"-vxworks", et::exec, false}, {"-stripreloc", et::rel, false}};
    for (const auto& [options, type, is_updated] : rows)
        for (const std::string& map : {whole, std::string("text")}) {
            SCOPED_TRACE(options + " " + std::to_string(type) + " " + map.substr(0, 4));
            work_place place;
            place.put("a.b/prog", executable(elf_forms[0], type));
            place.put("a.b/prog.dnm", map);
            const file_state before = place.state("a.b/prog.dnm");
            const std::string said = place.trim(options + " a.b/prog").err;
            EXPECT_EQ(said.ends_with("failed to read a.b/prog.dnm\n"), is_updated && map != whole);
            EXPECT_EQ(place.state("a.b/prog.dnm") == before, !is_updated || map != whole);
        }
}

} // namespace
