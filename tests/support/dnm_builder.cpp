// Fields as rows, and the encoder that puts their values behind each other.
#include "support/dnm_builder.h"

#include <sstream>
#include <utility>

#include "support/field_writer.h"

namespace {

// Fields in file order: name, kind, first version, sample. Kinds: a digit for a fixed integer of so
// many bytes; a(ddress), d(istance from the field before), f(lags), i (signed number),
// l(ong number), n(umber), o(ffset), s(tring), v (signed varint).
const char* const head_rows =
    "magic 4 0 2135904854 prologue 4 0 1 kind 4 0 3 compressed 4 0 1 encoding 1 0 4 "
    "descriptors 1 0 0 level 1 0 2 reserved 1 0 0 version 4 0 43 "
    "string1 s 16 1627389952 string2 s 20 1644167168 string3 s 16 1660944384 string4 s 21 0 "
    "mode 1 0 4 endian 1 0 1 abc 3 0 66051 d 1 16 13 addressA a 0 4660 addressB a 13 -1 e 1 19 14 "
    "format 1 19 3 type 1 19 2 f 1 19 15 ghij 4 25 67438087 text 1 25 2 data 1 32 32 "
    "klm 3 25 526860 n 1 29 23 abi 1 29 7 mangle 1 29 6 o 1 29 24 word1 4 0 4059231220 "
    "word2 4 22 26 word3 4 22 27 word4 4 31 28 encodingType 1 31 1 flags 1 31 29 pq 2 31 12337 "
    "word5 4 31 32 word6 4 31 33 tables 1 0 36 ";
const char* const entry_rows = "max n 0 200 parameter n 0 20 marks 2 0 258 ";
const char* const section_rows =
    "first i 0 -1 second d 0 300 address1 a 0 4660 address2 a 0 -1 offset o 0 2271560481 "
    "number v 0 -77 kind 1 0 42 index1 i 24 -1 index2 i 24 5 index3 i 30 7000 flags f 0 255 "
    "second_offset o 34 1024 word 4 34 4059231220 ";

// Those that exist in a version.
void for_each_row(const char* rows, int64_t version, const auto& visit) {
    std::istringstream words(rows);
    std::string name;
    char kind = 0;
    for (int64_t first = 0, sample = 0; words >> name >> kind >> first >> sample;)
        if (version >= first)
            visit(name, kind, sample);
}

// With the codings of what is not a fixed integer.
struct encoder : field_writer {
    int64_t version = 0, mode = 0, compressed = 0;

    void fixed(int64_t value, int64_t width) {
        bytes += number(static_cast<uint64_t>(value), static_cast<size_t>(width), true);
    }
    void groups(int64_t value, bool is_signed) {
        for (int64_t rest = 1; rest != 0 && rest != -1; value >>= 7) {
            rest = value >> (is_signed ? 6 : 7);
            fixed((value & 0x7F) | (rest == 0 || rest == -1 ? 0 : 0x80), 1);
        }
    }
    void field(char kind, int64_t value, int64_t before) {
        if (kind == 'o')
            kind = version >= 40 ? 'l' : '4';
        if (kind == 'f')
            kind = version >= 30 ? 'n' : '1';
        if (kind == 's' || (kind == 'a' && mode == 66))
            field('n', kind == 's' ? 4 * (value != 0) : value >> 16 & 0xFFFF, 0);
        if (kind == 's')
            fixed(value, value != 0 ? 4 : 0);
        else if (kind == 'a')
            fixed(value, mode == 66 ? 2 : mode == 2 || mode == 8 ? mode : 4);
        else if (kind <= '8' || compressed == 0)
            fixed(value, kind <= '8' ? kind - '0' : kind == 'l' ? 8 : 4);
        else
            groups(kind == 'd' ? value - before : value + (kind == 'i'),
                   kind == 'd' || kind == 'v');
    }
    void record(const char* rows, dnm_fields values) {
        int64_t before = 0;
        for_each_row(rows, version, [&](const std::string& name, char kind, int64_t) {
            field(kind, values[name], std::exchange(before, values[name]));
        });
    }
    void head(dnm_file file) {
        record(head_rows, file.head);
        for (int64_t i = 0; i < file.head["tables"]; ++i)
            fixed(file.offsets[i], version >= 40 ? 8 : 4);
        for (int64_t i = 0; i < file.head["tables"]; ++i)
            record(entry_rows, file.entries[i]);
    }
};

dnm_fields samples(const char* rows, int version, int64_t divisor = 1) {
    dnm_fields values;
    for_each_row(rows, version, [&](const std::string& name, char, int64_t sample) {
        values[name] = sample / divisor;
    });
    return values;
}

} // namespace

dnm_file sample_dnm(int version, bool filled, int mode, bool compressed) {
    dnm_file file = {samples(head_rows, version)};
    file.head["version"] = version;
    file.head["compressed"] = compressed;
    file.head["encoding"] = file.head["mode"] = mode;
    file.head["level"] = version >= 27 ? 2 : 0;
    for (int64_t divisor : {1, 2, 3})
        file.sections.push_back(samples(section_rows, version, divisor));
    file.sections[1]["offset"] *= version >= 40 ? 0x10000 : 1;
    file.sections[2]["second"] = -300000;
    for (int64_t i = 0, table = 0; filled && i < 36; ++i, table = 7 * i % 36) {
        file.entries[table] = samples(entry_rows, version);
        if (table != 1 && table != 7)
            file.bytes[table] = filler(static_cast<size_t>(3 + i), static_cast<unsigned>(i));
        if (table != 8)
            file.order.push_back(table);
        if (table == 7)
            file.order.push_back(8); // and 7, which has no bytes of its own, has those of 8
    }
    file.tail = filled ? "tail" : "";
    file.entries[1]["max"] = 3;
    file.entries[29]["max"] = filled ? 2 : 0;
    return file;
}

dnm_file in_written_order(dnm_file file) {
    file.order = {0,  1,  29, 2,  17, 18, 3,  4,  5,  6,  7,  8,  9,  10, 11, 16, 19, 21,
                  22, 23, 12, 13, 28, 27, 14, 15, 20, 24, 26, 25, 30, 31, 32, 34, 35, 33};
    return file;
}

std::string build_dnm(dnm_file file) {
    encoder head = {{}, file.head["version"], file.head["mode"], file.head["compressed"]};
    encoder unplaced = head, sections = head;
    unplaced.head(file);
    for (const dnm_fields& section : file.sections)
        sections.record(section_rows, section);
    file.bytes[1] = sections.bytes + file.tail;
    std::string content;
    for (int64_t i : file.order.empty() ? std::vector<int64_t>{1} : file.order) {
        file.offsets.emplace(i, unplaced.bytes.size() + content.size());
        content += file.bytes[i];
    }
    head.head(file);
    return head.bytes + content;
}
