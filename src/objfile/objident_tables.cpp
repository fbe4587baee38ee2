// The magic numbers themselves, in the order of the search: the long tables with one row a line, so
// that they can be held against a reference line by line.
#include "objfile/objident_tables.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace {

constexpr bool BIG = true;
constexpr bool LITTLE = false;

// Whole magics first; the forms with a carriage return only say that the file is damaged.
constexpr obj_archive_row archive_rows[] = {
    {"!<arch>\n", OBJ_MAGIC_ARCH},      {"<aiaff>\n", OBJ_MAGIC_AIX},
    {"!<elfa>\n", OBJ_MAGIC_ELFA},      {"!<arch64>\n", OBJ_MAGIC_ARCH64},
    {"!<arch>\r\n", OBJ_MAGIC_DAMAGED}, {"!<elfa>\r\n", OBJ_MAGIC_DAMAGED},
    {"<aiaff>\r\n", OBJ_MAGIC_DAMAGED}, {"!<arch64>\r\n", OBJ_MAGIC_DAMAGED},
};

// Bytes, machine, target, order, kind, symbol entry size.
constexpr obj_coff_row coff_rows[] = {
    {{0x44, 0x01}, 0x0144, 1, LITTLE, OBJ_COFF, 18},
    {{0x45, 0x01}, 0x0145, 2, LITTLE, OBJ_COFF, 18},
    {{0x46, 0x01}, 0x0146, 3, LITTLE, OBJ_COFF, 18},
    {{0x47, 0x01}, 0x0147, 4, LITTLE, OBJ_COFF, 18},
    {{0x4A, 0x01}, 0x014A, 5, LITTLE, OBJ_COFF, 18},
    {{0x4C, 0x01}, 0x014C, 6, LITTLE, OBJ_COFF, 18},
    {{0x64, 0x86}, 0x8664, 138, LITTLE, OBJ_COFF, 18},
    {{0x4D, 0x5A}, 0x5A4D, 6, LITTLE, OBJ_PECOFF, 18},
    {{0x11, 0x33}, 0x1133, 9, BIG, OBJ_COFF, 18},
    {{0xC2, 0x70}, 0x70C2, 11, LITTLE, OBJ_COFF, 18},
    {{0xC3, 0x70}, 0x70C3, 12, LITTLE, OBJ_COFF, 18},
    {{0xC4, 0x70}, 0x70C4, 13, LITTLE, OBJ_COFF, 18},
    {{0x05, 0x00}, 0x0500, 16, BIG, OBJ_COFF, 18},
    {{0x71, 0xC2}, 0x71C2, 14, BIG, OBJ_COFF, 18},
    {{0xC3, 0x71}, 0x71C3, 15, LITTLE, OBJ_COFF, 18},
    {{0x01, 0x65}, 0x0165, 17, BIG, OBJ_COFF, 18},
    {{0x66, 0x01}, 0x0166, 18, LITTLE, OBJ_COFF, 18},
    {{0x62, 0x01}, 0x0162, 26, LITTLE, OBJ_COFF, 18},
    {{0x01, 0x62}, 0x0162, 27, LITTLE, OBJ_COFF, 18},
    {{0x83, 0x01}, 0x0183, 28, LITTLE, OBJ_COFF, 18},
    {{0x02, 0x60}, 0x0260, 29, BIG, OBJ_COFF, 18},
    {{0x60, 0x01}, 0x0160, 30, LITTLE, OBJ_COFF, 24},
    {{0x01, 0x60}, 0x0160, 31, BIG, OBJ_COFF, 24},
    {{0x01, 0xC3}, 0x01C3, 32, BIG, OBJ_COFF, 18},
    {{0x01, 0xC4}, 0x01C4, 32, BIG, OBJ_COFF, 18},
    {{0x01, 0x50}, 0x0150, 34, BIG, OBJ_COFF, 18},
    {{0x01, 0x51}, 0x0151, 35, BIG, OBJ_COFF, 18},
    {{0x01, 0x52}, 0x0152, 36, BIG, OBJ_COFF, 18},
    {{0x00, 0x88}, 0x0088, 37, BIG, OBJ_COFF, 18},
    {{0x00, 0x89}, 0x0088, 38, BIG, OBJ_COFF, 18}, // the machine of the row before it
    {{0x02, 0x0B}, 0x020B, 39, BIG, OBJ_SOM, 18},
    {{0x01, 0xDF}, 0x01DF, 33, BIG, OBJ_XCOFF, 18},
    {{0x01, 0xDF}, 0x01DF, 41, BIG, OBJ_COFF, 18},    // hidden by the row before it
    {{0x0B, 0x01}, 0x010B, 53, LITTLE, OBJ_AOUT, 18}, // an a.out file, but read like COFF
    {{0x00, 0x0A}, 0x000A, 102, LITTLE, OBJ_COFF, 18},
    {{0x0D, 0x01}, 0x01D0, 30, LITTLE, OBJ_COFF, 24}, // not the number that the bytes give
    {{0x84, 0x01}, 0x0184, 28, LITTLE, OBJ_COFF, 18},
    {{0x01, 0xC0}, 0x01C0, 102, LITTLE, OBJ_COFF, 18},
    {{0x84, 0x02}, 0x0284, 28, LITTLE, OBJ_COFF, 18},
    {{0x02, 0x68}, 0x0268, 34, BIG, OBJ_COFF, 18},
    {{0x02, 0x66}, 0x0266, 17, BIG, OBJ_COFF, 18},
    {{0x03, 0x66}, 0x0366, 17, BIG, OBJ_COFF, 18},
    {{0x04, 0x66}, 0x0466, 22, BIG, OBJ_COFF, 18},
    {{0x01, 0xC2}, 0x01C2, 102, LITTLE, OBJ_COFF, 18},
    {{0xC2, 0x00}, 0x00C2, 131, LITTLE, OBJ_COFF, 18},
    {{0x00, 0xC2}, 0x00C2, 131, BIG, OBJ_COFF, 18},
};

