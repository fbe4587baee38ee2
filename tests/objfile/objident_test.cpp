// What identification says of files of every kind, of what it leaves from the file before, and of
// files that are short, damaged, or lie inside another one.
#include <cstdio>
#include <tuple>

#include "objfile/objident.h"
#include "support/child.h"
#include "support/elf_builder.h"

using namespace std::string_literals;

namespace {

struct objident : placed_test {
    obj_history history;

    const objinfo* identify(const std::string& bytes, const char* name = nullptr,
                            const std::string& before = "") {
        const gen_stream_ptr stream =
            stream_of(before + bytes, static_cast<int64_t>(before.size()));
        const objinfo* const info = obj_identify(history, stream.get(), name);
        EXPECT_EQ(stream->position, before.size());
        return info;
    }
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

std::string pe(const std::string& coff_header) {
    return "MZ" + std::string(58, 'x') + "\x40\0\0\0"s + "PE\0\0"s + coff_header;
}

// What it says of the fields that the next file does not fill: "2 6 14C; . ll 18 FFFF8003 2".
const std::string something_else = coff("\x4C\x01", "\x03\x80");

TEST_F(objident, kinds_and_what_stays_from_the_file_before) {
    const struct {
        std::string bytes;
        const char* expected;
        const char* name = nullptr;
    } rows[] = {
        // COFF: flags are sign-extended, and say the type.
        {coff("\x64\x86", "\x01\x80"), "2 138 8664; 64 ll 18 FFFF8001 0"},
        {coff("\x01\x60", "\0\2"s), "2 31 160; 32 bb 24 2 2"},
        {coff("\x01\xDF"), "5 33 1DF; 32 bb 18 400 1"},
        // PE: machine number and symbol size stay those of "MZ".
        {pe(coff("\x4C\x01", "\x02\x20")), "6 6 5A4D; 32 ll 18 2002 3"},
        {pe(coff("\x01\x60", "\0\1"s)), "6 31 5A4D; 32 bb 18 1 0"},
        // a.out, tool data by signature, a Windows resource, an import header.
        {"\x07\x01\x64\x00"s, "1 43 640107; 32 ll 12 0 0"},
        {"\x7FORV\0\0\0\x09\0\0\0\x07"s, "9 128 7; 0 ll 18 FFFF8003 5"},
        {"\x7FORV\0\0\0\x01\0\0\0\x08"s, "18 0 4F7F; 0 ll 18 FFFF8003 0"},
        {"\0\0\0\0\x20\0\0\0\xFF\xFF\0\0\xFF\xFF\0\0"s + std::string(16, '\0'),
         "14 125 14C; 0 ll 18 FFFF8003 2"},
        {"\x00\x00\xFF\xFF"s, "11 0 0; 0 ll 18 FFFF8003 2"},
        // Archives; an imitated magic keeps even the kind.
        {"!<arch>\n", "8 0 3C21; 0 ll 18 FFFF8003 2"},
        {"!<arcade>", "2 0 3C21; 0 ll 18 FFFF8003 2"},
        // By extension, if nothing else tells.
        {"??", "13 122 14C; 0 ll 0 0 0", "a.b/x.o.dbp"},
        {coff("\x4C\x01"), "2 6 14C; 32 ll 18 4 1", "x.pro"},
        // Short files: four zeros if there is nothing, else 0xFF for what lacks.
        {"", "18 6 14C; 0 ll 0 0 0"},
        {"\x4C\x01", "2 6 14C; 32 ll 18 FFFFFFFF 2"},
    };
    for (const auto& row : rows)
        for (const char* before : {"", "the archive before it"}) {
            identify(something_else);
            EXPECT_EQ(text_of(identify(row.bytes, row.name, before)), row.expected) << before;
        }
}

TEST_F(objident, weak_marks_count_only_where_no_target_is_left_from_the_file_before) {
    const std::pair<std::string, const char*> rows[] = {
        {"\x01\x02??", "9 121 3C21; 0 ll 0 0 5"},
        {"\x05\x04??", "18 0 405; 0 ll 0 0 0"},
        {"", "18 0 0; 0 ll 0 0 0"},
        {"\x02\x10\x01\x08", "15 113 108; 32 bb 0 0 2"},
    };
    for (const auto& [bytes, expected] : rows) {
        identify(something_else);
        EXPECT_EQ(text_of(identify(bytes)), "18 6 14C; 0 ll 0 0 0");
        identify("!<arch>\n"); // sets no target
        EXPECT_EQ(text_of(identify(bytes)), expected);
    }
}

std::string elf(const elf_form& form, uint16_t machine, uint32_t flags, uint16_t type,
                const std::string& notes = "") {
    const draft_section section = {.name = ".note.renesas", .content = notes};
    std::string file = build_elf({.form = form, .sections = {section}, .type = type});
    set_field(file, field::e_machine, machine);
    set_field(file, field::e_flags, flags);
    return file;
}

TEST_F(objident, elf_machines_flags_and_orders) {
    const auto& [little_64, little_32, big_64, big_32] = elf_forms;
    const std::tuple<elf_form, uint16_t, uint32_t, uint16_t, const char*> rows[] = {
        {little_64, 62, 0, 1, "3 129 3E; 64 ll 0 0 1"},
        {big_32, 8, 7, 5, "3 62 8; 32 bb 0 7 0"},
        {big_64, 40, 0x00800000, 2, "3 69 28; 64 bl 0 800000 2"},
        {little_32, 40, 0x00800000, 2, "3 69 28; 32 lb 0 800000 2"},
        {big_32, 42, 0x03000000, 2, "3 0 2A; 32 bb 0 3000000 2"},
        {big_32, 44, 0x01000000, 2, "3 84 2C; 32 bl 0 1000000 2"},
        {little_64, 243, 0, 2, "3 141 F3; 64 ll 0 80000000 2"},
        {little_32, 243, 0x80000015, 2, "3 140 F3; 32 ll 0 15 2"},
    };
    for (const auto& [form, machine, flags, type, expected] : rows)
        EXPECT_EQ(text_of(identify(elf(form, machine, flags, type))), expected);
}

constexpr uint16_t machine_with_notes = 36;
const std::string note_head = "\0\0\0\4\0\0\0\4\0\0\0"s; // lengths of name and value; type
const std::string note_3 = note_head + "\3REL\0\0\0\0\1"s;

TEST_F(objident, notes_are_read_without_padding) {
    const std::string note_4 = note_head + "\4rel\0\0\0\0\2"s;
    const std::string note_11 = note_head + "\x0BREL\0\0\0\0\1"s;
    const std::string odd = "\0\0\0\3\0\0\0\7\0\0\0\3odd7 bytes"s;
    const std::string endless = "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0\0\0\3"s;
    const std::tuple<uint16_t, std::string, uint32_t> rows[] = {
        {machine_with_notes, note_4 + note_11, OBJ_NOTE_TYPE4_2 | OBJ_NOTE_TYPE11},
        {machine_with_notes, odd + note_3, OBJ_NOTE_TYPE3},
        {machine_with_notes, endless + note_3, 0},
        {62, note_3, 0},
    };
    for (const auto& [machine, notes, expected] : rows)
        EXPECT_EQ(identify(elf(elf_forms[3], machine, 0, et::exec, notes))->note_flags, expected);
}

TEST_F(objident, damaged_elf_files_end_without_a_word) {
    const std::string whole = elf(elf_forms[3], machine_with_notes, 0, et::exec, note_3);
    for (size_t at = 4; at < whole.size(); ++at) {
        EXPECT_EQ(identify(whole.substr(0, at))->kind, OBJ_ELF) << at;
        for (const char byte : {'\0', '\xFF'})
            EXPECT_EQ(identify(std::string(whole).replace(at, 1, 1, byte))->kind, OBJ_ELF) << at;
    }
}

TEST_F(objident, names_instead_of_streams_and_the_predicates) {
    const std::tuple<std::string, bool, bool> rows[] = {
        {coff("\xC2\0"s), true, true},
        {"MZ", false, false},
        {"!<elfa>\n", false, true},
    };
    for (const auto& [bytes, is_coff, is_known] : rows) {
        place.put("named", bytes);
        EXPECT_EQ(obj_is_coff_family(history, nullptr, "named"), is_coff);
        EXPECT_EQ(obj_is_known_object(history, nullptr, "named"), is_known);
    }
    EXPECT_EQ(obj_identify(history, nullptr, "none"), nullptr);
    EXPECT_TRUE(history.ti_coff); // which the first of them was
}

} // namespace
