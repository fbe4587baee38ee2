// Debug-name-map files (.dnm): the debugger's index of an executable, read, changed in its
// "Sections" table and written back. Of the other tables only place and length are known; their
// bytes are carried over as they are.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "debug/dnmcodec.h"
#include "shared/genfile.h"
#include "shared/gentemp.h"

constexpr uint32_t dnm_magic = 0x7F4F5256; // 7F "ORV"
// The rest of the prologue: its version, the kind of file, descriptors, the level of extension.
constexpr uint32_t dnm_newest_prologue = 1, dnm_map_kind = 3;
constexpr uint8_t dnm_no_descriptors = 0, dnm_no_extension = 0, dnm_newest_extension = 2;

// What the tables of the directory are, by index.
// clang-format off
enum dnm_table_id : uint8_t {
    DNM_STRINGS = 0, DNM_SECTIONS = 1, DNM_DLO_FILES = 2, DNM_FILES = 3, DNM_FILES_BY_BASE_NAME = 4,
    DNM_FILES_BY_REL_NAME = 5, DNM_FILES_BY_FULL_NAME = 6, DNM_LABELS = 7, DNM_LABELS_BY_ADR = 8,
    DNM_LABELS_BY_USE_NAME = 9, DNM_LABELS_BY_MANGLED_NAME = 10, DNM_LABELS_BY_LINK_NAME = 11,
    DNM_TYPES = 12, DNM_TYPES_BY_MANGLED_NAME = 13, DNM_LIBRARIES = 14, DNM_UPDATES = 15,
    DNM_STATIC_LABELS = 16, DNM_DLO_FILES_BY_OFFSET = 17, DNM_DLO_FILE_UPDATE_LINKS = 18,
    DNM_LABEL_UPDATE_LINKS = 19, DNM_LINKED_AGAINSTS = 20, DNM_LABELS_BY_AGAINST_ADR = 21,
    DNM_LABELS_BY_REG = 22, DNM_LABELS_BY_REG_PLUS_OFFSET = 23, DNM_STUBS = 24,
    DNM_STUBS_BY_LINK_NAME = 25, DNM_STUBS_BY_ADR = 26, DNM_UNQUALIFIED_MEMBERS = 27,
    DNM_TYPES_BY_USE_NAME = 28, DNM_SECTIONS_BY_ADR = 29, DNM_ATTRIBUTES = 30,
    DNM_HASH_DEFINE_HASHES = 31, DNM_HASH_DEFINES = 32, DNM_CPP_TYPES_BY_REV_USE_NAME = 33,
    DNM_TRACE_REGIONS = 34, DNM_HEADER_SYMBOLS = 35, DNM_TABLE_COUNT = 36
};
// clang-format on
constexpr uint32_t dnm_max_tables = 76; // that a header may list; those without a name are dropped

// The versions that are read.
constexpr int32_t dnm_oldest_version = 10;
constexpr int32_t dnm_newest_version = 44; // under development
constexpr int32_t dnm_named_version = 43;  // the newest one that messages speak of

// One entry of the table directory.
struct dnm_table {
    int64_t offset = 0;
    int32_t max = 0; // entries
    uint32_t parameter = 0;
    uint8_t flags[2] = {};

    // The bytes in the input that the entry stands for, when max is above 0.
    uint64_t start = 0;
    uint64_t size = 0;
};

// Fields in file order; those that a version does not have keep the default given here.
struct dnm_header {
    int32_t version = 0;
    std::string strings[4];
    dnm_address_mode address_mode = DNM_ADDRESS_32;
    uint8_t endian_flag = 0;
    uint8_t reserved_abc[3] = {};
    uint8_t reserved_d = 0;
    dnm_address address_a;
    dnm_address address_b;
    uint8_t reserved_e = 0;
    uint8_t object_module_format = 0;
    uint8_t object_module_type = 0;
    uint8_t reserved_f = 0;
    uint8_t reserved_ghij[4] = {};
    uint8_t bytes_per_text_unit = 1;
    uint8_t bytes_per_data_unit = 1;
    uint8_t reserved_klm[3] = {};
    uint8_t reserved_n = 0;
    uint8_t abi_style = 0;
    uint8_t mangle_style = 0;
    uint8_t reserved_o = 0;
    uint32_t word_1 = 0;
    uint32_t word_2 = 0;
    uint32_t word_3 = 0;
    uint32_t word_4 = 0;
    uint8_t encoding_type = 0;
    uint8_t header_flags = 0;
    uint8_t reserved_p = 0;
    uint8_t reserved_q = 0;
    uint32_t word_5 = UINT32_MAX;
    uint32_t word_6 = UINT32_MAX;
    std::vector<dnm_table> tables; // as listed; DNM_TABLE_COUNT when written
};

// A record of the "Sections" table. The three section indexes are section numbers of the
// executable, -1 for none; both file offsets are offsets in it.
struct dnm_section {
    int32_t first_index = 0;
    int32_t second_index = 0;
    dnm_address addresses[2];
    uint64_t file_offset = 0;
    int32_t section_number = 0;
    uint8_t kind = 0;
    int32_t section_indexes[3] = {-1, -1, -1};
    uint32_t flags = 0;
    uint64_t second_file_offset = 0;
    uint32_t section_word = 0;
};

// What memory holds of a table.
struct dnm_held {
    bool loaded = false;
    int32_t entries = 0;
};

struct dnm_map {
    std::string name;       // of the file
    bool compressed = true; // the input's
    dnm_header header;
    std::vector<dnm_section> sections;
    uint64_t sections_tail = 0; // where in the input the bytes behind the last record begin
    std::vector<dnm_held> held; // by table
    std::string last_error;     // what the library notes without printing it
    gen_stream_ptr input;       // stays open until the other tables were copied from it
};

// Reads the map called `name`. Null after a report.
std::unique_ptr<dnm_map> STDnm_Read(const char* name);

// Writes the map back under its own name, by way of a temporary file. 0, or 1 after a report; the
// old file is gone then.
int STDnm_Write(dnm_map& map, gen_temp_space& temp);