// Bytes, machine, target, order.
constexpr obj_aout_row aout_rows[] = {
    {{0x07, 0x01, 0x00, 0x00}, 0x00000107, 44, LITTLE},
    {{0x07, 0x01, 0x64, 0x00}, 0x00640107, 43, LITTLE},
    {{0x01, 0x02, 0x01, 0x07}, 0x01020107, 45, BIG},
    {{0x01, 0x02, 0x01, 0x08}, 0x01020108, 45, BIG},
    {{0x01, 0x02, 0x01, 0x0B}, 0x0102010B, 45, BIG},
    {{0x80, 0x02, 0x01, 0x07}, 0x80020107, 46, BIG},
    {{0x00, 0x02, 0x01, 0x07}, 0x00020107, 47, BIG},
    {{0x01, 0x03, 0x01, 0x07}, 0x01030107, 10, BIG},
    {{0x01, 0x03, 0x01, 0x0B}, 0x01030107, 10, BIG}, // the machine of the row before it
    {{0x81, 0x03, 0x01, 0x07}, 0x81030107, 42, BIG},
    {{0x81, 0x03, 0x01, 0x0B}, 0x8103010B, 42, BIG},
    {{0x00, 0x00, 0x01, 0x07}, 0x00000107, 48, BIG},
    {{0x01, 0x00, 0x01, 0x07}, 0x01000107, 49, BIG},
    {{0x01, 0x01, 0x01, 0x07}, 0x01010107, 50, BIG},
    {{0x00, 0x01, 0x01, 0x07}, 0x00010107, 51, BIG},
};

struct elf_row {
    uint32_t machine;
    uint32_t mask; // of e_flags; 0: the machine alone decides
    uint32_t value;
    uint32_t target;
};

