// What identification says of files of every kind, of what it leaves from the file before, and of
// files that are short, damaged, or lie inside another one.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "objfile/objident_tables.h"
#include "shared/genmessage.h"
#include "support/child.h"
#include "support/elf_builder.h"
#include "support/table.h"

using namespace std::string_literals;

namespace {

std::string words_of(const char* form, auto... values) {
    char text[100];
    snprintf(text, sizeof text, form, values...);
    return text;
}

// A row is a machine's number and its target. Of an ELF machine whose flags count: which bits do,
// and what they are. Of a COFF or a.out machine the number is its bytes, in the order of the letter
// before it; behind it is what is unlike others: the machine unless it is the same number, the kind
// unless it is COFF, the size of a symbol unless it is 18. The rest are versions of tool data.
TEST(objident_tables, have_these_rows) {
    std::set<std::string> found;
    for (uint32_t machine = 0; machine < 0x10000; ++machine)
        for (uint32_t i = 0; i < (machine < 256 ? 37 : 1); ++i) { // 0 to 4, and each bit
            const uint32_t value = i < 5 ? i : 1u << (i - 5),
                           target = obj_elf_target(machine, value);
            uint32_t mask = 0;
            for (uint32_t bit = 1; target != 0 && bit != 0; bit <<= 1)
                mask |= obj_elf_target(machine, value ^ bit) != target ? bit : 0;
            if (target != 0 && (value & ~mask) == 0)
                found.insert(
                    words_of(mask ? "%u:%u/%X/%X" : "%u:%u", machine, target, mask, value));
        }
    const auto add_row = [&](const auto& row, int width, uint32_t kind, uint32_t symbol_size) {
        uint32_t number = 0;
        for (size_t i = 0; i < sizeof row.bytes; ++i)
            number = number << 8 | row.bytes[row.big_endian ? i : sizeof row.bytes - 1 - i];
        found.insert(words_of("%c%0*X:%u", "lb"[row.big_endian], width, number, row.target) +
                     (row.machine == number ? "" : words_of("=%X", row.machine)) +
                     (kind == OBJ_COFF ? "" : words_of("/%u", kind)) +
                     (symbol_size == 18 ? "" : words_of("*%u", symbol_size)));
    };
    for (uint32_t i = 0; i < 0x10000; ++i)
        if (const auto* row = obj_find_coff_row({uint8_t(i), uint8_t(i >> 8)}))
            add_row(*row, 4, row->kind, row->sym_entry_size);
    const auto byte = [](size_t i) {
        return uint8_t("\0\1\2\3\7\x8\xB\x64\x80\x81\x9\xFF"[i % 12]);
    };
    for (size_t i = 0; i < 12 * 12 * 12 * 12; ++i)
        if (const auto* row =
                obj_find_aout_row({byte(i), byte(i / 12), byte(i / 144), byte(i / 1728)}))
            add_row(*row, 8, OBJ_COFF, 18);
    for (uint32_t version = 0; version < 20; ++version)
        if (const uint32_t target = obj_tooldata_target(version))
            found.insert(words_of("v%u:%u", version, target));
    const std::set<std::string> expected = split_set(R"(
        1:80 2:56 3:54 4:82 6:55 8:62 10:59 11:133 18:57 19:83 20:64 21:65 23:132 31:124 34:124
        36:94 37:63 38:60 39:98 40:69 43:56 45:116 50:119 51:93 52:82 54:61 57:103 58:108 60:104
        62:129 63:112 77:109 78:111 79:110 87:94 88:115 93:117 102:114 106:124 118:134 121:118
        183:137 61452:135 61453:127 61454:131 61455:139 42:70/FF800000/0 42:76/FF800000/80000000
        42:71/FF800000/40000000 42:72/FF800000/20000000 42:73/FF800000/10000000
        42:74/FF800000/8000000 42:75/FF800000/4000000 42:77/FF800000/2000000
        42:78/FF800000/1000000 42:79/FF800000/800000 44:84/F0F80000/0 44:85/F0F80000/80000000
        44:86/F0F80000/40000000 44:87/F0F80000/20000000 44:88/F0F80000/800000
        44:89/F0F80000/400000 44:90/F0F80000/200000 44:91/F0F80000/100000 44:92/F0F80000/80000
        122:130/FD/1 122:130/FE/2 122:130/FF/4 243:140/80000000/0
        243:141/80000000/80000000
        l0144:1 l0145:2 l0146:3 l0147:4 l014A:5 l014C:6 l8664:138 l5A4D:6/6 b1133:9 l70C2:11
        l70C3:12 l70C4:13 b0500:16 b71C2:14 l71C3:15 b0165:17 l0166:18 l0162:26 l6201:27=162
        l0183:28 b0260:29 l0160:30*24 b0160:31*24 b01C3:32 b01C4:32 b0150:34 b0151:35 b0152:36
        b0088:37 b0089:38=88 b020B:39/7 b01DF:33/5 l010B:53/1 l0A00:102=A l010D:30=1D0*24 l0184:28
        lC001:102=1C0 l0284:28 b0268:34 b0266:17 b0366:17 b0466:22 lC201:102=1C2 l00C2:131 b00C2:131
        l00000107:44 l00640107:43 b01020107:45 b01020108:45 b0102010B:45 b80020107:46 b00020107:47
        b01030107:10 b0103010B:10=1030107 b81030107:42 b8103010B:42 b00000107:48 b01000107:49
        b01010107:50 b00010107:51 v1:99 v2:100 v3:101 v4:105 v5:106 v6:107 v7:128)");
    words odd; // only in the tables, or only here
    std::ranges::set_symmetric_difference(found, expected, std::back_inserter(odd));
    EXPECT_EQ(odd, words());
}

std::string elf(size_t form, uint32_t machine, uint32_t flags, uint32_t type,
                const std::string& notes = "", const std::string& behind = "") {
    std::string file =
        build_elf({elf_forms[form], {{".note.renesas", 1, 0, notes}, {"", 1, 0, behind}}});
    set_field(file, field::e_type, type);
    set_field(file, field::e_machine, machine);
    set_field(file, field::e_flags, flags);
    return file;
}

// Out of hexadecimal digits; 'text'; ~ for sixteen zeros, % for all of a PE file before the header,
// or = for an ELF file, with its form, machine, flags and type.
std::string bytes_of(const std::string& word) {
    std::string bytes;
    bool is_text = false;
    uint32_t form = 0, machine = 0, flags = 0, type = 0;
    if (sscanf(word.c_str(), "=%u/%X/%X/%u", &form, &machine, &flags, &type) == 4)
        return elf(form, machine, flags, type);
    for (size_t i = 0; i < word.size(); ++i)
        if (word[i] == '\'')
            is_text = !is_text;
        else if (is_text)
            bytes += word[i];
        else if (word[i] == '~')
            bytes.append(16, '\0');
        else if (word[i] == '%')
            bytes += "MZ" + std::string(58, 'x') + "\x40\0\0\0PE\0\0"s;
        else
            bytes += static_cast<char>(std::stoul(word.substr(i++, 2), nullptr, 16));
    return bytes;
}

struct objident : placed_test {
    obj_history history;
    std::string said;
    gen_message_sink sink{.gathered = &said};
    gen_message_sink& usual = gen_sink();
    std::string container = "the archive before it";

