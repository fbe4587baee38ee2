// What identification says of files of every kind, of what it leaves from the file before, and of
// files that are short, damaged, or lie inside another one.
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

// Out of hexadecimal digits; 'text'; ~ for sixteen zeros, % for all of a PE file before the header,
// or = for an ELF file, with its form, machine, flags and type, that has these notes.
std::string bytes_of(const std::string& word, const std::string& notes = "",
                     const std::string& behind = "") {
    uint32_t form = 0, machine = 0, flags = 0, type = 0;
    if (sscanf(word.c_str(), "=%u/%X/%X/%u", &form, &machine, &flags, &type) == 4) {
        std::string file =
            build_elf({elf_forms[form], {{".note.renesas", 1, 0, notes}, {"", 1, 0, behind}}});
        set_field(file, field::e_type, type);
        set_field(file, field::e_machine, machine);
        set_field(file, field::e_flags, flags);
        return file;
    }
    std::string bytes;
    bool is_text = false;
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

    objident() { gen_use_sink(sink); }
    ~objident() override { gen_use_sink(usual); }

    // The record as text: kind, target, machine; class, orders of data and code; symbol size,
    // flags, file type; ! if its archive is called damaged, and what else was said.
    std::string identify(const std::string& bytes, const char* name = nullptr) {
        said.clear();
        const gen_stream_ptr stream = stream_of("before" + bytes, 6);
        const objinfo* const info = obj_identify(history, stream.get(), name);
        EXPECT_EQ(stream->position, 6u);
        if (info == nullptr)
            return "none";
        return words_of("%u %u %X %u%c%c %u %X %u", info->kind, info->target, info->machine,
                        info->class_bits, "lb"[info->big_endian], "lb"[info->code_big_endian],
                        info -> sym_entry_size, info -> flags, info -> file_type) +
               (said.starts_with("error: archive file 'a' has had") ? "!" : said);
    }
    // In each row: the bytes, the record, and perhaps a name. In front of each comes another file.
    void check(const std::string& before, const std::string& table) {
        for (const words& row : rows_of(table)) {
            identify(before);
            EXPECT_EQ(identify(bytes_of(row[0]), row[2].c_str()), row[1]) << row[0];
            place.put("named", bytes_of(row[0]));
            EXPECT_EQ(obj_is_coff_family(history, nullptr, "named") +
                          obj_is_known_object(history, nullptr, "named"),
                      "0121222010001000110"[history.latest.kind] - '0')
                << row[0];
        }
    }
};

// A machine's number and its target. Of an ELF machine whose flags count: which bits do, and what
// they are. Of a COFF machine, or with a capital of a.out, the number is its bytes in the order of
// the letter; behind it stands the machine, unless it is the same number.
TEST_F(objident, machines) {
    const words rows = split(R"(
        1:80 2:56 3:54 4:82 6:55 8:62 10:59 11:133 18:57 19:83 20:64 21:65 23:132 31:124 34:124
        36:94 37:63 38:60 39:98 40:69 43:56 45:116 50:119 51:93 52:82 54:61 57:103 58:108 60:104
        62:129 63:112 77:109 78:111 79:110 87:94 88:115 93:117 102:114 106:124 118:134 121:118
        183:137 61452:135 61453:127 61454:131 61455:139 42:70/FF800000/0 42:76/FF800000/80000000
        42:71/FF800000/40000000 42:72/FF800000/20000000 42:73/FF800000/10000000
        42:74/FF800000/8000000 42:75/FF800000/4000000 42:77/FF800000/2000000
        42:78/FF800000/1000000 42:79/FF800000/800000 44:84/F0F80000/0 44:85/F0F80000/80000000
        44:86/F0F80000/40000000 44:87/F0F80000/20000000 44:88/F0F80000/800000
        44:89/F0F80000/400000 44:90/F0F80000/200000 44:91/F0F80000/100000 44:92/F0F80000/80000
        122:130/FD/1 122:130/FE/2 122:130/FF/4 243:140/80000000/0 243:141/80000000/80000000
        l0144:1 l0145:2 l0146:3 l0147:4 l014A:5 l014C:6 b1133:9 l70C2:11 l70C3:12 l70C4:13 b0500:16
        b71C2:14 l71C3:15 b0165:17 l0166:18 l0162:26 l6201:27=162 l0183:28 b0260:29 b01C3:32
        b01C4:32 b0150:34 b0151:35 b0152:36 b0088:37 b0089:38=88 l0A00:102=A l0184:28 lC001:102=1C0
        l0284:28 b0268:34 b0266:17 b0366:17 b0466:22 lC201:102=1C2 l00C2:131 b00C2:131
        L00000107:44 L00640107:43 B01020107:45 B01020108:45 B0102010B:45 B80020107:46 B00020107:47
        B01030107:10 B0103010B:10=1030107 B81030107:42 B8103010B:42 B00000107:48 B01000107:49
        B01010107:50 B00010107:51)");
    for (const std::string& row : rows) {
        char order = ' ';
        uint32_t number = 0, target = 0, mask = 0, value = 0, counting = 0;
        if (sscanf(row.c_str(), "%u:%u/%X/%X", &number, &target, &mask, &value) > 0) {
            for (uint32_t bit = 1; bit != 0; bit <<= 1)
                counting |= obj_elf_target(number, value ^ bit) != target ? bit : 0;
            EXPECT_EQ(counting, mask) << row;
            continue;
        }
        sscanf(row.c_str(), "%c%X:%u=%X", &order, &number, &target, &value);
        const bool is_aout = order < 'a', is_big = (order | 32) == 'b';
        EXPECT_EQ(identify(::number(number, is_aout ? 4 : 2, is_big)),
                  words_of(is_aout ? "1 %u %X 32%c%c 12 0 0" : "2 %u %X 32%c%c 18 FFFFFFFF 2",
                           target, value != 0 ? value : number, order | 32, order | 32))
            << row;
    }
    uint32_t tool_version = 0;
    for (const uint32_t target : {0, 99, 100, 101, 105, 106, 107, 128, 0})
        EXPECT_EQ(obj_tooldata_target(tool_version++), target) << tool_version;
}