// No machine has rows both with a mask and without; one whose masked flags match no row is unknown.
constexpr elf_row elf_rows[] = {
    {3, 0, 0, 54},
    {6, 0, 0, 55},
    {2, 0, 0, 56},
    {18, 0, 0, 57},
    {10, 0, 0, 59},
    {38, 0, 0, 60},
    {54, 0, 0, 61},
    {8, 0, 0, 62},
    {78, 0, 0, 111},
    {37, 0, 0, 63},
    {20, 0, 0, 64},
    {36, 0, 0, 94},
    {40, 0, 0, 69},
    {43, 0, 0, 56},
    {1, 0, 0, 80},
    {4, 0, 0, 82},
    {52, 0, 0, 82},
    {19, 0, 0, 83},
    {45, 0, 0, 116},
    {77, 0, 0, 109},
    {51, 0, 0, 93},
    {39, 0, 0, 98},
    {60, 0, 0, 104},
    {57, 0, 0, 103},
    {58, 0, 0, 108},
    {79, 0, 0, 110},
    {63, 0, 0, 112},
    {102, 0, 0, 114},
    {106, 0, 0, 124},
    {31, 0, 0, 124},
    {34, 0, 0, 124},
    {61453, 0, 0, 127},
    {87, 0, 0, 94},
    {88, 0, 0, 115},
    {93, 0, 0, 117},
    {121, 0, 0, 118},
    {62, 0, 0, 129},
    {21, 0, 0, 65},
    {61454, 0, 0, 131},
    {50, 0, 0, 119},
    {23, 0, 0, 132},
    {11, 0, 0, 133},
    {118, 0, 0, 134},
    {61452, 0, 0, 135},
    {183, 0, 0, 137},
    {61455, 0, 0, 139},
    {42, 0xFF800000, 0x00000000, 70},
    {42, 0xFF800000, 0x80000000, 76},
    {42, 0xFF800000, 0x40000000, 71},
    {42, 0xFF800000, 0x20000000, 72},
    {42, 0xFF800000, 0x01000000, 78},
    {42, 0xFF800000, 0x10000000, 73},
    {42, 0xFF800000, 0x08000000, 74},
    {42, 0xFF800000, 0x04000000, 75},
    {42, 0xFF800000, 0x00800000, 79},
    {42, 0xFF800000, 0x02000000, 77},
    {44, 0xF0F80000, 0x00000000, 84},
    {44, 0xF0F80000, 0x80000000, 85},
    {44, 0xF0F80000, 0x40000000, 86},
    {44, 0xF0F80000, 0x20000000, 87},
    {44, 0xF0F80000, 0x00800000, 88},
    {44, 0xF0F80000, 0x00400000, 89},
    {44, 0xF0F80000, 0x00200000, 90},
    {44, 0xF0F80000, 0x00100000, 91},
    {44, 0xF0F80000, 0x00080000, 92},
    {44, 0xF0F80000, 0x01000000, 97}, // never matches: the mask leaves this bit out
    {122, 0x000000FF, 0x00000001, 130},
    {122, 0x000000FF, 0x00000002, 130},
    {122, 0x000000FF, 0x00000003, 130},
    {122, 0x000000FF, 0x00000004, 130},
    {243, 0x80000010, 0x00000010, 140},
    {243, 0x80000000, 0x00000000, 140},
    {243, 0x80000010, 0x80000010, 141},
    {243, 0x80000000, 0x80000000, 141},
};

struct tooldata_row {
    uint32_t version;
    uint32_t target;
};

constexpr tooldata_row tooldata_rows[] = {
    {1, 99}, {2, 100}, {3, 101}, {4, 105}, {5, 106}, {6, 107}, {7, 128},
};

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
    const tooldata_row* const found =
        first_row(tooldata_rows, [=](const tooldata_row& row) { return row.version == version; });
    return found ? found->target : 0;
}