    objident() { gen_use_sink(sink); }
    ~objident() override { gen_use_sink(usual); }

    // The record as text: kind, target, machine; class, orders of data and code; symbol size,
    // flags, file type.
    std::string identify(const std::string& bytes, const char* name = nullptr) {
        const gen_stream_ptr stream = stream_of(container + bytes, int64_t(container.size()));
        const objinfo* const info = obj_identify(history, stream.get(), name);
        EXPECT_EQ(stream->position, container.size());
        const objinfo& found = history.latest;
        const char data = "lb"[found.big_endian], code = "lb"[found.code_big_endian];
        return !info ? "none"
                     : words_of("%u %u %X %u%c%c %u %X %u", found.kind, found.target, found.machine,
                                found.class_bits, data, code, found.sym_entry_size, found.flags,
                                found.file_type);
    }
    // In each row: the bytes, the record, and perhaps a name. In front of each comes another file.
    void check(const std::string& before, const std::string& table) {
        for (const words& row : rows_of(table)) {
            const std::string bytes = bytes_of(row[0]);
            identify(before);
            said.clear();
            EXPECT_EQ(identify(bytes, row[2].c_str()), row[1]) << row[0];
            EXPECT_EQ(said.substr(0, 36),
                      bytes.ends_with("\r\n") ? "error: archive file 'some.a' has had" : "")
                << row[0];
            place.put("named", bytes);
            const int is_coff = obj_is_coff_family(history, nullptr, "named");
            const int is_known = obj_is_known_object(history, nullptr, "named");
            EXPECT_EQ(is_coff + is_known, "0121222010001000110"[history.latest.kind] - '0')
                << row[0];
        }
    }
};

TEST_F(objident, kinds_and_what_stays_from_the_file_before) {
    // COFF: flags are sign-extended, and say the type. PE: machine number and symbol size stay
    // those of "MZ", and so does the target where the machine has none. An archive that is imitated
    // keeps even the kind. A short file has 0xFF for what it lacks, an empty one zeros.
    check(bytes_of("4C01~0380"), R"(
        > 6486~0180 | 2 138 8664 64ll 18 FFFF8001 0 > 0160~0002 | 2 31 160 32bb 24 2 2
        > 01DF~0400 | 5 33 1DF 32bb 18 400 1 > C200~0020 | 2 131 C2 32ll 18 2000 1
        > 4C01~0400 | 2 6 14C 32ll 18 4 1 | x.pro > 4C01 | 2 6 14C 32ll 18 FFFFFFFF 2
        > %4C01~0220 | 6 6 5A4D 32ll 18 2002 3 > %0160~0001 | 6 31 5A4D 32bb 18 1 0
        > %0000~0300 | 6 6 5A4D 32ll 18 3 2 > 07016400 | 1 43 640107 32ll 12 0 0
        > 0103010B | 1 10 1030107 32bb 12 0 0
        > 7F'ORV'0000000100000008 | 18 0 4F7F 0ll 18 FFFF8003 0
        > 7F'ORV'0000000900000007 | 9 128 7 0ll 18 FFFF8003 5
        > '!<arch'3E0A | 8 0 3C21 0ll 18 FFFF8003 2 > '<aiaff'3E0A | 12 0 613C 0ll 18 FFFF8003 2
        > '!<elfa'3E0A | 16 0 3C21 0ll 18 FFFF8003 2 > '<aia' | 2 0 613C 0ll 18 FFFF8003 2
        > '!<arch64'3E0A | 17 0 3C21 0ll 18 FFFF8003 2 > '!<arch'3E09 | 2 0 3C21 0ll 18 FFFF8003 2
        > '!<arch'3E0D0A | 18 0 3C21 0ll 18 FFFF8003 2 | some.a
        > '!<elfa'3E0D0A | 18 0 3C21 0ll 18 FFFF8003 2 | some.a
        > '<aiaff'3E0D0A | 18 0 613C 0ll 18 FFFF8003 2 | some.a
        > '!<arch64'3E0D0A | 18 0 3C21 0ll 18 FFFF8003 2 | some.a
        > 0000FFFF | 11 0 0 0ll 18 FFFF8003 2 > 00000258 | 10 0 0 0ll 18 FFFF8003 2
        > 0000000020000000FFFF0000FFFF0000~ | 14 125 14C 0ll 18 FFFF8003 2
        > 0000000020000000FFFF0000FFFF000001~ | 18 6 14C 0ll 0 0 0
        > '??' | 13 122 14C 0ll 0 0 0 | a.b/x.o.dbp > '??' | 13 122 14C 0ll 0 0 0 | x.PRO
        > '??' | 13 123 14C 0ll 0 0 0 | x.gpro > '!<aiaff'3E0A | 18 6 14C 0ll 0 0 0
        > '' | 18 6 14C 0ll 0 0 0 > 0100FFFF | 18 6 14C 0ll 0 0 0)");
    // Code may have another order than data, and the class may lie in the flags.
    check("", R"(
        > =0/3E/0/1 | 3 129 3E 64ll 0 0 1 > =0/3E/0/4 | 3 129 3E 64ll 0 0 4
        > =3/8/7/5 | 3 62 8 32bb 0 7 0 > =2/28/800000/2 | 3 69 28 64bl 0 800000 2
        > =1/28/800000/2 | 3 69 28 32lb 0 800000 2 > =3/B7/0/3 | 3 137 B7 32bl 0 0 3
        > =3/28/FF7FFFFF/2 | 3 69 28 32bb 0 FF7FFFFF 2 > =3/2A/3000000/2 | 3 0 2A 32bb 0 3000000 2
        > =3/2C/1000000/2 | 3 84 2C 32bl 0 1000000 2 > =0/F3/0/2 | 3 141 F3 64ll 0 80000000 2
        > =1/F3/80000015/2 | 3 140 F3 32ll 0 15 2)");
    // Weak marks count where no target is left from the file before.
    check("!<arch>\n", R"(
        > 0100FFFF | 9 120 3C21 0ll 0 0 5 > 0002FFFF | 9 120 3C21 0ll 0 0 5
        > 0404FFFF | 9 120 3C21 0ll 0 0 5 > 0102FFFF | 9 121 3C21 0ll 0 0 5
        > 'INT'00 | 9 126 3C21 0ll 0 0 5 > 'VLG'00 | 9 142 3C21 0ll 0 0 5
        > 0504FFFF | 18 0 405 0ll 0 0 0 > '' | 18 0 0 0ll 0 0 0 > '?' | 18 0 FF3F 0ll 0 0 0
        > 02100108 | 15 113 108 32bb 0 0 2)");
    EXPECT_EQ(obj_identify(history, nullptr, "none"), nullptr);
    EXPECT_TRUE(history.ti_coff);
}

// Of each note the type, the value, and, if they are unlike others, the name and the size of the
// value. A note is the section's if its head is.
TEST_F(objident, notes_are_read_without_padding) {
    for (const words& row : rows_of(R"(
        > 3/0 | 0 > 3/1 | 1 > 3/2 | 1 > 3/3 | 1 > 3/4 | 0 > 4/0 | 0 > 4/1 | 2 > 4/2/rel | 16
        > 4/3 | 0 > 11/0 | 0 > 11/1 | 32 > 11/2 | 0 > 5/1 | 0 > 3/1/REL/8 | 0 > 3/1/RE | 0
        > 3/1/LER | 0 > 3/7/no/7 4/2 3/1/more 11/1 | 48)")) {
        std::string notes;
        for (const std::string& text : split(row[0])) {
            uint32_t type = 0, value = 0, size = 4;
            char name[8] = "REL";
            sscanf(text.c_str(), "%u/%u/%7[A-Za-z]/%u", &type, &value, name, &size);
            notes += number(strlen(name) + 1, 4, true) + number(size, 4, true) +
                     number(type, 4, true) + std::string(name, strlen(name) + 1) +
                     number(value, size, true);
        }
        for (const size_t inside : {size_t{11}, size_t{12}, notes.size()}) {
            identify(elf(3, 36, 0, et::exec, notes.substr(0, inside), notes.substr(inside)));
            const bool counts =
                inside == notes.size() || (inside == 12 && row[0].find(' ') == row[0].npos);
            EXPECT_EQ(history.latest.note_flags, counts ? std::stoul(row[1]) : 0) << row[0];
        }
    }
    identify(elf(3, 62, 0, et::exec, bytes_of("00000004000000040000000352454C0000000001")));
    EXPECT_EQ(history.latest.note_flags, 0u);
}

} // namespace
