// Archives of every format: what is read of headers and names, who is called for what, and how
// damage ends the walk.
#include <cinttypes>
#include <sstream>
#include <unistd.h>

#include "objfile/arname.h"
#include "shared/genmem.h"
#include "shared/genmessage.h"
#include "support/ar_builder.h"
#include "support/child.h"

using namespace std::string_literals;

namespace {

using drafts = std::vector<ar_draft>;

// Name fields, and data behind a "=", separated by "|".
drafts named(const std::string& line) {
    drafts members;
    std::istringstream stream(line);
    for (std::string member; std::getline(stream, member, '|');) {
        const size_t name_size = std::min(member.find('='), member.size());
        members.push_back({member.substr(0, name_size)});
        if (name_size < member.size())
            members.back().data = member.substr(name_size + 1);
    }
    return members;
}

int32_t tell_name(gen_stream&, gen_stream&, const ar_member_context& context) {
    const ar_member& member = *context.member;
    gen_eprintf("%s%s; ", member.name.c_str(), member.slash_terminated ? "/" : "");
    return 0;
}

// All that is known. Both streams stand at the data; where they are left is no matter. The result
// is a byte of the data.
int32_t tell_all(gen_stream& headers, gen_stream& data, const ar_member_context& context) {
    EXPECT_EQ(headers.position, data.position);
    gen_eprintf("%s@%" PRIu64, context.display_name.c_str(), data.position);
    if (const ar_member* const member = context.member)
        gen_eprintf(" %" PRId64 " %d %d %o %" PRId64, member->date, static_cast<int>(member->uid),
                    static_cast<int>(member->gid), member->mode, member->size);
    gen_eprintf("; ");
    gen_seek(data, 1, GEN_SEEK_CUR);
    gen_seek(headers, 0, GEN_SEEK_SET);
    return gen_getc(data);
}

void walk(const ar_handler& handler, bool damage_is_fatal, ar_name_table& names) {
    obj_history history;
    ar_handler_table table;
    table.ar_damage_is_fatal = damage_is_fatal;
    for (ar_handler& slot : table.by_kind)
        slot = handler;
    table.by_kind[OBJ_IMPORT] = nullptr;
    table.symbol_index = [](gen_stream&, gen_stream&, const ar_member_context& context) {
        return gen_eprintf("%s; ", context.display_name.c_str());
    };
    gen_eprintf("= %d\n", ar_walk("l", history, names, table));
}

void walk(const ar_handler& handler, bool damage_is_fatal = true) {
    ar_name_table names;
    walk(handler, damage_is_fatal, names);
}

struct arformat : placed_test {
    // What a walk says when damage does not end the program.
    void expect_walk(const std::string& bytes, const std::string& text,
                     ar_handler handler = tell_name) const {
        place.put("l", bytes);
        expect_text([&] { walk(handler, false); }, text);
    }
};

TEST_F(arformat, fields_of_every_variant) {
    ar_draft odd = {"a.o/", "odd"}, wrong = {"b.o/", "12345678", "08"}, blank = {"c.o/", "..."};
    wrong.date = "4294967295", wrong.uid = " +7", wrong.gid = "-1", wrong.mode = "17x";
    blank.date = "-5", blank.uid = "", blank.mode = " 644";
    const std::string standard = "l(a.o)@68 1 2 3 100644 3; l(b.o)@132 -1 7 -1 17 8; "
                                 "l(c.o)@200 -5 0 3 0 3; = 46\n";
    const std::pair<obj_kind, std::string> rows[] = {
        {OBJ_ARCHIVE, standard},
        {OBJ_ELFARCHIVE, standard},
        {OBJ_ARCHIVE64, "l(a.o)@88 1 2 3 100644 3; l(b.o)@170 4294967295 7 -1 17 8; "
                        "l(c.o)@256 -5 0 3 0 3; = 46\n"},
        {OBJ_AIXARCHIVE, "l(a.o/)@162 1 2 3 100644 3; l(b.o/)@260 4294967295 7 -1 17 8; "
                         "l(c.o/)@362 -5 0 3 0 3; = 46\n"},
    };
    for (const auto& [kind, text] : rows) {
        expect_walk(build_archive(kind, {odd, wrong, blank}), text, tell_all);
        expect_walk(build_archive(kind, {}), "= 0\n");
    }
    // A size may lead out of the file; its digits wrap only beyond the width of the number.
    expect_walk(build_archive(OBJ_ARCHIVE64, {{"a", "...", "09223372036854775807"}}),
                "l(a)@88 1 2 3 100644 9223372036854775807; = 46\n", tell_all);
    expect_walk(build_archive(OBJ_ARCHIVE, {{"a", "...", "4294967299"}, {"b", "..."}}),
                "l(a)@68 1 2 3 100644 3; l(b)@132 1 2 3 100644 3; = 46\n", tell_all);
}

TEST_F(arformat, names) {
    const std::string slashes = "=a_name_of_20_letters/\nsome/deep/one.o/\n";
    const std::string index = "l(table of contents); ", x511(511, 'x'), y512(512, 'y');
    const std::tuple<obj_kind, std::string, std::string> rows[] = {
        {OBJ_ARCHIVE,
         "x|//" + slashes + "|/0|/22|/00002x|/38|/39| 0|x y.o /|\tz\t\n|sixteen_letters_",
         "x; a_name_of_20_letters/; some/; name_of_20_letters/; ; /39;  0; x y.o /; \tz; "
         "sixteen_letters_; "},
        {OBJ_ARCHIVE, "a\0b/|/|//x|/SYM64/|__.SYMDEF SORTED|__.SYM|________64EL|__________EL"s,
         "a; " + index + "//x; /SYM64/; " + index + "__.SYM; " + index + index},
        {OBJ_ARCHIVE64, "ARFILENAMES/" + slashes + "|/0| 22| x|ARFILENAMES/=new| 0| 3",
         "a_name_of_20_letters/; some/;  x; new;  3; "},
        // Names that are ended by NUL keep "/" and new-line.
        {OBJ_ARCHIVE, "//=d/one.o\0two\n.o|/0|/8"s, "d/one.o; two\n.o; "},
        {OBJ_ARCHIVE, "//=\n\0/x\0|/2"s, "/x; "},
        {OBJ_ARCHIVE, "//=d/\0one/\n.o\0|/0|/3"s, "d/; one/; "},
        {OBJ_ARCHIVE, "//=\n\0one/x|/0|/2"s, "; one/; "},
        // Names that were cut take a line each, also those that only look like it.
        {OBJ_ARCHIVE,
         "<filenames>/=\nfifteen_letters.o/\nanother_long_na\nno_\0\nlast_name_of_all.cpp|"
         "fifteen_letters/|short.o|looks_like_.obj|another_long_na|no_line_for_me_|"
         "last_name_of_al|last_name_of_al|/1|<filenames>=fifteen_letters.c/\n|fifteen_letters"s,
         "fifteen_letters.o/; short.o; looks_like_.obj; another_long_na; no_line_for_me_; "
         "last_name_of_all.cpp; last_name_of_al; fifteen_letters.o; fifteen_letters.c/; "},
        // Fields of variable length: the "/" that ends one is not part of it.
        {OBJ_ELFARCHIVE,
         "/|a_long_name_.o/|d/e_and_more_of_it.o /|//=no table|" + x511 + "/|" + y512,
         index + "a_long_name_.o/; d/e_and_more_of_it.o/; /; " + x511 + "/; " + y512 + "; "},
        {OBJ_AIXARCHIVE, "x/|// |/0 ", "x/; // ; /0 ; "},
    };
    for (const auto& [kind, members, text] : rows)
        expect_walk(build_archive(kind, named(members)), text + "= 0\n");
    const auto body = [&] {
        ar_name_table names;
        for (const std::string& members :
             {"//" + slashes, "/22|//=" + std::string(4096, 'x') + "|/0"s}) {
            place.put("l", build_archive(OBJ_ARCHIVE, named(members)));
            walk(tell_name, true, names);
        }
    };
    // The table outlives its archive; a name without an end is none.
    expect_text(body, "= 0\nsome/; /0; = 0\n");
}

TEST_F(arformat, the_last_member_that_is_dispatched_decides) {
    const auto first_digit = [](gen_stream&, gen_stream& data, const ar_member_context&) {
        return gen_getc(data) - '0';
    };
    const std::string no_handler = "|import=\0\0\xFF\xFF"s;
    const std::string unknown = "|unknown=MZ" + std::string(100, '\0'); // without a PE header
    const std::pair<std::string, const char*> rows[] = {
        {"bad=2..." + unknown + "|/=index", "l(table of contents); = 2\n"},
        {"bad=2...|good=0...", "= 0\n"},
        {"good=0..." + no_handler + unknown, "= -1\n"},
        {unknown.substr(1), "= 0\n"},
    };
    for (const auto& [members, text] : rows)
        expect_walk(build_archive(OBJ_ARCHIVE, named(members)), text, first_digit);
    expect_walk("no archive", "l@0; = 111\n", tell_all);
}

TEST_F(arformat, damage_is_told_and_ends_the_archive_or_the_program) {
    const std::string wrong = "Unexpected chars in archive file header 'l' at ";
    const std::string read_error = "error reading archive file 'l'\n";
    const std::string negative = "objtrim: warning: b has negative size ";
    ar_draft wrong_end = {"bb", ".."}, long_name = {"0123456789abcdef/"},
             link = {"b", std::string(100, '.')};
    wrong_end.end = "`\xFF", long_name.end = "\n`", link.next = "-2";
    const std::tuple<obj_kind, ar_draft, std::string, std::string> rows[] = {
        {OBJ_ARCHIVE, wrong_end, "", wrong + "0x80 '\\140' '\\377'\n"},
        {OBJ_ELFARCHIVE, long_name, "", wrong + "0x84 '\\012' '\\140'\n"},
        {OBJ_ARCHIVE64, wrong_end, "", wrong + "0xa6 '\\140' '\\377'\n"},
        {OBJ_AIXARCHIVE, wrong_end, "", wrong + "0xfc '\\140' '\\377'\n"},
        {OBJ_ARCHIVE, {"b", "", "2147483648"}, negative + "(-2147483648)\n", read_error},
        {OBJ_ARCHIVE64, {"b", "", "-1"}, negative + "(-1)\n", read_error},
        {OBJ_AIXARCHIVE, {"b", "", "-2"}, negative + "(-2)\n", read_error},
        {OBJ_AIXARCHIVE, link, "b; ", read_error},
        {OBJ_ARCHIVE, {"//", "bb", "3"}, "", read_error},
        {OBJ_ARCHIVE64, {"//", "", "9223372036854775807"}, "", read_error},
        {OBJ_ARCHIVE, {"<filenames>", "", "-2"}, "", read_error},
    };
    for (const auto& [kind, draft, before, message] : rows) {
        expect_walk(build_archive(kind, {{"a/"}, draft}),
                    "a/; " + before + "objtrim: error: " + message + "= 0\n");
        expect_end([] { walk(tell_name); }, 1, "a/; " + before + "objtrim: fatal: " + message);
    }
}

TEST_F(arformat, failures_of_the_host) {
    obj_history history;
    ar_name_table names;
    expect_fatal(
        {{[&] { ar_walk("none", history, names, {}); }, "unable to open input file 'none'"},
         {[&] {
              const gen_stream_ptr stream = stream_of("!<arch>\n", 8);
              close(stream->descriptor);
              ar_reader reader = {"l", *stream, names};
              ar_read_member_header(reader);
          },
          "error reading archive file 'l'"},
         {[&] {
              place.put("l", build_archive(OBJ_AIXARCHIVE, {}).substr(0, 67));
              walk(tell_name);
          },
          "failed reading the header of AIX format library 'l'"}});
    place.put("l", build_archive(OBJ_ARCHIVE, named("a/|//=only this is 26 bytes long|b/")));
    const auto body = [] {
        static const auto calloc_slot = gen_calloc_slot;
        gen_calloc_slot = [](uint64_t count, uint64_t size) {
            return size == 27 ? nullptr : calloc_slot(count, size);
        };
        walk(tell_name);
        gen_calloc_slot = calloc_slot;
    };
    expect_text(body, "a/; objtrim: error: Out of memory while reading archive file 'l'\n= 0\n");
}

TEST_F(arformat, an_aix_chain_ends_where_its_links_say) {
    const std::tuple<std::vector<const char*>, const char*> rows[] = {
        {{"0", ""}, "m0; = 0\n"},
        {{"252", "160", "344"}, "m0; m2; = 0\n"}, // the end of the file, where the table would be
        {{"999999999999", ""}, "m0; = 0\n"},
        {{"68", ""}, "m0; m0; = 0\n"}, // no room for more than two
    };
    for (const auto& [links, text] : rows) {
        drafts members;
        for (const char* link : links) {
            members.push_back({"m" + std::to_string(members.size())});
            members.back().next = link;
        }
        expect_walk(build_archive(OBJ_AIXARCHIVE, members), text);
    }
}

} // namespace
