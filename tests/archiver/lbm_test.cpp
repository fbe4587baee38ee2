// Archives before and after a run of lbm: byte for byte where the test builds them, judged by the
// system's own tools where those do.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "shared/host.h"
#include "support/ar_builder.h"
#include "support/elf_builder.h"
#include "support/runner.h"

using namespace std::string_literals;

namespace {

const std::string lbm = "'" OBJTRIM_ARCHIVER "' ";
const std::string date = "1000000000"; // of all files that a test puts into its place

// The text of a member's mode, 644 so far, behind its file's: the host may have few of the bits.
std::string kept_mode(uint32_t mode) {
    const uint32_t kept = (0644 & ~host_mode_bits) | (mode & host_mode_bits);
    return {static_cast<char>('0' + kept / 64), static_cast<char>('0' + kept / 8 % 8),
            static_cast<char>('0' + kept % 8)};
}

constexpr uint64_t symtab = 2, strtab = 3, index_words = 4; // sections of the objects here

struct defined {
    std::string name;
    uint8_t info = 0x12; // a global function
    uint32_t section = 1;
};

// An object with these symbols; `text` tells it from others.
std::string object(const elf_form& form, const std::string& text,
                   const std::vector<defined>& symbols) {
    std::string names(1, '\0'), table;
    append_entry(table, form, form.is_64() ? 24 : 16, {});
    for (const auto& [name, info, section] : symbols) {
        append_entry(
            table, form, form.is_64() ? 24 : 16,
            {{field::st_name, names.size()}, {field::st_info, info}, {field::st_shndx, section}});
        names += name + '\0';
    }
    const std::string words(4 * (symbols.size() + 1), '\0');
    return build_elf({.form = form,
                      .sections = {{".text", sht::progbits, shf::alloc, text},
                                   {".symtab", sht::symtab, 0, table, 8, ".strtab"},
                                   {".strtab", sht::strtab, 0, names},
                                   {".symtab_shndx", sht::shndx, 0, words, 4, ".symtab"}},
                      .type = et::rel});
}

// Fills the index, which is the first draft, with names, each before the number of its member.
void index_them(obj_kind kind, std::vector<ar_draft>& drafts, const std::string& line) {
    const words pairs = split(line);
    std::vector<std::pair<std::string, uint64_t>> entries;
    for (int pass = 0; pass < 2; ++pass) { // the first one settles the size
        entries.clear();
        for (size_t i = 0; i < pairs.size(); i += 2)
            entries.emplace_back(
                pairs[i],
                build_archive(kind, {drafts.begin(), drafts.begin() + stoi(pairs[i + 1])}).size());
        drafts[0].data = ar_index(entries);
        drafts[0].data.resize((drafts[0].data.size() + 1) / 2 * 2);
    }
}

// Members alike in name, of several kinds: a text, objects of two classes, and one more object.
TEST(lbm, replaces_the_listed_members_and_nothing_else) {
    for (const obj_kind kind : {OBJ_ARCHIVE, OBJ_ARCHIVE64}) {
        const elf_form &one = elf_forms[0], &other = elf_forms[3];
        const ar_draft table = {.name = "//", .data = "a_long_name_of_an_object.o/\n"};
        const ar_draft text = {.name = "same.o/", .data = "!<arch of text", .mode = "600"};
        std::vector<ar_draft> drafts = {
            {.name = "/", .date = "77", .mode = "0"},
            table,
            text,
            {.name = "same.o/", .data = object(one, "1", {{"first"}}), .uid = "", .mode = "644"},
            {.name = "same.o/", .data = object(other, "2", {{"second"}})},
            {.name = "/0", .data = object(one, "3", {{"third"}})},
            {.name = "same.o/", .data = object(one, "4", {{"fourth"}})},
            {.name = "last.txt/", .data = filler(100'001, 1)}, // large, odd
        };
        index_them(kind, drafts, "first 3 second 4 third 5 fourth 6");
        work_place place;
        const std::string tail = "too short for a header";
        place.put("x.a", build_archive(kind, drafts) + tail, 0640);

        // What is undefined, local, a section or a file is not in an index; what a compiler left
        // to itself keeps the entries that it has.
        const std::string name(300'000, 'n');
        drafts[3].data = object(one, "new and longer",
                                {{name},
                                 {"local", 0x02},
                                 {"weak", 0x22},
                                 {"absent", 0x10, 0},
                                 {"common", 0x11, 0xFFF2},
                                 {"unique", 0x1A},
                                 {"file", 0x14},
                                 {"section", 0x13},
                                 {"absolute", 0x10, 0xFFF1},
                                 {""}});
        drafts[4].data = object(other, "", {});
        drafts[6].data = object(one, "4th", {{"__gnu_lto_slim", 0x11, 0xFFF2}});
        place.put("1/same.o", drafts[3].data, 0755);
        place.put("2/same.o", drafts[4].data, 0400);
        place.put("3/same.o", drafts[6].data, 0604);
        place.put("list", "2/same.o\r\n1/same.o\n\n" + place.directory + "/3/same.o");
        drafts[3].date = drafts[4].date = drafts[6].date = date;
        drafts[3].mode = kept_mode(0755);
        drafts[4].mode = "100" + kept_mode(0400);
        drafts[6].mode = "100" + kept_mode(0604);
        index_them(kind, drafts, name + " 3 weak 3 common 3 unique 3 absolute 3 third 5 fourth 6");

        const bool linked = make_link("x.a", place.path("link.a"));
        const run_result result =
            place.command(lbm + "-rc " + (linked ? "link" : "x") + ".a @list");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out + result.err, "");
        EXPECT_EQ(difference(place.get("x.a"), build_archive(kind, drafts) + tail), "");
        EXPECT_EQ(place.state("x.a").mode, host_mode(0640));
        EXPECT_EQ(place.list(), split(linked ? "1 2 3 link.a list x.a" : "1 2 3 list x.a"));
        EXPECT_EQ(std::filesystem::is_symlink(place.path("link.a")), linked);
    }
}

TEST(lbm, makes_an_archive_that_is_missing) {
    std::vector<ar_draft> drafts = with_long_names(
        {{.name = "an_object_of_a_long_name.o", .data = object(elf_forms[0], "1", {{"first"}})},
         {.name = "15_letters_long", .data = "odd"},
         {.name = "16_letters_long_", .data = "even"},
         {.name = "#14.o", .data = "means something in a header"}});
    drafts.insert(drafts.begin(), {.name = "/"});
    for (ar_draft& draft : drafts)
        draft.date = draft.uid = draft.gid = draft.mode = "0";
    for (size_t i = 2; i < drafts.size(); ++i) {
        drafts[i].date = date;
        drafts[i].mode = "100644";
    }
    index_them(OBJ_ARCHIVE, drafts, "first 2");
    work_place place;
    std::string list;
    for (const char* name :
         {"an_object_of_a_long_name.o", "15_letters_long", "16_letters_long_", "#14.o"}) {
        place.put(name,
                  drafts[2 + static_cast<size_t>(std::count(list.begin(), list.end(), '\n'))].data);
        list += name + "\n"s;
    }
    place.put("list", list);
    EXPECT_EQ(place.command(lbm + "-rc new.a @list").err, "");
    EXPECT_EQ(difference(place.get("new.a"), build_archive(OBJ_ARCHIVE, drafts)), "");
    EXPECT_EQ(place.state("new.a").mode, 0644u);
}

struct refusal {
    std::string archive;
    std::string list;
    std::string complaint; // a part of it
    std::string arguments = "-rc x.a @list";
};

TEST(lbm, refuses_without_a_trace) {
    const std::string whole = object(elf_forms[0], "1", {{"first"}});
    const auto archive = [](std::vector<ar_draft> drafts, const std::string& rest = "") {
        drafts.push_back({.name = "m.o/", .data = object(elf_forms[0], "", {})});
        return build_archive(OBJ_ARCHIVE, drafts) + rest;
    };
    const auto index = [&](const std::string& data) {
        return archive({{.name = "/", .data = data}});
    };
    const uint64_t header = 8 + 60 + 12;
    const std::string sound = index(ar_index({{"abc", header}}));
    for (const refusal& refusal : std::vector<refusal>{
             {sound, "m.o\n", "usage: lbm", "-rc x.a y.a @list"},
             {sound, "m.o\n", "usage: lbm", "-rc x.a list"},
             {sound, "m.o\n", "usage: lbm", "-r x.a @list"},
             {sound, "m.o\n", "usage: lbm", "-rc x.a"},
             {sound, "m.o\nm.o\n", "member 'm.o': no member has this name"},
             {sound, "other/m.o\n", "file 'other/m.o'"}, // of the other class
             {sound, "text\n", "member 'text': no member"},
             {sound, "missing\n", "can't open file 'missing'"},
             {sound, "other\n", "'other' is no file"},
             {sound, "m.o\0x\n"s, "is no name of a file"},
             {sound, "m.o\n", "can't open the list", "-rc x.a @absent"},
             {sound, "m.o\n", "can't create", "-rc absent/x.a @list"},
             {archive({{.name = "/SYM64/", .data = "abcd"}}), "m.o\n", "of this form"},
             {archive({{.name = "__.SYMDEF", .data = "abcd"}}), "m.o\n", "of this form"},
             {archive({{.name = "________64EL", .data = "abcd"}}), "m.o\n", "of this form"},
             {archive({{.name = "#1/12", .data = "__.SYMDEF\0\0\0"s}}), "m.o\n", "of this form"},
             {archive({{.name = "/", .data = ar_index({})}, {.name = "/"}}), "m.o\n",
              "there is a symbol index before"},
             {index("\0\0\0"s), "m.o\n", "its size 3 is below the 4"},
             {index("\xff\xff\xff\xff"s), "m.o\n", "the count 4294967295 reaches past its end, 4"},
             {index(ar_index({{"abc", header + 2}})), "m.o\n",
              "entry 0 leads to 0x52, to no member"},
             {index(ar_index({{"abcd", header}}).substr(0, 12)), "m.o\n",
              "it ends at its size, 12, before the last of 1 names"},
             {index(ar_index({{"ab", header}}) + "x"), "m.o\n",
              "behind the last name, which ends at 0xb"},
             {archive({}, build_ar_member(OBJ_ARCHIVE, {.name = "n/", .size = "1"})), "m.o\n",
              "member 'n': its size 1, at 0x"},
             {archive({{.name = "bad/", .end = "xx"}}), "m.o\n", "Unexpected chars"},
             {build_archive(OBJ_ELFARCHIVE, {}), "", "no archive of a form"},
             {"", "m.o\n", "no archive of a form"},
         }) {
        work_place place;
        place.put("x.a", refusal.archive);
        place.put("m.o", whole);
        place.put("other/m.o", object(elf_forms[1], "", {}));
        place.put("text", "text");
        place.put("list", refusal.list);
        const file_state before = place.state("x.a");
        const run_result result = place.command(lbm + refusal.arguments);
        EXPECT_EQ(result.status, 1) << refusal.complaint;
        EXPECT_EQ(result.err.substr(0, 12), "lbm: error: ");
        const char* const named = refusal.complaint.starts_with("usage") ? "" : "x.a'";
        EXPECT_NE(result.err.find(named), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(refusal.complaint), std::string::npos) << result.err;
        EXPECT_TRUE(place.state("x.a") == before) << refusal.complaint;
        EXPECT_EQ(place.list(), split("list m.o other text x.a")) << refusal.complaint;
    }
}

// Nothing in the symbol table of a listed object is believed.
TEST(lbm, refuses_objects_whose_symbols_cannot_be_told) {
    const std::tuple<field, uint64_t, uint64_t> rows[] = {
        // field, value, section
        {field::e_shoff, UINT64_MAX, 0},
        {field::e_shnum, 0xFEFF, 0},
        {field::e_shentsize, 39, 0},
        {field::sh_size, UINT32_MAX, symtab},
        {field::sh_offset, UINT32_MAX, symtab},
        {field::sh_entsize, 15, symtab},
        {field::sh_link, 0, symtab},
        {field::sh_link, 9, symtab},
        {field::sh_offset, UINT32_MAX, strtab},
        {field::sh_size, 1, strtab},
        {field::sh_size, UINT32_MAX, index_words},
        {field::sh_size, 4, index_words},
    };
    for (const elf_form& form : elf_forms)
        for (const auto& [which, value, section] : rows) {
            std::string bytes = object(form, "1", {{"first"}, {"second", 0x12, 0xFFFF}});
            work_place place;
            place.put("x.a", build_archive(OBJ_ARCHIVE, {{.name = "/", .data = ar_index({})},
                                                         {.name = "m.o/", .data = bytes}}));
            place.put("list", "m.o\n");
            set_field(bytes, which, value, section);
            place.put("m.o", bytes);
            const file_state before = place.state("x.a");
            EXPECT_NE(place.command(lbm + "-rc x.a @list").err.find("cannot be told"),
                      std::string::npos)
                << form.name << &std::get<0>(rows[0]) - &which;
            EXPECT_TRUE(place.state("x.a") == before);
        }
}

} // namespace
