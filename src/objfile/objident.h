// What a file is: object format, processor, byte order, class and type, told from its first bytes.
//
// Identification fills in only what the format at hand has: the other fields keep what the file
// before left in them. note_flags and class_bits always start from 0.
#pragma once

#include <cstdint>

#include "shared/genfile.h"

enum obj_kind : uint32_t {
    OBJ_NONE = 0, // nothing identified yet
    OBJ_AOUT = 1,
    OBJ_COFF = 2,
    OBJ_ELF = 3,
    OBJ_COFF4 = 4, // never produced; counts as COFF
    OBJ_XCOFF = 5,
    OBJ_PECOFF = 6,
    OBJ_SOM = 7,
    OBJ_ARCHIVE = 8,
    OBJ_TOOLDATA = 9, // debugging information, logs and patch files of the tool chain
    OBJ_MAGIC10 = 10,
    OBJ_IMPORT = 11, // short import or anonymous object header
    OBJ_AIXARCHIVE = 12,
    OBJ_PROFILE = 13,
    OBJ_WINRES = 14,
    OBJ_SOM_SHARED = 15,
    OBJ_ELFARCHIVE = 16,
    OBJ_ARCHIVE64 = 17,
    OBJ_UNKNOWN = 18
};

enum obj_file_type : uint32_t {
    OBJ_TYPE_UNKNOWN = 0,
    OBJ_TYPE_RELOCATABLE = 1,
    OBJ_TYPE_EXECUTABLE = 2,
    OBJ_TYPE_SHARED = 3,
    OBJ_TYPE_CORE = 4,
    OBJ_TYPE_TOOLDATA = 5
};

// Bits of note_flags, from the ".note.renesas" section.
enum obj_note_flag : uint32_t {
    OBJ_NOTE_TYPE3 = 0x01,
    OBJ_NOTE_TYPE4_1 = 0x02,
    OBJ_NOTE_TYPE4_2 = 0x10,
    OBJ_NOTE_TYPE11 = 0x20
};

// A target is a processor in the tool chain's own numbering, which tells variants and file formats
// apart; 0: unknown. The tables give most of them as numbers: named is what code goes by.
enum obj_target : uint32_t {
    OBJ_TARGET_WIDE_COUNTS = 20, // counts of 32 bits in COFF section headers; in no table
    OBJ_TARGET_V800 = 94,        // the V850 too; its ELF files have notes
    OBJ_TARGET_SOM_SHARED = 113,
    OBJ_TARGET_NUMBERED = 120,   // tool data that begin with 1, 2 or 4
    OBJ_TARGET_NUMBERED_3 = 121, // with 3
    OBJ_TARGET_PROFILE = 122,
    OBJ_TARGET_GPROFILE = 123,
    OBJ_TARGET_WINRES = 125,
    OBJ_TARGET_INT_LOG = 126,
    OBJ_TARGET_TI = 131,
    OBJ_TARGET_COFF_X86_64 = 138, // an ELF file's is another one
    OBJ_TARGET_VLG_LOG = 142
};

struct objinfo {
    uint8_t magic[2] = {};        // the first two bytes
    uint32_t machine = 0;         // e_machine, the COFF magic, the a.out identifier, a version
    uint32_t target = 0;          // obj_target
    bool code_big_endian = false; // instructions
    bool big_endian = false;      // data and header fields
    uint32_t note_flags = 0;      // obj_note_flag
    obj_kind kind = OBJ_NONE;
    uint32_t sym_entry_size = 0; // bytes of a COFF or a.out symbol
    uint32_t flags = 0;          // e_flags, or the COFF flags sign-extended
    uint32_t class_bits = 0;     // 32, 64, or 0
    uint32_t file_type = OBJ_TYPE_UNKNOWN;
};

enum obj_archive_magic {
    OBJ_MAGIC_IMITATED = 0, // begins like an archive, but no magic matches; kind is left as it was
    OBJ_MAGIC_NONE = 1,
    OBJ_MAGIC_ARCH = 2,   // "!<arch>\n"
    OBJ_MAGIC_AIX = 3,    // "<aiaff>\n"
    OBJ_MAGIC_ELFA = 4,   // "!<elfa>\n"
    OBJ_MAGIC_ARCH64 = 5, // "!<arch64>\n"
    OBJ_MAGIC_DAMAGED = 6 // carriage returns put before the new-lines
};

// What the files of a run leave to those that come after them.
struct obj_history {
    objinfo latest; // of the file that was identified last
    // A TI-style COFF file was identified: from then on COFF section headers are read with 32-bit
    // counts.
    bool ti_coff = false;
};

// Identifies the file or archive member at the stream's position, which is kept. `name` may be
// null; it serves for the test of the extension and in one message. A null stream: `name` is
// opened. The result is the latest of `history`, valid until the next call; null when `name` cannot
// be opened or a PE file has no PE header. Errors of the ELF layer never reach the user.
const objinfo* obj_identify(obj_history& history, gen_stream* stream, const char* name);

// The archive magic at the stream's position, which is kept. Reports a damaged one.
obj_archive_magic archive_magic_kind(gen_stream* stream, const char* name);

// Each identifies first, and is false when identification gives nothing.
bool obj_is_coff_family(obj_history& history, gen_stream* stream, const char* name);
bool obj_is_known_object(obj_history& history, gen_stream* stream, const char* name);
