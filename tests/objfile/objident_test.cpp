// What identification says of files of every kind, of what it leaves from the file before, and of
// files that are short, damaged, or lie inside another one.
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "objfile/elfio.h"
#include "objfile/objident.h"
#include "support/child.h"
#include "support/elf_builder.h"
#include "support/runner.h"

using namespace std::string_literals;

namespace {

struct objident : testing::Test {
    const objinfo* identify(const std::string& bytes, const char* name = nullptr,
                            const std::string& before = "") const {
        place.put("f", before + bytes);
        const gen_stream_ptr stream = gen_open(place.path("f").c_str(), "rb+");
        gen_seek(*stream, static_cast<int64_t>(before.size()), GEN_SEEK_SET);
        const objinfo* const info = obj_identify(stream.get(), name);
        EXPECT_EQ(stream->position, before.size());
        return info;
    }
    ~objident() override { elf_byte_order = ELF_ORDER_UNSET; }

    work_place place;
};

// The record as text: kind, target, machine; class, orders of data and code, symbol size, flags,
// file type.
std::string text_of(const objinfo* info) {
    if (!info)
        return "none";
    const char order[2] = {'l', 'b'};
    char text[100];
    snprintf(text, sizeof text, "%u %u %X; %u %c%c %u %X %u", info->kind, info->target,
             info->machine, info->class_bits, order[info->big_endian], order[info->code_big_endian],
             info->sym_entry_size, info->flags, info->file_type);
    return text;
}

std::string coff(const std::string& magic, const std::string& flags = "\4\0"s) {
    return magic + std::string(16, '\0') + flags;
}

std::string pe(const std::string& coff_header, const std::string& signature = "PE\0\0"s) {
    return "MZ" + std::string(58, 'x') + "\x50\0\0\0"s + std::string(16, 'x') + signature +
           coff_header;
}

std::string elf(const elf_form& form, uint16_t machine, uint32_t flags, uint16_t type = et::exec) {
    std::string file = build_elf({.form = form, .type = type});
    set_field(file, field::e_machine, machine);
    set_field(file, field::e_flags, flags);
    return file;
}

// What it says of the fields that the next file does not fill: "2 6 14C; . ll 18 FFFF8003 2".
const std::string something_else = coff("\x4C\x01", "\x03\x80");

TEST_F(objident, kinds_and_what_stays_from_the_file_before) {
    const std::string resource = "\0\0\0\0\x20\0\0\0\xFF\xFF\0\0\xFF\xFF\0\0"s + coff({}, {});
    const struct {
        std::string bytes;
        const char* expected;
    } rows[] = {
        // COFF: flags are sign-extended, and say the type.
        {coff("\x64\x86", "\x01\x80"), "2 138 8664; 64 ll 18 FFFF8001 0"},
        {coff("\x01\x60", "\0\2"s), "2 31 160; 32 bb 24 2 2"},
        {coff("\x0D\x01"), "2 30 1D0; 32 ll 24 4 1"},
        {coff("\x00\x89"s), "2 38 88; 32 bb 18 400 1"},
        {coff("\x01\xDF"), "5 33 1DF; 32 bb 18 400 1"},
        {coff("\x02\x0B"), "7 39 20B; 32 bb 18 400 1"},
        {coff("\x0B\x01", "\0\x20"s), "1 53 10B; 32 ll 18 2000 1"},
        // PE: machine number and symbol size stay those of "MZ".
        {pe(coff("\x4C\x01", "\x02\x20")), "6 6 5A4D; 32 ll 18 2002 3"},
        {pe(coff("\x64\x86", "\x02\0"s)), "6 138 5A4D; 64 ll 18 2 2"},
        {pe(coff("\x01\x60", "\0\1"s)), "6 31 5A4D; 32 bb 18 1 0"},
        {pe(coff("\x4C\x01"), "PE\0\1"s), "none"},
        {"MZ" + std::string(58, 'x') + "\xF0\xFF\xFF\xFF", "none"},
        {"MZ", "none"},
        // a.out.
        {"\x07\x01\x64\x00"s, "1 43 640107; 32 ll 12 0 0"},
        {"\x01\x03\x01\x0B", "1 10 1030107; 32 bb 12 0 0"},
        // Tool data by signature.
        {"\x7FORV\0\0\0\x09\0\0\0\x07"s, "9 128 7; 0 ll 18 FFFF8003 5"},
        {"\x7FORV\0\0\0\x01\0\0\0\x08"s, "18 0 4F7F; 0 ll 18 FFFF8003 0"},
        {"\x7FORV\0\0\0\x01"s, "18 0 4F7F; 0 ll 18 FFFF8003 0"},
        // Marks of four or more bytes.
        {"\x00\x00\x02\x58"s, "10 0 0; 0 ll 18 FFFF8003 2"},
        {"\x00\x00\xFF\xFF"s, "11 0 0; 0 ll 18 FFFF8003 2"},
        {resource, "14 125 14C; 0 ll 18 FFFF8003 2"},
        // Archives; an imitated magic keeps even the kind.
        {"!<arch>\n", "8 0 3C21; 0 ll 18 FFFF8003 2"},
        {"!<arch64>\n", "17 0 3C21; 0 ll 18 FFFF8003 2"},
        {"!<arcade>", "2 0 3C21; 0 ll 18 FFFF8003 2"},
        // Short files: four zeros if there is nothing, else 0xFF for what lacks.
        {"", "18 6 14C; 0 ll 0 0 0"},
        {"!<a", "18 6 14C; 0 ll 0 0 0"},
        {"\x4C\x01", "2 6 14C; 32 ll 18 FFFFFFFF 2"},
    };
    for (const auto& row : rows)
        for (const char* before : {"", "the archive before it"}) {
            identify(something_else);
            const objinfo* const info = identify(row.bytes, nullptr, before);
            EXPECT_EQ(text_of(info), row.expected) << testing::PrintToString(row.bytes) << before;
            if (info && row.bytes.size() >= 2) {
                EXPECT_EQ(row.bytes.substr(0, 2), std::string(info->magic, info->magic + 2));
            }
        }
}

TEST_F(objident, weak_marks_count_only_where_no_target_is_left_from_the_file_before) {
    const struct {
        std::string bytes;
        const char* expected;
    } rows[] = {
        {"\x01\x00??"s, "9 120 3C21; 0 ll 0 0 5"},
        {"\x01\x02??", "9 121 3C21; 0 ll 0 0 5"},
        {"\x05\x04??", "18 0 405; 0 ll 0 0 0"},
        {"INT\0"s, "9 126 3C21; 0 ll 0 0 5"},
        {"VLG\0"s, "9 142 3C21; 0 ll 0 0 5"},
        {"\x02\x10\x01\x08", "15 113 108; 32 bb 0 0 2"},
        {"", "18 0 0; 0 ll 0 0 0"},
        {"!<a", "18 0 3C21; 0 ll 0 0 0"},
        {"\x4C", "18 0 FF4C; 0 ll 0 0 0"},
    };
    for (const auto& row : rows) {
        identify(something_else);
        identify("!<arch>\n"); // sets no target
        EXPECT_EQ(text_of(identify(row.bytes)), row.expected) << testing::PrintToString(row.bytes);
        identify(something_else);
        EXPECT_EQ(text_of(identify(row.bytes)), "18 6 14C; 0 ll 0 0 0");
    }
}

TEST_F(objident, an_imitated_archive_magic_leaves_the_kind_and_with_it_the_machine) {
    identify("\x7FORV\0\0\0\0\0\0\0\4"s);
    EXPECT_EQ(text_of(identify("!<arcade>")).substr(0, 6), "9 0 4;");
    identify(elf(elf_forms[0], 62, 0));
    EXPECT_EQ(text_of(identify("<aia")).substr(0, 7), "3 0 3E;");
}

TEST_F(objident, elf_machines_flags_and_orders) {
    const elf_form &little_64 = elf_forms[0], &little_32 = elf_forms[1];
    const elf_form &big_64 = elf_forms[2], &big_32 = elf_forms[3];
    const struct {
        elf_form form;
        uint16_t machine;
        uint32_t flags;
        uint16_t type;
        const char* expected;
    } rows[] = {
        {little_64, 62, 0, 1, "3 129 3E; 64 ll 0 0 1"},
        {big_32, 8, 7, 4, "3 62 8; 32 bb 0 7 4"},
        {little_32, 61455, 0, 5, "3 139 F00F; 32 ll 0 0 0"},
        {little_64, 0, 0, 2, "3 0 0; 64 ll 0 0 2"},
        {big_32, 40, 0x00800000, 2, "3 69 28; 32 bl 0 800000 2"},
        {little_32, 40, 0x00800000, 2, "3 69 28; 32 lb 0 800000 2"},
        {big_64, 183, 0, 2, "3 137 B7; 64 bl 0 0 2"},
        {big_32, 42, 0x00400000, 2, "3 70 2A; 32 bb 0 400000 2"},
        {big_32, 42, 0x03000000, 2, "3 0 2A; 32 bb 0 3000000 2"},
        {big_32, 44, 0x01000000, 2, "3 84 2C; 32 bl 0 1000000 2"},
        {big_32, 44, 0x00180000, 2, "3 0 2C; 32 bl 0 180000 2"},
        {little_32, 122, 0x104, 2, "3 130 7A; 32 ll 0 104 2"},
        {little_32, 122, 0x105, 2, "3 0 7A; 32 ll 0 105 2"},
        {little_64, 243, 0, 2, "3 141 F3; 64 ll 0 80000000 2"},
        {little_32, 243, 0x80000015, 2, "3 140 F3; 32 ll 0 15 2"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(text_of(identify(elf(row.form, row.machine, row.flags, row.type))), row.expected);
}

TEST_F(objident, elf_errors_stay_silent_and_the_callers_sink_comes_back) {
    const std::string whole = elf(elf_forms[0], 62, 0);
    std::string no_class = whole, bad_numbering = whole;
    no_class[4] = 3;
    set_field(bad_numbering, field::e_shnum, 0);
    set_field(bad_numbering, field::e_shentsize, 8);
    for (const std::string& file : {no_class, bad_numbering}) {
        int32_t sink = 0;
        elf_set_error_sink(&sink);
        sink = -1;
        EXPECT_EQ(text_of(identify(file)).substr(0, 6), "3 0 0;");
        EXPECT_EQ(elf_get_error_sink(), &sink);
        EXPECT_EQ(sink, 0);
        elf_set_error_sink(nullptr);
    }
}

std::string word(const elf_form& form, uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes += static_cast<char>(value >> 8 * (form.big_endian ? 3 - i : i));
    return bytes;
}

std::string note(const elf_form& form, uint32_t type, const std::string& name,
                 const std::string& value) {
    return word(form, static_cast<uint32_t>(name.size())) +
           word(form, static_cast<uint32_t>(value.size())) + word(form, type) + name + value;
}

std::string elf_with_notes(const elf_form& form, const std::string& notes) {
    std::string file = build_elf({.form = form,
                                  .sections = {{.name = ".text", .content = "code"},
                                               {.name = ".note.renesas", .content = notes}}});
    set_field(file, field::e_machine, 36);
    return file;
}

TEST_F(objident, notes_are_read_without_padding) {
    for (const elf_form& form : elf_forms) {
        const auto rel = [&](uint32_t type, uint32_t value, const std::string& name = "REL\0"s) {
            return note(form, type, name, word(form, value));
        };
        const struct {
            std::string notes;
            uint32_t expected;
        } rows[] = {
            {rel(3, 1), 0x01},
            {rel(3, 3, "rEl\0"s), 0x01},
            {rel(4, 2) + rel(11, 1), 0x30},
            {rel(4, 3) + rel(11, 2) + rel(5, 1) + rel(3, 2, "RELX"), 0},
            {note(form, 3, "odd", "7 bytes") + rel(4, 1), 0x02},
            {note(form, 3, "", word(form, 1)) + rel(11, 1), 0x20},
            {rel(3, 1) + rel(4, 1).substr(0, 11), 0x01},
            {note(form, 3, "", "") + word(form, 0xFFFFFFFF) + word(form, 0xFFFFFFFF) +
                 word(form, 3) + rel(3, 1),
             0},
        };
        for (const auto& row : rows) {
            std::string file = elf_with_notes(form, row.notes);
            EXPECT_EQ(identify(file)->note_flags, row.expected) << form.name;
            EXPECT_EQ(identify(file, nullptr, "12345")->note_flags, row.expected) << form.name;
            set_field(file, field::e_machine, 62);
            EXPECT_EQ(identify(file)->note_flags, 0u) << "not this machine's";
        }
    }
}

TEST_F(objident, damaged_elf_files_end_without_a_word) {
    for (const elf_form& form : elf_forms) {
        const std::string whole = elf_with_notes(form, note(form, 3, "REL\0"s, word(form, 1)));
        for (size_t size = 4; size <= 64; ++size)
            EXPECT_EQ(identify(whole.substr(0, size))->kind, OBJ_ELF) << form.name << size;
        place.put("f", whole);
        const gen_stream_ptr stream = gen_open(place.path("f").c_str(), "rb+");
        const auto put_byte = [&](size_t at, char byte) {
            gen_seek(*stream, static_cast<int64_t>(at), GEN_SEEK_SET);
            gen_write_stream(*stream, &byte, 1);
            gen_seek(*stream, 0, GEN_SEEK_SET);
        };
        for (size_t at = 4; at < whole.size(); ++at) {
            for (const char byte : {'\0', '\xFF'}) {
                put_byte(at, byte);
                EXPECT_EQ(obj_identify(stream.get(), nullptr)->kind, OBJ_ELF) << form.name << at;
            }
            put_byte(at, whole[at]);
        }
        // Empty notes in a section that claims to go on without end.
        std::string endless = whole + std::string(4096, '\0');
        set_field(endless, field::sh_size, UINT64_MAX, 2);
        EXPECT_EQ(identify(endless)->note_flags, 0x01u);
    }
}

TEST_F(objident, extensions_of_files_that_nothing_else_tells) {
    const char* const rows[][2] = {
        {"x.PRO", "13 122"}, {"a.b/x.o.dbp", "13 122"}, {"x.gPro", "13 123"},
        {"x.pro/x", "18 0"}, {"pro", "18 0"},           {nullptr, "18 0"},
    };
    for (const auto& [name, expected] : rows) {
        identify("!<arch>\n"); // sets no target
        EXPECT_EQ(text_of(identify("??", name)).find(expected), 0u) << expected;
    }
    EXPECT_EQ(identify("\x01\x00"s, "x.pro")->kind, OBJ_PROFILE); // before the weak marks
    EXPECT_EQ(identify(coff("\x4C\x01"), "x.pro")->kind, OBJ_COFF);
}

TEST_F(objident, an_archive_damaged_by_carriage_returns_is_reported) {
    const std::string rest =
        "' has had carriage-returns (\\r)\n\tinserted before new-lines (\\n) and is unusable.\n"
        "\tNOTE: This can be caused by some Windows archive managers, which\n"
        "\tcan corrupt binary files unless automatic CR/LF conversion is\n"
        "\texplicitly disabled.\n";
    for (const char* magic : {"!<arch>\r\n", "<aiaff>\r\n", "!<elfa>\r\n", "!<arch64>\r\n"})
        for (const char* name : {"lib.a", static_cast<const char*>(nullptr)}) {
            const child_end end = run_child([&] {
                const objinfo* const info = identify(magic, name);
                if (info->kind == OBJ_UNKNOWN && info->target == 0)
                    return;
                _exit(1);
            });
            std::string text = "objtrim: error: archive file '";
            text.append(name ? name : "<unknown>").append(rest);
            EXPECT_EQ(end, (child_end{child_returned, text}));
        }
}

TEST_F(objident, a_ti_coff_file_is_remembered) {
    std::string elf_file = elf(elf_forms[0], 61454, 0); // the same target, but not COFF
    for (const char* magic : {"\xC2\x00", "\x00\xC2"}) {
        ti_coff = false;
        EXPECT_EQ(identify(elf_file)->target, 131u);
        EXPECT_FALSE(ti_coff);
        EXPECT_EQ(identify(coff({magic, 2}))->target, 131u);
        identify(something_else);
        EXPECT_TRUE(ti_coff);
    }
}

TEST_F(objident, names_instead_of_streams_and_the_predicates) {
    const struct {
        std::string bytes;
        bool identified, is_coff, is_known;
    } rows[] = {
        {coff("\x4C\x01"), true, true, true},
        {pe(coff("\x4C\x01")), true, true, true},
        {"MZ", false, false, false},
        {"!<elfa>\n", true, false, true},
        {coff("\x02\x0B"), true, false, false},
    };
    const std::string name = place.path("named");
    EXPECT_EQ(obj_identify(nullptr, name.c_str()), nullptr) << "there is no such file";
    EXPECT_EQ(obj_identify(nullptr, nullptr), nullptr);
    EXPECT_EQ(archive_magic_kind(nullptr, nullptr), OBJ_MAGIC_NONE);
    for (const auto& row : rows) {
        place.put("named", row.bytes);
        EXPECT_EQ(obj_identify(nullptr, name.c_str()) != nullptr, row.identified);
        EXPECT_EQ(obj_is_coff_family(nullptr, name.c_str()), row.is_coff);
        EXPECT_EQ(obj_is_known_object(nullptr, name.c_str()), row.is_known);
    }
}

} // namespace
