// Archives before and after a run of lbm, byte for byte; and what it refuses, as objtrim does.
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>

#include "shared/host.h"
#include "support/ar_builder.h"
#include "support/elf_builder.h"
#include "support/runner.h"

using namespace std::string_literals;

namespace {

using drafts = std::vector<ar_draft>;

const std::string lbm = "'" OBJTRIM_ARCHIVER "' -rc ";
const std::string date = "1000000000"; // of all files that a test puts into its place
constexpr uint64_t symtab = 2, strtab = 3, extended = 4; // sections of the objects here

// The text of a member's mode, 644 so far, behind its file's: the host may have few of the bits.
std::string kept_mode(uint32_t mode) {
    const uint32_t kept = (0644 & ~host_mode_bits) | (mode & host_mode_bits);
    return std::to_string(kept / 64 * 100 + kept / 8 % 8 * 10 + kept % 8);
}

// An object with these symbols: names, perhaps with ":" and the info, a global function's if not,
// and
// ":" and the section. `text` tells it from others.
std::string object(const elf_form& form, const std::string& text, const std::string& symbols) {
    const uint64_t size = form.is_64() ? 24 : 16;
    std::string names(1, '\0'), table(size, '\0');
    for (const std::string& symbol : split(symbols)) {
        unsigned info = 0x12, section = 1;
        const size_t end = std::min(symbol.find(':'), symbol.size());
        sscanf(symbol.c_str() + end, ":%x:%x", &info, &section);
        append_entry(
            table, form, size,
            {{field::st_name, names.size()}, {field::st_info, info}, {field::st_shndx, section}});
        names += symbol.substr(0, end) + '\0';
    }
    const std::string words(4 * table.size() / size, '\0');
    return build_elf({.form = form,
                      .sections = {{".text", sht::progbits, shf::alloc, text},
                                   {".symtab", sht::symtab, 0, table, 8, ".strtab"},
                                   {".strtab", sht::strtab, 0, names},
                                   {".symtab_shndx", sht::shndx, 0, words, 4, ".symtab"}},
                      .type = et::rel});
}

// Members out of text: a digit and a name are an object of that form with that symbol.
drafts members_of(const std::string& line) {
    drafts members = ar_members(line);
    for (ar_draft& member : members)
        if (std::string& data = member.data; data.size() < 9 && data >= "0" && data < "4")
            data = object(elf_forms[static_cast<size_t>(data[0] - '0')], data, data.substr(1));
    return members;
}

// The archive with an index in front, of names that each stand before the number of its member.
std::string indexed(obj_kind kind, drafts members, const std::string& line) {
    const words pairs = split(line);
    for (int pass = 0; pass < 2; ++pass) { // the first one settles the size
        std::vector<std::pair<std::string, uint64_t>> entries;
        for (size_t i = 0; i < pairs.size(); i += 2) {
            const drafts before(members.begin(), members.begin() + stoi(pairs[i + 1]));
            entries.emplace_back(pairs[i], build_archive(kind, before).size());
        }
        members[0].data = ar_index(entries);
        members[0].data.resize((members[0].data.size() + 1) / 2 * 2);
    }
    return build_archive(kind, members);
}

// Members alike in name, of several kinds: a text, objects of two classes, and one more object.
TEST(lbm, replaces_the_listed_members_and_nothing_else) {
    for (const obj_kind kind : {OBJ_ARCHIVE, OBJ_ARCHIVE64}) {
        const elf_form &one = elf_forms[0], &other = elf_forms[3];
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
        const std::string symbols = name + " local:2 weak:22 absent:10:0 file:14 comm:11:FFF2 "
                                           "unique:1A section:13 abs:10:FFF1 ''";
        const std::tuple<size_t, const char*, std::string, uint32_t> listed[] = {
            {4, "2/same.o", object(other, "", ""), 0400},
            {3, "1/same.o", object(one, "new and longer", symbols), 0755},
            {7, "3/same.o", object(one, "4th", "__gnu_lto_slim:11:FFF2"), 0604}};
        for (const auto& [number, file, data, mode] : listed) {
            place.put(file, data, mode);
            members[number].data = data;
            members[number].date = date;
            members[number].mode = (number == 3 ? "" : "100") + kept_mode(mode);
        }
        place.put("list", "2/same.o\r\n1/same.o\n\n" + place.directory + "/3/same.o");
        const std::string link = make_link("x.a", place.path("link.a")) ? "link.a " : "";
        const run_result result = place.command(lbm + (link.empty() ? "x.a" : link) + " @list");
        EXPECT_EQ(result.out + result.err, "");
        EXPECT_EQ(result.status, 0);
        const std::string names = " 3 weak 3 comm 3 unique 3 abs 3 third 5 fourth 7";
        EXPECT_EQ(difference(place.get("x.a"), indexed(kind, members, name + names) + tail), "");
        EXPECT_EQ(place.state("x.a").mode, host_mode(0640));
        EXPECT_EQ(place.list(), split("1 2 3 " + link + "list x.a"));
        EXPECT_EQ(std::filesystem::is_symlink(place.path("link.a")), !link.empty());
    }
}

// Short names that mean something in a header stand among the long ones.
TEST(lbm, makes_an_archive_that_is_missing) {
    drafts files =
        members_of("an_object_of_a_long_name.o=0first|15_letters_long=odd|16_letters_long_=even|"
                   "14.o|ARFILENAMES|<filenames>x|__________EL|__.SYMDEF|________64EL");
    files[3].name = "#14.o";
    if (!host_has_tools)
        files.erase(files.begin() + 5); // a file cannot be called that on Windows
    work_place place;
    std::string list;
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
    EXPECT_EQ(place.state("new.a").mode, 0644u);
}

// An archive of these members and of "m.o".
std::string archive(const std::string& members, const std::string& more = "m.o/") {
    return build_archive(OBJ_ARCHIVE, members_of(members + "|" + more));
}

struct lbm_refusals : testing::Test {
    lbm_refusals() {
        for (const auto& [name, data] : {std::pair("m.o", object(elf_forms[0], "1", "first")),
                                         {"other/m.o", object(elf_forms[1], "", "")},
                                         {"text", "text"},
                                         {"list", "m.o\n"}})
            place.put(name, data);
    }
    // What is said must be the text, or begin with it if that ends in "*"; the name of the archive
    // stands in front of one that begins with "," or ":". Nothing may change.
    void expect(const std::string& bytes, std::string said, const std::string& line = "x.a @list",
                const std::string& program = lbm, const std::string& level = "lbm: error: ") const {
        SCOPED_TRACE(line.substr(0, 50) + " " + said);
        place.put("x.a", bytes);
        const words before = place.list();
        const file_state archive = place.state("x.a");
        const run_result result = place.command(program + line);
        said = (said[0] == ',' || said[0] == ':' ? level + "archive 'x.a'" : level) + said + "\n";
        const size_t known = std::min(said.find('*'), said.size());
        EXPECT_EQ(result.err.substr(0, known < said.size() ? known : 500), said.substr(0, known));
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(place.state("x.a") == archive);
        EXPECT_EQ(place.list(), before);
    }
    work_place place;
};

TEST_F(lbm_refusals, of_command_lines_and_lists) {
    const std::string none = "No such file or directory", sound = archive("m.o/=0", "");
    for (const char* line : {"x.a y.a @list", "x.a list", "x.a", "\"\" @list", "x.a @", ""})
        expect(sound, "usage: lbm -rc archive @listfile", line);
    expect(sound, "usage: lbm -rc archive @listfile", "'" OBJTRIM_ARCHIVER "' -r x.a @list", "");
    expect(sound, ": can't open the list 'absent': " + none, "x.a @absent");
    expect(sound, "archive 'absent/x.a': can't create 'absent*", "absent/x.a @list");
    expect(sound, "can't open archive 'other': *", "other @list");
    std::string deep = "x.a"; // which leaves no room for the longer name of the new archive
    while (deep.size() < 4086)
        deep.insert(0, "./");
    if (make_link(deep, place.path("link")))
        expect(sound, "archive 'link': no name is free for the new archive", "link @list");
    const std::string no_member = ": no member has this name and is the kind of object that file '";
    const std::pair<std::string, std::string> lists[] = {
        {"m.o\nm.o\n", ", member 'm.o'" + no_member + "m.o' is"},
        {"other/m.o\n", ", member 'm.o'" + no_member + "other/m.o' is"}, // of the other class
        {"text\n", ", member 'text'" + no_member + "text' is"},
        {"missing\n", ", member 'missing': can't open file 'missing': " + none},
        {"other\n", ", member 'other': 'other' is no file"},
        {"m.o\0x\n"s, ": line 'm.o' of the list is no name of a file"},
        {"other/\n", ": line 'other/' of the list is no name of a file"}};
    for (const auto& [list, said] : lists) {
        place.put("list", list);
        expect(sound, said);
    }
    // More than a header can tell.
    const std::string large = place.path("text");
    const auto time = std::filesystem::last_write_time(large);
    std::filesystem::resize_file(large, 0x80000000);
    std::filesystem::last_write_time(large, time);
    place.put("list", "text");
    expect(archive("text/"),
           ", member 'text': size 2147483648 or date 1000000000 does not fit its header, which "
           "takes sizes up to 2147483647 and dates of 12 digits");
}

TEST_F(lbm_refusals, of_damaged_archives) {
    const std::string form = "': a symbol index of this form cannot be brought up to date";
    const std::string no_form = ": this is no archive of a form that can be rebuilt";
    const std::string damaged = ", member '/': damaged symbol index: ", one = "/=\0\0\0\1\0\0\0"s;
    const ar_draft named_in_data = {.name = "#1/12", .data = "__.SYMDEF..."};
    const std::pair<std::string, std::string> archives[] = {
        {archive("/SYM64/"), ", member '/SYM64" + form},
        {archive("__.SYMDEF SORTED"), ", member '__.SYMDEF SORTED" + form},
        {archive("________64ELEL_ "), ", member '________64ELEL_ " + form},
        {archive("__________ELELX_"), ", member '__________ELELX_" + form},
        {build_archive(OBJ_ARCHIVE64, {named_in_data}), ", member '#1/12" + form},
        {archive("/|/"), ", member '/               ': there is a symbol index before this one"},
        {archive("/=\0\0\0"s), damaged + "its size 3 is below the 4 of its count"},
        {archive("/=\xff\xff\xff\xff"), damaged + "the count 4294967295 reaches past its end, 4"},
        {archive(one), damaged + "the count 1 reaches past its end, 7"},
        {archive(one + "\x52zzz"), damaged + "entry 0 leads to 0x52, to no member"},
        {archive(one + "\x50zzzz"),
         damaged + "it ends at its size, 12, before the last of 1 names"},
        {archive(one + "\x50zz\0x"s),
         damaged + "there is something behind the last name, which ends at 0xb"},
        {archive("n/", "n/#1"),
         ", member 'n': its size 1, at 0x80, reaches past the end of the archive, 0x80"},
        {build_archive(OBJ_ELFARCHIVE, {}), no_form},
        {"", no_form}};
    place.put("m.o", "");
    for (const auto& [bytes, said] : archives)
        expect(bytes, said);
    // An index too large to be one is not read; what it has of the file is a hole.
    const std::string large = archive("m.o/", "/#268435457");
    place.put("y.a", large);
    std::filesystem::resize_file(place.path("y.a"), large.size() + 268435458);
    expect("", "archive 'y.a'" + damaged + "its size 268435457 is above 268435456", "y.a @list");
}

// What lbm reports as an error ends objtrim.
TEST_F(lbm_refusals, of_damaged_headers_by_either_program) {
    const std::string wrong = "Unexpected chars in archive file header 'x.a' at ";
    const std::string read_error = "error reading archive file 'x.a'";
    const std::tuple<obj_kind, std::string, std::string, std::string> rows[] = {
        {OBJ_ARCHIVE, "b~`\xFF", "", wrong + "0x80 '\\140' '\\377'"},
        {OBJ_ARCHIVE64, "b~\n`", "", wrong + "0xa6 '\\012' '\\140'"},
        {OBJ_ARCHIVE, "b#2147483648", "(-2147483648)", read_error},
        {OBJ_ARCHIVE64, "b#-1", "(-1)", read_error},
        {OBJ_ARCHIVE, "//#3=bb", "", read_error},
        {OBJ_ARCHIVE64, "//#9223372036854775807", "", read_error},
        {OBJ_ARCHIVE, "<filenames>#-2", "", read_error}};
    for (const auto& [kind, members, size, said] : rows) {
        const std::string bytes = build_archive(kind, ar_members("a/|" + members));
        const auto warning = [&size = size](const std::string& program) {
            return size.empty() ? "" : program + ": warning: b has negative size " + size + "\n";
        };
        expect(bytes, said, "x.a @list", lbm, warning("lbm") + "lbm: error: ");
        expect(bytes, said, "x.a", "'" OBJTRIM_PROGRAM "' ",
               warning("objtrim") + "objtrim: fatal: ");
    }
}

// Nothing in the symbol table of a listed object is believed.
TEST_F(lbm_refusals, of_objects_whose_symbols_cannot_be_told) {
    using enum field;
    constexpr uint32_t most = UINT32_MAX;
    const std::tuple<field, uint64_t, uint64_t> rows[] = {
        {e_shoff, UINT64_MAX, 0}, {e_shnum, 0xFEFF, 0},      {e_shentsize, 39, 0},
        {sh_size, most, symtab},  {sh_offset, most, symtab}, {sh_entsize, 15, symtab},
        {sh_link, 0, symtab},     {sh_link, 9, symtab},      {sh_offset, most, strtab},
        {sh_size, 1, strtab},     {sh_size, most, extended}, {sh_size, 4, extended}};
    for (const elf_form& form : elf_forms)
        for (const auto& [which, value, section] : rows) {
            SCOPED_TRACE(form.name + std::to_string(&std::get<0>(rows[0]) - &which));
            std::string bytes = object(form, "1", "first second:12:FFFF");
            drafts old = ar_members("/=" + ar_index({}) + "|m.o/");
            old[1].data = bytes;
            set_field(bytes, which, value, section);
            place.put("m.o", bytes);
            expect(build_archive(OBJ_ARCHIVE, old),
                   ", member 'm.o': the symbols of file 'm.o' cannot be told: it is damaged, or "
                   "there are too many");
        }
}

} // namespace