TEST_F(objident, kinds_and_what_stays_from_the_file_before) {
    // COFF: flags are sign-extended, and say the type. PE: machine number and symbol size stay
    // those of "MZ", and so does the target where the machine has none. An archive that is imitated
    // keeps even the kind. A short file has 0xFF for what it lacks, an empty one zeros.
    check(bytes_of("4C01~0400"), R"(
        > 6486~0180 | 2 138 8664 64ll 18 FFFF8001 0 > 0160~0002 | 2 31 160 32bb 24 2 2
        > 01DF~0480 | 5 33 1DF 32bb 18 480 1 > C200~0020 | 2 131 C2 32ll 18 2000 1
        > 4C01~0400 | 2 6 14C 32ll 18 4 1 | x.pro > %4C01~0220 | 6 6 5A4D 32ll 18 2002 3
        > %0160~0001 | 6 31 5A4D 32bb 18 1 0 > %0000~0300 | 6 6 5A4D 32ll 18 3 2
        > 6001 | 2 30 160 32ll 24 FFFFFFFF 2 > 020B | 7 39 20B 32bb 18 FFFFFFFF 2
        > 0B01 | 1 53 10B 32ll 18 FFFFFFFF 2 > 0D01 | 2 30 1D0 32ll 24 FFFFFFFF 2
        > 7F'ORV'0000000100000008 | 18 0 4F7F 0ll 18 4 0
        > 7F'ORV'0000000900000007 | 9 128 7 0ll 18 4 5 > '!<arch'3E0A | 8 0 3C21 0ll 18 4 1
        > '<aiaff'3E0A | 12 0 613C 0ll 18 4 1 > '!<elfa'3E0A | 16 0 3C21 0ll 18 4 1
        > '<aia' | 2 0 613C 0ll 18 4 1 > '!<arch64'3E0A | 17 0 3C21 0ll 18 4 1
        > '!<arch'3E09 | 2 0 3C21 0ll 18 4 1 > '!<arch'3E0D0A | 18 0 3C21 0ll 18 4 1! | a
        > '!<elfa'3E0D0A | 18 0 3C21 0ll 18 4 1! | a > '<aiaff'3E0D0A | 18 0 613C 0ll 18 4 1! | a
        > '!<arch64'3E0D0A | 18 0 3C21 0ll 18 4 1! | a > 0000FFFF | 11 0 0 0ll 18 4 1
        > 00000258 | 10 0 0 0ll 18 4 1 > 0000000020000000FFFF0000FFFF0000~ | 14 125 14C 0ll 18 4 1
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

// In each row the notes, their flags, and, if they go on behind the section, how much is inside.
TEST_F(objident, notes_are_read_without_padding) {
    for (const words& row : rows_of(R"(
    > 00000004000000040000000352454C0000000001 | 1 > 00000004000000040000000352454C0000000002 | 1
    > 00000004000000040000000352454C0000000003 | 1 > 00000004000000040000000B52454C0000000001 | 32
    > 00000004000000040000000452454C0000000001 | 2 > 00000004000000040000000472656C0000000002 | 16
    > 00000004000000040000000352454C0000000004 | 0 > 0000000400000004000000034C45520000000001 | 0
    > 00000004000000040000000352454C0000000001 | 1 | 12
    > 00000004000000040000000352454C0000000001 | 0 | 11
    > 0000000300000007000000036E6F000000000000000700000004000000040000000B52454C0000000001 | 32)")) {
        const std::string notes = bytes_of(row[0]);
        const size_t inside = row[2].empty() ? notes.size() : std::stoul(row[2]);
        identify(bytes_of("=3/24/0/2", notes.substr(0, inside), notes.substr(inside)));
        EXPECT_EQ(history.latest.note_flags, std::stoul(row[1])) << row[0];
    }
}

} // namespace
