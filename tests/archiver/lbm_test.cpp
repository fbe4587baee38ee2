// Archives before and after a run of lbm, byte for byte; and what it refuses, as objtrim does.
#include <filesystem>
#include <gtest/gtest.h>

#include "support/ar_builder.h"
#include "support/symbol_builder.h"

using namespace std::string_literals;

namespace {

using drafts = std::vector<ar_draft>;
const std::string lbm = "'" OBJTRIM_ARCHIVER "' -rc ";
const std::string date = "1000000000"; // of all files that a test puts into its place

// `text` tells it from others. Its symbols are in section 3, with extended indexes in 2.
std::string object(size_t form, const std::string& text, const std::string& symbols) {
    symbol_draft draft = {.entries = symbols};
    draft.elf = {.form = elf_forms[form], .type = et::rel};
    draft.elf.sections = {{".text", sht::progbits, shf::alloc, text},
                          {".symtab_shndx", sht::shndx, 0, "", 4, ".symtab"}};
    return build_symbols(draft);
}

// Members out of text: a digit and a name are an object of that form with that symbol.
drafts members_of(const std::string& line) {
    drafts members = ar_members(line);
    for (ar_draft& member : members)
        if (std::string& data = member.data; data.size() < 9 && data >= "0" && data < "4")
            data = object(static_cast<size_t>(data[0] - '0'), data, data.substr(1) + " gF .text");
    return members;
}

// The archive with an index in front, of names that each stand before the number of its member.
std::string indexed(obj_kind kind, drafts members, const std::string& line) {
    const words pairs = split(line);
    for (int pass = 0; pass < 2; ++pass) { // the first one settles the size
        std::vector<std::pair<std::string, uint64_t>> entries;
        for (size_t i = 0; i < pairs.size(); i += 2)
            entries.emplace_back(
                pairs[i],
                build_archive(kind, {members.begin(), members.begin() + stoi(pairs[i + 1])})
                    .size());
        members[0].data = ar_index(entries);
        members[0].data.resize((members[0].data.size() + 1) / 2 * 2);
    }
    return build_archive(kind, members);
}

// Members alike in name, of several kinds: a text, objects of two classes, and one more object.
TEST(lbm, replaces_the_listed_members_and_nothing_else) {
    for (const obj_kind kind : {OBJ_ARCHIVE, OBJ_ARCHIVE64}) {
        drafts members = members_of("/@77%0|//=a_long_name_of_an_object.o/\n|"
                                    "same.o/%600=!<arch of text|same.o/%644[=0first|"
                                    "same.o/=3second|/0=0third|#=__.SYMDE|same.o/=0fourth|"
                                    "last.txt/");
        members[6].name = "#1/12";
        members[8].data = filler(100'001, 1); // large, odd
        const std::string tail = "too short for a header", name(300'000, 'n');
        work_place place;
        place.put("x.a", indexed(kind, members, "first 3 second 4 third 5 fourth 7") + tail, 0640);
        // What is undefined, local, a section or a file is not in an index; what a compiler left
        // to itself keeps the entries that it has.
        const std::string symbols = " gF .text; local lF .text; weak wN .text; absent gN ''; "
                                    "file gf .text; comm gO COM; unique gO .text; section gS .text;"
                                    "abs gN ABS; '' gF .text";
        const std::tuple<size_t, std::string, std::string, uint32_t, std::string> listed[] = {
            {4, "2/same.o", object(3, "", ""), 0400, "100400"},
            {3, "1/same.o", object(0, "new and longer", name + symbols), 0755, "755"},
            {7, "3/same.o", object(0, "4th", "__gnu_lto_slim gO COM"), 0604, "100604"}};
        for (auto [number, file, data, mode, text] : listed) {
            if (number == 3) // the binding of "unique"
                data[get_field(data, field::sh_offset, 3) + 24 * 7 + 4] = '\xA1';
            place.put(file, data, mode);
            members[number].data = data;
            members[number].date = date;
            if (!host_has_tools) // which knows only who may write
                text.replace(text.size() - 3, 3, mode == 0400 ? "444" : "644");
            members[number].mode = text;
        }
        place.put("list", "2/same.o\r\n1/same.o\n\n" + place.directory + "/3/same.o");
        EXPECT_EQ(place.command(lbm + "x.a @list").err, "");
        const std::string names = " 3 weak 3 comm 3 unique 3 abs 3 third 5 fourth 7";
        EXPECT_EQ(difference(place.get("x.a"), indexed(kind, members, name + names) + tail), "");
        EXPECT_EQ(place.state("x.a").mode, host_mode(0640));
        EXPECT_EQ(place.list(), split("1 2 3 list x.a"));
    }
}

// Short names that mean something in a header stand among the long ones.
TEST(lbm, makes_an_archive_that_is_missing) {
    drafts files = members_of("an_object_of_a_long_name.o=0first|15_letters_long=odd|#=text|"
                              "16_letters_long_=even|ARFILENAMES|__________EL|__.SYMDEF");
    files[2].name = "#14.o";
    std::string list;
    work_place place;
    for (ar_draft& file : files) {
        place.put(file.name, file.data);
        list += file.name + "\n";
        file.date = date;
    }
    drafts members = with_long_names(files);
    members[0].date = members[0].mode = "0";
    members.insert(members.begin(), {.name = "/", .date = "0", .mode = "0"});
    for (ar_draft& member : members)
        member.uid = member.gid = "0";
    place.put("list", list);
    EXPECT_EQ(place.command(lbm + "new.a @list").err, "");
    EXPECT_EQ(difference(place.get("new.a"), indexed(OBJ_ARCHIVE, members, "first 2")), "");
}

// An archive of these members and of "m.o".
std::string archive(const std::string& members, const std::string& more = "m.o/") {
    return build_archive(OBJ_ARCHIVE, members_of(members + "|" + more));
}

struct lbm_refusals : testing::Test {
    lbm_refusals() {
        place.put("m.o", object(0, "1", "first gF .text"));
        place.put("other/m.o", object(1, "", ""));
        place.put("list", "m.o\n");
    }
    // The name of the archive stands in front of a text that begins with "," or ":". Nothing may
    // change.
    void expect(const std::string& bytes, std::string said,
                const std::string& line = "-rc x.a @list") const {
        place.put("x.a", bytes);
        const words before = place.list();
        const file_state archive = place.state("x.a");
        const run_result result = place.command("'" OBJTRIM_ARCHIVER "' " + line);
        said = "lbm: error: " + (said.find_first_of(",:") == 0 ? "archive 'x.a'" + said : said);
        EXPECT_EQ(result.err, said + "\n");
        EXPECT_EQ(result.status, 1) << line;
        EXPECT_TRUE(place.state("x.a") == archive) << said;
        EXPECT_EQ(place.list(), before) << said;
    }
    work_place place;
};

TEST_F(lbm_refusals, of_command_lines_and_lists) {
    const std::string sound = archive("m.o/=0", "");
    for (const char* line : {"-rc x.a y.a @list", "-rc x.a list", "-rc x.a", "-rc \"\" @list",
                             "-rc x.a @", "-rc", "-r x.a @list"})
        expect(sound, "usage: lbm -rc archive @listfile", line);
    expect(sound, ": can't open the list 'absent': No such file or directory", "-rc x.a @absent");
    std::string far = "x.a"; // no room for a name beside it
    while (far.size() < 4084)
        far.insert(0, "./");
    if (host_has_tools) // elsewhere names are shorter
        expect(sound, "archive '" + far + "': no name is free for the new archive",
               "-rc " + far + " @list");
    const std::string no_member = ": no member has this name and is the kind of object that file '";
    const std::pair<std::string, std::string> lists[] = {
        {"m.o\nm.o\n", ", member 'm.o'" + no_member + "m.o' is"},
        {"other/m.o\n", ", member 'm.o'" + no_member + "other/m.o' is"}, // of the other class
        {"other\n", ", member 'other': 'other' is no file"},
        {"missing\n", ", member 'missing': can't open file 'missing': No such file or directory"},
        {"m.o\0x\n"s, ": line 'm.o' of the list is no name of a file"},
        {"other/\n", ": line 'other/' of the list is no name of a file"}};
    for (const auto& [list, said] : lists) {
        place.put("list", list);
        expect(sound, said);
    }
}

TEST_F(lbm_refusals, of_damaged_archives) {
    const std::string form = "': a symbol index of this form cannot be brought up to date";
    const std::string no_form = ": this is no archive of a form that can be rebuilt";
    const std::string damaged = ", member '/': damaged symbol index: ", one = "/=\0\0\0\1\0\0\0"s;
    const std::pair<std::string, std::string> archives[] = {
        {archive("__.SYMDEF SORTED"), ", member '__.SYMDEF SORTED" + form},
        {archive("/|/"), ", member '/               ': there is a symbol index before this one"},
        {archive("/=\0\0\0"s), damaged + "its size 3 is below the 4 of its count"},
        {archive("/=\xff\xff\xff\xff"), damaged + "the count 4294967295 reaches past its end, 4"},
        {archive(one), damaged + "the count 1 reaches past its end, 7"},
        {archive(one + "\x52zzz"), damaged + "entry 0 leads to 0x52, to no member"},
        {archive(one + "\x50zzzz"),
         damaged + "it ends at its size, 12, before the last of 1 names"},
        {archive("b~`\xFF"),
         "Unexpected chars in archive file header 'x.a' at 0x44 '\\140' '\\377'"},
        {build_archive(OBJ_ELFARCHIVE, {}), no_form},
        {"", no_form}};
    place.put("m.o", "");
    for (const auto& [bytes, said] : archives)
        expect(bytes, said);
    // An index too large to be one is not read; what it has of the file is a hole.
    const std::string large =
        archive("x") + build_archive(OBJ_ARCHIVE, ar_members("/#268435457")).substr(8);
    place.put("y.a", large);
    std::filesystem::resize_file(place.path("y.a"), large.size() + 268435458);
    expect("", "archive 'y.a'" + damaged + "its size 268435457 is above 268435456",
           "-rc y.a @list");
}

} // namespace
