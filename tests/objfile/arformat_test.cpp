// Archives of every format: what is read of headers and names, who is called for what, and how
// damage ends the walk.
#include <cinttypes>

#include "objfile/arname.h"
#include "shared/genmessage.h"
#include "support/ar_builder.h"
#include "support/child.h"

using namespace std::string_literals;

namespace {

// Name, or its length if it is long, and what the header of a member with a mode of its own says.
// Both streams stand at the data; where they are left is no matter. The result is the size.
int32_t tell(gen_stream& headers, gen_stream& data, const ar_member_context& context) {
    EXPECT_EQ(headers.position, data.position);
    const ar_member* const member = context.member;
    if (!member || member->is_index)
        return gen_eprintf("%s; ", context.display_name.c_str());
    const size_t size = member->name.size();
    gen_eprintf("%s%s", (size < 99 ? member->name : std::to_string(size)).c_str(),
                member->slash_terminated ? "/" : "");
    if (member->mode != 0100644)
        gen_eprintf("@%" PRIu64 " %" PRId64 " %o %d %d %" PRId64, data.position, member->date,
                    member->mode, int(member->uid), int(member->gid), member->size);
    gen_eprintf("; ");
    gen_seek(data, 1, GEN_SEEK_CUR);
    gen_seek(headers, 0, GEN_SEEK_SET);
    return static_cast<int32_t>(member->size);
}

struct arformat : placed_test {
    void walk(const std::string& bytes) {
        place.put("l", bytes);
        obj_history history;
        ar_handler_table table;
        table.ar_damage_is_fatal = false;
        for (ar_handler& slot : table.by_kind)
            slot = tell;
        table.by_kind[OBJ_IMPORT] = nullptr;
        table.symbol_index = tell;
        gen_eprintf("= %d\n", ar_walk("l", history, names, table));
    }
    ar_name_table names;
};

TEST_F(arformat, fields_names_links_and_damage) {
    const std::string index = "l(table of contents); ", x511(511, 'x'), y512(512, 'y');
    const std::string unknown = "unknown=MZ" + std::string(100, '\0'); // without a PE header
    const std::string read_error = "objtrim: error: error reading archive file 'l'\n";
    const std::string wrong = "objtrim: error: Unexpected chars in archive file header 'l' at ";
    const std::string odd = "a.o/%7=odd|b.o/@4294967295%17x[ +7]-1#08=12345678|c.o/@-5% 644[]4=...";
    const std::tuple<obj_kind, std::string, std::string> rows[] = {
        {OBJ_ELFARCHIVE, odd, "a.o/@68 1 7 2 3 3; b.o/@132 -1 17 7 -1 8; c.o/@200 -5 0 0 4 3; = 3"},
        // A size may lead out of the file.
        {OBJ_ARCHIVE64, "a@4294967295%0#9223372036854775807=...",
         "a@88 4294967295 0 2 3 9223372036854775807; = -1"},
        {OBJ_ARCHIVE,
         "x|//=a_name_of_20_letters/\nsome/deep/one.o/\n|/0|/22|/00002x|/38|/39| 0|x y.o /|\tz\t\n",
         "x; a_name_of_20_letters/; some/; name_of_20_letters/; ; /39;  0; x y.o /; \tz; = 0"},
        {OBJ_ARCHIVE, "a\0b/|/|//x|/SYM64/|__.SYMDEF SORTED|__.SYM|________64EL|__________EL"s,
         "a; " + index + "//x; /SYM64/; " + index + "__.SYM; " + index + index + "= 0"},
        {OBJ_ARCHIVE, "ARFILENAMES/=a/\nb/|/0| 3| x|ARFILENAMES/=new| 0| 3",
         "a/; b/;  x; new;  3; = 0"},
        // Names that are ended by NUL keep "/" and new-line; one of 4 096 letters is none.
        {OBJ_ARCHIVE, "//=d/one.o\0two\n.o|/0|/8"s, "d/one.o; two\n.o; = 0"},
        {OBJ_ARCHIVE, "//=d/\0one/\n.o\0|/0|/3"s, "d/; one/; = 0"},
        {OBJ_ARCHIVE, "//=z" + x511 + y512 + std::string(3072, 'x') + "|/0|/3072", "/0; 1024; = 0"},
        // Names that were cut take a line each, also those that only look like it.
        {OBJ_ARCHIVE,
         "<filenames>/=\nfifteen_letters.o/\nanother_long_na\nno_\0\nlast_name_of_all.cpp|"
         "fifteen_letters/|short.o|looks_like_.obj|another_long_na|no_line_for_me_|"
         "last_name_of_al|last_name_of_al|/1|<filenames>=fifteen_letters.c/\n|fifteen_letters"s,
         "fifteen_letters.o/; short.o; looks_like_.obj; another_long_na; no_line_for_me_; "
         "last_name_of_all.cpp; last_name_of_al; fifteen_letters.o; fifteen_letters.c/; = 0"},
        // Fields of variable length: the "/" that ends one is not part of it.
        {OBJ_ELFARCHIVE,
         "/|a_long_name_.o/|d/e_and_more_of_it.o /|//=no table|" + x511 + "/|" + y512,
         index + "a_long_name_.o/; d/e_and_more_of_it.o/; /; 511/; 512; = 0"},
        // The links of a chain, and a loop, with no room for more than two.
        {OBJ_AIXARCHIVE, "m0@4294967295%7^252|m1^160|m2^344", "m0@160 4294967295 7 2 3 0; m2; = 0"},
        {OBJ_AIXARCHIVE, "m0^68|m1", "m0; m0; = 0"},
        // The last member that is dispatched decides.
        {OBJ_ARCHIVE, "bad=22|" + unknown + "|/=index", "bad; l(table of contents); = 2"},
        {OBJ_ARCHIVE, "good|import=\0\0\xFF\xFF|"s + unknown, "good; = -1"},
        // Damage ends the archive.
        {OBJ_AIXARCHIVE, "a/|b~\n`", "a/; " + wrong + "0xfb '\\012' '\\140'\n= 0"},
        {OBJ_AIXARCHIVE, "a/|b^-2=" + x511, "a/; b; " + read_error + "= 511"},
    };
    for (const auto& [kind, members, text] : rows) {
        const std::string archive = build_archive(kind, ar_members(members));
        expect_text([&, this] { walk(archive); }, text + "\n");
    }
    expect_text([this] { walk("no archive"); }, "l; = 3\n");
    obj_history history;
    expect_fatal(
        {{[&] { ar_walk("none", history, names, {}); }, "unable to open input file 'none'"}});
}

} // namespace
