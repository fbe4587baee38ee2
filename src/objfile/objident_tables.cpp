// The magic numbers themselves, in the order of the search: the long tables with one row a line, so
// that they can be held against a reference line by line.
#include "objfile/objident_tables.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "objfile/elfhead.h"

namespace {

constexpr bool BIG = true;
constexpr bool LITTLE = false;

// Whole magics first; the forms with a carriage return only say that the file is damaged.
constexpr obj_archive_row archive_rows[] = {
    {"!<arch>\n", OBJ_MAGIC_ARCH, OBJ_ARCHIVE},
    {"<aiaff>\n", OBJ_MAGIC_AIX, OBJ_AIXARCHIVE},
    {"!<elfa>\n", OBJ_MAGIC_ELFA, OBJ_ELFARCHIVE},
    {"!<arch64>\n", OBJ_MAGIC_ARCH64, OBJ_ARCHIVE64},
    {"!<arch>\r\n", OBJ_MAGIC_DAMAGED, OBJ_UNKNOWN},
    {"!<elfa>\r\n", OBJ_MAGIC_DAMAGED, OBJ_UNKNOWN},
    {"<aiaff>\r\n", OBJ_MAGIC_DAMAGED, OBJ_UNKNOWN},
    {"!<arch64>\r\n", OBJ_MAGIC_DAMAGED, OBJ_UNKNOWN},
};

// Bytes, machine, target, order, kind, symbol entry size; and what the number stands for, where a
// published format has it. The other numbers have no name but themselves.
constexpr obj_coff_row coff_rows[] = {
    {{0x44, 0x01}, 0x0144, 1, LITTLE, OBJ_COFF, 18},
    {{0x45, 0x01}, 0x0145, 2, LITTLE, OBJ_COFF, 18},
    {{0x46, 0x01}, 0x0146, 3, LITTLE, OBJ_COFF, 18},
    {{0x47, 0x01}, 0x0147, 4, LITTLE, OBJ_COFF, 18},
    {{0x4A, 0x01}, 0x014A, 5, LITTLE, OBJ_COFF, 18},                      // i286, small model
    {{0x4C, 0x01}, 0x014C, 6, LITTLE, OBJ_COFF, 18},                      // i386
    {{0x64, 0x86}, 0x8664, OBJ_TARGET_COFF_X86_64, LITTLE, OBJ_COFF, 18}, // x86-64
    {{0x4D, 0x5A}, 0x5A4D, 6, LITTLE, OBJ_PECOFF, 18},                    // "MZ"
    {{0x11, 0x33}, 0x1133, 9, BIG, OBJ_COFF, 18},
    {{0xC2, 0x70}, 0x70C2, 11, LITTLE, OBJ_COFF, 18},
    {{0xC3, 0x70}, 0x70C3, 12, LITTLE, OBJ_COFF, 18},
    {{0xC4, 0x70}, 0x70C4, 13, LITTLE, OBJ_COFF, 18},
    {{0x05, 0x00}, 0x0500, 16, BIG, OBJ_COFF, 18}, // SH
    {{0x71, 0xC2}, 0x71C2, 14, BIG, OBJ_COFF, 18},
    {{0xC3, 0x71}, 0x71C3, 15, LITTLE, OBJ_COFF, 18},
    {{0x01, 0x65}, 0x0165, 17, BIG, OBJ_COFF, 18},
    {{0x66, 0x01}, 0x0166, 18, LITTLE, OBJ_COFF, 18}, // MIPS R4000
    {{0x62, 0x01}, 0x0162, 26, LITTLE, OBJ_COFF, 18}, // MIPS R3000
    {{0x01, 0x62}, 0x0162, 27, LITTLE, OBJ_COFF, 18},
    {{0x83, 0x01}, 0x0183, 28, LITTLE, OBJ_COFF, 18}, // Alpha
    {{0x02, 0x60}, 0x0260, 29, BIG, OBJ_COFF, 18},
    {{0x60, 0x01}, 0x0160, 30, LITTLE, OBJ_COFF, 24}, // i960
    {{0x01, 0x60}, 0x0160, 31, BIG, OBJ_COFF, 24},
    {{0x01, 0xC3}, 0x01C3, 32, BIG, OBJ_COFF, 18},
    {{0x01, 0xC4}, 0x01C4, 32, BIG, OBJ_COFF, 18},
    {{0x01, 0x50}, 0x0150, 34, BIG, OBJ_COFF, 18},     // 68k
    {{0x01, 0x51}, 0x0151, 35, BIG, OBJ_COFF, 18},     // 68k
    {{0x01, 0x52}, 0x0152, 36, BIG, OBJ_COFF, 18},     // 68k
    {{0x00, 0x88}, 0x0088, 37, BIG, OBJ_COFF, 18},     // 68k
    {{0x00, 0x89}, 0x0088, 38, BIG, OBJ_COFF, 18},     // 68k; the machine above
    {{0x02, 0x0B}, 0x020B, 39, BIG, OBJ_SOM, 18},      // PA-RISC 1.0
    {{0x01, 0xDF}, 0x01DF, 33, BIG, OBJ_XCOFF, 18},    // POWER
    {{0x01, 0xDF}, 0x01DF, 41, BIG, OBJ_COFF, 18},     // hidden by the row before it
    {{0x0B, 0x01}, 0x010B, 53, LITTLE, OBJ_AOUT, 18},  // ZMAGIC; an a.out file, but read like COFF
    {{0x00, 0x0A}, 0x000A, 102, LITTLE, OBJ_COFF, 18}, // ARM
    {{0x0D, 0x01}, 0x01D0, 30, LITTLE, OBJ_COFF, 24},  // i960 b.out; not the bytes' number
    {{0x84, 0x01}, 0x0184, 28, LITTLE, OBJ_COFF, 18},  // Alpha
    {{0x01, 0xC0}, 0x01C0, 102, LITTLE, OBJ_COFF, 18}, // ARM
    {{0x84, 0x02}, 0x0284, 28, LITTLE, OBJ_COFF, 18},  // Alpha, 64 bits
    {{0x02, 0x68}, 0x0268, 34, BIG, OBJ_COFF, 18},     // 68k
    {{0x02, 0x66}, 0x0266, 17, BIG, OBJ_COFF, 18},     // MIPS16
    {{0x03, 0x66}, 0x0366, 17, BIG, OBJ_COFF, 18},     // MIPS with FPU
    {{0x04, 0x66}, 0x0466, 22, BIG, OBJ_COFF, 18},     // MIPS16 with FPU
    {{0x01, 0xC2}, 0x01C2, 102, LITTLE, OBJ_COFF, 18}, // Thumb
    {{0xC2, 0x00}, 0x00C2, OBJ_TARGET_TI, LITTLE, OBJ_COFF, 18}, // TI, version 2
    {{0x00, 0xC2}, 0x00C2, OBJ_TARGET_TI, BIG, OBJ_COFF, 18},    // TI, version 2
};

// Bytes, machine, target, order; and the published names of the machine and of the magic.
constexpr obj_aout_row aout_rows[] = {
    {{0x07, 0x01, 0x00, 0x00}, 0x00000107, 44, LITTLE}, // OMAGIC
    {{0x07, 0x01, 0x64, 0x00}, 0x00640107, 43, LITTLE}, // i386 OMAGIC
    {{0x01, 0x02, 0x01, 0x07}, 0x01020107, 45, BIG},    // 68020 OMAGIC
    {{0x01, 0x02, 0x01, 0x08}, 0x01020108, 45, BIG},    // 68020 NMAGIC
    {{0x01, 0x02, 0x01, 0x0B}, 0x0102010B, 45, BIG},    // 68020 ZMAGIC
    {{0x80, 0x02, 0x01, 0x07}, 0x80020107, 46, BIG},    // 68020 OMAGIC
    {{0x00, 0x02, 0x01, 0x07}, 0x00020107, 47, BIG},    // 68020 OMAGIC
    {{0x01, 0x03, 0x01, 0x07}, 0x01030107, 10, BIG},    // SPARC OMAGIC
    {{0x01, 0x03, 0x01, 0x0B}, 0x01030107, 10, BIG},    // SPARC ZMAGIC; the machine above
    {{0x81, 0x03, 0x01, 0x07}, 0x81030107, 42, BIG},    // SPARC OMAGIC
    {{0x81, 0x03, 0x01, 0x0B}, 0x8103010B, 42, BIG},    // SPARC ZMAGIC
    {{0x00, 0x00, 0x01, 0x07}, 0x00000107, 48, BIG},    // OMAGIC
    {{0x01, 0x00, 0x01, 0x07}, 0x01000107, 49, BIG},    // OMAGIC
    {{0x01, 0x01, 0x01, 0x07}, 0x01010107, 50, BIG},    // 68010 OMAGIC
    {{0x00, 0x01, 0x01, 0x07}, 0x00010107, 51, BIG},    // 68010 OMAGIC
};

struct elf_row {
    uint32_t machine;
    uint32_t target;
    uint32_t mask = 0; // of e_flags; 0: the machine alone decides
    uint32_t value = 0;
};

// Machine, target; mask and value. A machine that is a number has no name in the gABI.
// No machine has rows both with a mask and without; one whose masked flags match no row is unknown.
constexpr elf_row elf_rows[] = {
    {EM_386, 54},
    {EM_486, 55},
    {EM_SPARC, 56},
    {EM_SPARC32PLUS, 57},
    {EM_MIPS_RS3_LE, 59},
    {EM_RH32, 60},
    {EM_MMA, 61},
    {EM_MIPS, 62},
    {EM_FIREPATH, 111},
    {EM_FR20, 63},
    {EM_PPC, 64},
    {EM_V800, OBJ_TARGET_V800},
    {EM_ARM, 69},
    {EM_SPARCV9, 56},
    {EM_M32, 80},
    {EM_68K, 82},
    {EM_COLDFIRE, 82},
    {EM_960, 83},
    {EM_ARC, 116},
    {EM_JAVELIN, 109},
    {EM_MIPS_X, 93},
    {EM_RCE, 98},
    {EM_ST100, 104},
    {EM_NDR1, 103},
    {EM_STARCORE, 108},
    {EM_ZSP, 110},
    {EM_PDSP, 112},
    {EM_MAX, 114},
    {EM_BLACKFIN, 124},
    {31, 124},
    {34, 124},
    {0xF00D, 127},
    {EM_V850, OBJ_TARGET_V800},
    {EM_M32R, 115},
    {EM_ARC_COMPACT, 117},
    {121, 118},
    {EM_X86_64, 129},
    {EM_PPC64, 65},
    {0xF00E, OBJ_TARGET_TI},
    {EM_IA_64, 119},
    {EM_SPU, 132},
    {11, 133},
    {EM_DSPIC30F, 134},
    {0xF00C, 135},
    {EM_AARCH64, 137},
    {0xF00F, 139},
    {EM_SH, 70, 0xFF800000, 0x00000000},
    {EM_SH, 76, 0xFF800000, 0x80000000},
    {EM_SH, 71, 0xFF800000, 0x40000000},
    {EM_SH, 72, 0xFF800000, 0x20000000},
    {EM_SH, 78, 0xFF800000, 0x01000000},
    {EM_SH, 73, 0xFF800000, 0x10000000},
    {EM_SH, 74, 0xFF800000, 0x08000000},
    {EM_SH, 75, 0xFF800000, 0x04000000},
    {EM_SH, 79, 0xFF800000, 0x00800000},
    {EM_SH, 77, 0xFF800000, 0x02000000},
    {EM_TRICORE, 84, 0xF0F80000, 0x00000000},
    {EM_TRICORE, 85, 0xF0F80000, 0x80000000},
    {EM_TRICORE, 86, 0xF0F80000, 0x40000000},
    {EM_TRICORE, 87, 0xF0F80000, 0x20000000},
    {EM_TRICORE, 88, 0xF0F80000, 0x00800000},
    {EM_TRICORE, 89, 0xF0F80000, 0x00400000},
    {EM_TRICORE, 90, 0xF0F80000, 0x00200000},
    {EM_TRICORE, 91, 0xF0F80000, 0x00100000},
    {EM_TRICORE, 92, 0xF0F80000, 0x00080000},
    {EM_TRICORE, 97, 0xF0F80000, 0x01000000}, // never matches: the mask leaves this bit out
    {122, 130, 0x000000FF, 0x00000001},
    {122, 130, 0x000000FF, 0x00000002},
    {122, 130, 0x000000FF, 0x00000003},
    {122, 130, 0x000000FF, 0x00000004},
    {EM_RISCV, 140, 0x80000010, 0x00000010},
    {EM_RISCV, 140, 0x80000000, 0x00000000},
    {EM_RISCV, 141, 0x80000010, 0x80000010},
    {EM_RISCV, 141, 0x80000000, 0x80000000},
};

// By version, from 1 on.
constexpr uint32_t tooldata_targets[] = {0, 99, 100, 101, 105, 106, 107, 128};

template <typename row, size_t count, typename test>
const row* first_row(const row (&rows)[count], test matches) {
    const row* const found = std::find_if(std::begin(rows), std::end(rows), matches);
    return found == std::end(rows) ? nullptr : found;
}

} // namespace

const std::span<const obj_archive_row> obj_archive_rows = archive_rows;

const obj_coff_row* obj_find_coff_row(const uint8_t (&bytes)[2]) {
    return first_row(coff_rows,
                     [&](const obj_coff_row& row) { return std::ranges::equal(row.bytes, bytes); });
}

const obj_aout_row* obj_find_aout_row(const uint8_t (&bytes)[4]) {
    return first_row(aout_rows,
                     [&](const obj_aout_row& row) { return std::ranges::equal(row.bytes, bytes); });
}

uint32_t obj_elf_target(uint32_t e_machine, uint32_t e_flags) {
    const elf_row* const found = first_row(elf_rows, [=](const elf_row& row) {
        return row.machine == e_machine && (e_flags & row.mask) == row.value;
    });
    return found ? found->target : 0;
}

uint32_t obj_tooldata_target(uint32_t version) {
    return version < std::size(tooldata_targets) ? tooldata_targets[version] : 0;
}
