// Identification as a list of steps, one for each format, from the surest mark to the weakest: the
// first step that knows the file fills the record.
//
// Bytes past the end of the file read as 0xFF and are not checked for, so that a short file is
// judged by what it has and an error never comes of it.
#include "objfile/objident.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>

#include "objfile/elffield.h"
#include "objfile/elfhead.h"
#include "objfile/objident_tables.h"
#include "shared/genbytes.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"

namespace {

// What the steps share about one file.
struct candidate {
    obj_history& history;
    objinfo& record; // to be filled
    gen_stream& stream;
    uint64_t base;        // where the file begins in the stream
    const char* name;     // may be null
    uint8_t lead[4] = {}; // the first four bytes
    elf_access elf = {};
};

enum verdict {
    NOT_THIS,
    RECOGNISED,
    BROKEN // the format's, but without a header that it must have
};

bool seek_to(const candidate& file, uint64_t offset) {
    return offset <= INT64_MAX - file.base &&
           gen_seek(file.stream, static_cast<int64_t>(file.base + offset), GEN_SEEK_SET) == 0;
}

// An empty file has four zeros, one that is only short the usual 0xFF for what it lacks.
void read_lead(candidate& file) {
    const uint64_t length = gen_read_stream(file.stream, file.lead, sizeof file.lead);
    if (length != 0)
        std::fill(file.lead + length, std::end(file.lead), uint8_t{0xFF});
}

bool begins_with(const candidate& file, uint32_t big_endian_word) {
    return gen_load<uint32_t>(std::as_bytes(std::span(file.lead)).data(), true) == big_endian_word;
}

verdict identify_archive(candidate& file) {
    const obj_archive_magic magic = archive_magic_kind(&file.stream, file.name);
    if (magic == OBJ_MAGIC_NONE)
        return NOT_THIS;
    // An imitation has no row: it keeps the kind of the file before.
    for (const obj_archive_row& row : obj_archive_rows)
        if (row.result == magic)
            file.record.kind = row.kind;
    file.record.target = 0;
    return RECOGNISED;
}

// Signature, a word of no interest here, version.
verdict identify_tooldata(candidate& file) {
    objinfo& record = file.record;
    if (!begins_with(file, 0x7F4F5256)) // "\x7fORV"
        return NOT_THIS;
    seek_to(file, 8);
    record.machine = elf_read_u32_as(file.stream, true);
    record.target = obj_tooldata_target(record.machine);
    record.kind = record.target ? OBJ_TOOLDATA : OBJ_UNKNOWN;
    record.file_type = record.target ? OBJ_TYPE_TOOLDATA : OBJ_TYPE_UNKNOWN;
    return RECOGNISED;
}

verdict identify_leading_word(candidate& file) {
    objinfo& record = file.record;
    constexpr uint32_t magic10_word = 0x00000258, import_word = 0x0000FFFF;
    if (begins_with(file, magic10_word))
        record.kind = OBJ_MAGIC10;
    else if (begins_with(file, import_word))
        record.kind = OBJ_IMPORT;
    else
        return NOT_THIS;
    record.target = 0;
    return RECOGNISED;
}

// A Windows resource file begins with the header of an empty resource.
verdict identify_windows_resource(candidate& file) {
    static constexpr uint32_t header[] = {0, 32, 0xFFFF, 0xFFFF, 0, 0, 0, 0};
    if (!begins_with(file, header[0]))
        return NOT_THIS;
    seek_to(file, 0);
    for (const uint32_t word : header)
        if (elf_read_u32_as(file.stream, false) != word)
            return NOT_THIS;
    file.record.kind = OBJ_WINRES;
    file.record.target = OBJ_TARGET_WINRES;
    return RECOGNISED;
}

bool elf_code_is_big_endian(const elf_file_header& head, bool big_endian) {
    constexpr uint32_t EF_ARM_BE8 = 0x00800000;
    if (head.e_machine == EM_TRICORE || head.e_machine == EM_AARCH64)
        return false;
    if (head.e_machine == EM_ARM && (head.e_flags & EF_ARM_BE8))
        return !big_endian;
    return big_endian;
}

verdict identify_elf(candidate& file) {
    objinfo& record = file.record;
    if (!begins_with(file, 0x7F454C46)) // "\x7fELF"
        return NOT_THIS;
    seek_to(file, 0);
    file.elf.elf_error_sink = true;
    file.elf.elfbits = elf_class_of(file.stream, file.base, file.name);
    elf_file_header head;
    genelf_readXheader(file.elf, file.stream, file.base, head);
    if (file.elf.elf_error_count != 0)
        head.e_machine = 0;

    const uint8_t ei_class = head.e_ident[EI_CLASS];
    if (head.e_machine == EM_RISCV) { // bit 31 tells the tables the class
        head.e_flags &= 0x7FFFFFFF;
        head.e_flags |= ei_class == ELFCLASS64 ? 0x80000000 : 0;
    }
    record.machine = head.e_machine;
    record.target = obj_elf_target(head.e_machine, head.e_flags);
    record.big_endian = head.e_ident[EI_DATA] != ELFDATA2LSB;
    record.code_big_endian = elf_code_is_big_endian(head, record.big_endian);
    record.class_bits = ei_class == ELFCLASS32 ? 32 : ei_class == ELFCLASS64 ? 64 : 0;
    record.kind = OBJ_ELF;
    record.sym_entry_size = 0;
    record.flags = head.e_flags;
    record.file_type = OBJ_TYPE_UNKNOWN;
    if (head.e_type <= ET_CORE) // from ET_REL to ET_CORE the numbers are the same
        record.file_type = head.e_type;
    return RECOGNISED;
}

void take_target(objinfo& record, const auto& row) {
    record.target = row.target;
    record.code_big_endian = row.big_endian;
    record.big_endian = row.big_endian;
    record.class_bits = row.target == OBJ_TARGET_COFF_X86_64 ? 64 : 32;
}

// The PE header names the machine; kind, machine number and symbol size stay those of "MZ". Gives
// the position of the COFF header behind the signature.
std::optional<uint64_t> read_pe_header(candidate& file) {
    seek_to(file, 60);
    const uint64_t offset = elf_read_u32_as(file.stream, false);
    if (!seek_to(file, offset) || elf_read_u32_as(file.stream, true) != 0x50450000) // "PE\0\0"
        return std::nullopt;
    uint8_t machine[2];
    for (uint8_t& byte : machine)
        byte = elf_read_u8(file.stream);
    if (const obj_coff_row* const row = obj_find_coff_row(machine))
        take_target(file.record, *row);
    return offset + 4;
}

uint32_t coff_file_type(const objinfo& record) {
    constexpr uint32_t F_RELFLG = 0x0001, F_EXEC = 0x0002, IMAGE_FILE_DLL = 0x2000;
    if (record.kind == OBJ_PECOFF && (record.flags & IMAGE_FILE_DLL))
        return OBJ_TYPE_SHARED;
    if (record.flags & F_EXEC)
        return OBJ_TYPE_EXECUTABLE;
    return record.flags & F_RELFLG ? OBJ_TYPE_UNKNOWN : OBJ_TYPE_RELOCATABLE;
}

verdict identify_coff(candidate& file) {
    objinfo& record = file.record;
    constexpr uint64_t f_flags_offset = 18;
    const uint8_t magic[2] = {file.lead[0], file.lead[1]};
    const obj_coff_row* const row = obj_find_coff_row(magic);
    if (!row)
        return NOT_THIS;
    take_target(record, *row);
    record.machine = row->machine;
    record.kind = row->kind;
    record.sym_entry_size = row->sym_entry_size;

    std::optional<uint64_t> coff_header = 0;
    if (row->kind == OBJ_PECOFF)
        coff_header = read_pe_header(file);
    if (!coff_header)
        return BROKEN;
    seek_to(file, *coff_header + f_flags_offset);
    const uint16_t f_flags = elf_read_u16_as(file.stream, record.big_endian);
    record.flags = static_cast<uint32_t>(static_cast<int16_t>(f_flags)); // sign-extended
    record.file_type = coff_file_type(file.record);
    return RECOGNISED;
}

verdict identify_aout(candidate& file) {
    objinfo& record = file.record;
    const obj_aout_row* const row = obj_find_aout_row(file.lead);
    if (!row)
        return NOT_THIS;
    take_target(record, *row);
    record.machine = row->machine;
    record.kind = OBJ_AOUT;
    record.sym_entry_size = 12;
    record.flags = 0;
    record.file_type = OBJ_TYPE_UNKNOWN;
    return RECOGNISED;
}

verdict identify_by_extension(candidate& file) {
    objinfo& record = file.record;
    const std::string_view extension = gen_extension(file.name ? file.name : "");
    if (gen_equal_ignoring_case(extension, "pro") || gen_equal_ignoring_case(extension, "dbp"))
        record.target = OBJ_TARGET_PROFILE;
    else if (gen_equal_ignoring_case(extension, "gpro"))
        record.target = OBJ_TARGET_GPROFILE;
    else
        return NOT_THIS;
    record.kind = OBJ_PROFILE;
    record.sym_entry_size = 0;
    record.flags = 0;
    record.file_type = OBJ_TYPE_UNKNOWN;
    return RECOGNISED;
}

// Tool data files without a signature: logs with a word of their own, others with a small number in
// the first two bytes, in either order.
uint32_t unsigned_tooldata_target(const candidate& file) {
    const uint32_t number = file.lead[0] | file.lead[1];
    if (number == 1 || number == 2 || number == 4)
        return OBJ_TARGET_NUMBERED;
    if (number == 3)
        return OBJ_TARGET_NUMBERED_3;
    if (begins_with(file, 0x494E5400)) // "INT"
        return OBJ_TARGET_INT_LOG;
    if (begins_with(file, 0x564C4700)) // "VLG"
        return OBJ_TARGET_VLG_LOG;
    return 0;
}

// What is left is unknown, unless a weak mark says otherwise. No step before this one sets a target
// and goes on, so one that is set was left by the file before: it stays, and no mark is looked for.
verdict identify_by_weak_marks(candidate& file) {
    objinfo& record = file.record;
    constexpr uint32_t CPU_PA_RISC1_1 = 0x210, SHARE_MAGIC = 0x108;
    record.sym_entry_size = 0;
    record.flags = 0;
    record.kind = OBJ_UNKNOWN;
    record.file_type = OBJ_TYPE_UNKNOWN;
    if (record.target != 0)
        return RECOGNISED;
    record.target = unsigned_tooldata_target(file);
    if (record.target != 0) {
        record.kind = OBJ_TOOLDATA;
        record.file_type = OBJ_TYPE_TOOLDATA;
    } else if (begins_with(file, CPU_PA_RISC1_1 << 16 | SHARE_MAGIC)) {
        record.kind = OBJ_SOM_SHARED;
        record.machine = SHARE_MAGIC;
        record.target = OBJ_TARGET_SOM_SHARED;
        record.file_type = OBJ_TYPE_EXECUTABLE;
        record.code_big_endian = true;
        record.big_endian = true;
        record.class_bits = 32;
    }
    return RECOGNISED;
}

uint32_t note_flag(uint32_t type, uint32_t value) {
    struct row {
        uint32_t type, value;
        obj_note_flag flag;
    };
    static constexpr row rows[] = {
        {3, 1, OBJ_NOTE_TYPE3},   {3, 2, OBJ_NOTE_TYPE3},   {3, 3, OBJ_NOTE_TYPE3},
        {4, 1, OBJ_NOTE_TYPE4_1}, {4, 2, OBJ_NOTE_TYPE4_2}, {11, 1, OBJ_NOTE_TYPE11},
    };
    for (const row& row : rows)
        if (row.type == type && row.value == value)
            return row.flag;
    return 0;
}

struct note_header {
    uint32_t namesz, descsz, type;
};

bool read_note_header(const candidate& file, note_header& note) {
    std::byte bytes[12];
    if (gen_read_stream(file.stream, bytes, sizeof bytes) != sizeof bytes)
        return false;
    elf_decoder fields = elf_decode_at(file.elf, bytes);
    fields.u32(note.namesz);
    fields.u32(note.descsz);
    fields.u32(note.type);
    return true;
}

// The flag of a note that has four bytes of name and a word.
uint32_t read_note(candidate& file, const note_header& note) {
    if (note.namesz != 4 || note.descsz != 4)
        return 0;
    char name[4];
    for (char& c : name)
        c = static_cast<char>(elf_read_u8(file.stream));
    const uint32_t value = elf_read_u32(file.elf, file.stream);
    const bool is_ours = gen_equal_ignoring_case({name, sizeof name}, {"REL", sizeof name});
    return is_ours ? note_flag(note.type, value) : 0;
}

// Names and values are not padded: a note follows the one before at once. The end of the file ends
// the scan, whatever size the section claims.
void scan_notes(candidate& file) {
    const std::optional<elf_section_header> section =
        elf_find_section(file.elf, file.stream, ".note.renesas", file.base);
    if (!section)
        return;
    uint64_t offset = section->sh_offset;
    uint64_t left = section->sh_size;
    note_header note;
    while (left >= 12 && seek_to(file, offset) && read_note_header(file, note)) {
        file.record.note_flags |= read_note(file, note);
        const uint64_t length = uint64_t{12} + note.namesz + note.descsz;
        offset += length;
        left -= std::min(left, length);
    }
}

void finish(candidate& file) {
    objinfo& record = file.record;
    record.magic[0] = file.lead[0];
    record.magic[1] = file.lead[1];
    if (record.target == 0 && record.kind != OBJ_ELF && record.kind != OBJ_TOOLDATA)
        record.machine = file.lead[0] + 256u * file.lead[1];
    if (record.target == OBJ_TARGET_V800 && record.kind == OBJ_ELF)
        scan_notes(file);
    if (record.target == OBJ_TARGET_TI && record.kind == OBJ_COFF)
        file.history.ti_coff = true;
}

verdict run_steps(candidate& file) {
    static constexpr verdict (*steps[])(candidate&) = {
        identify_archive,       identify_tooldata, identify_leading_word, identify_windows_resource,
        identify_elf,           identify_coff,     identify_aout,         identify_by_extension,
        identify_by_weak_marks,
    };
    verdict result = NOT_THIS;
    for (const auto step : steps)
        if (result == NOT_THIS)
            result = step(file);
    return result;
}

} // namespace

const objinfo* obj_identify(obj_history& history, gen_stream* stream, const char* name) {
    const int saved_errno = errno; // a look at what is not there is no error of the file's
    gen_stream_ptr opened;
    if (!stream) {
        opened = name ? gen_open(name, "rb") : nullptr;
        stream = opened.get();
    }
    if (!stream)
        return nullptr;

    candidate file{history, history.latest, *stream, stream->position, name};
    file.record.note_flags = 0;
    file.record.class_bits = 0;
    read_lead(file);
    seek_to(file, 0);
    const verdict result = run_steps(file);
    if (result == RECOGNISED)
        finish(file);
    seek_to(file, 0);
    errno = saved_errno;
    return result == RECOGNISED ? &history.latest : nullptr;
}

obj_archive_magic archive_magic_kind(gen_stream* stream, const char* name) {
    if (!stream)
        return OBJ_MAGIC_NONE;
    const int64_t start = static_cast<int64_t>(stream->position);
    char buffer[obj_archive_magic_size];
    const uint64_t length = gen_read_stream(*stream, buffer, sizeof buffer);
    gen_seek(*stream, start, GEN_SEEK_SET);

    const std::string_view head(buffer, length);
    bool looks_like_one = false;
    for (const obj_archive_row& row : obj_archive_rows) {
        const std::string_view magic = row.text;
        looks_like_one = looks_like_one || head.starts_with(magic.substr(0, 4));
        if (!head.starts_with(magic))
            continue;
        if (row.result == OBJ_MAGIC_DAMAGED)
            // The (\r) and (\n) in brackets are for reading: a backslash and a letter.
            gen_error("archive file '%s' has had carriage-returns (\\r)\n"
                      "\tinserted before new-lines (\\n) and is unusable.\n"
                      "\tNOTE: This can be caused by some Windows archive managers, which\n"
                      "\tcan corrupt binary files unless automatic CR/LF conversion is\n"
                      "\texplicitly disabled.\n",
                      name ? name : "<unknown>");
        return row.result;
    }
    return looks_like_one ? OBJ_MAGIC_IMITATED : OBJ_MAGIC_NONE;
}

bool obj_is_coff_family(obj_history& history, gen_stream* stream, const char* name) {
    const objinfo* const info = obj_identify(history, stream, name);
    return info && (info->kind == OBJ_COFF || info->kind == OBJ_COFF4 || info->kind == OBJ_XCOFF ||
                    info->kind == OBJ_PECOFF);
}

bool obj_is_known_object(obj_history& history, gen_stream* stream, const char* name) {
    const objinfo* const info = obj_identify(history, stream, name);
    return info && ((info->kind >= OBJ_AOUT && info->kind <= OBJ_PECOFF) ||
                    info->kind == OBJ_ARCHIVE || info->kind == OBJ_AIXARCHIVE ||
                    info->kind == OBJ_ELFARCHIVE || info->kind == OBJ_ARCHIVE64);
}
