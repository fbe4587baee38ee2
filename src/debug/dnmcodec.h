// Encodings of debug-name-map files: big-endian fixed integers, and numbers that are fixed or in
// groups of seven bits, as the file's compressed flag says (docs/dnm-format.md).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "shared/genfile.h"

// How the addresses of a file are written.
enum dnm_address_mode : uint8_t {
    DNM_ADDRESS_16 = 0,     // 2 bytes
    DNM_ADDRESS_BANKED = 1, // a number, then 2 bytes
    DNM_ADDRESS_32 = 2,     // 4 bytes
    DNM_ADDRESS_64 = 3      // 8 bytes
};

struct dnm_coding {
    bool compressed = true;
    dnm_address_mode address_mode = DNM_ADDRESS_32;
};

struct dnm_address {
    uint32_t bank = 0; // DNM_ADDRESS_BANKED only
    uint64_t value = 0;
};

// dnm_reader and dnm_writer have the same routines, so that a layout is written once, as a template
// over either (dnm_layout_* in dnmlayout.h).

// Reads a range of a file. What the range cannot satisfy sets `failed` and gives 0, as does all
// that follows; nothing is reported.
struct dnm_reader {
    gen_stream* stream;
    uint64_t end; // of the range, a position in the file
    dnm_coding coding;
    bool failed = false;

    void u8(uint8_t& field) { fixed(field, 1); }
    void u32(uint32_t& field) { fixed(field, 4); }
    void number(uint32_t& field) { field = static_cast<uint32_t>(variable(32)); }
    void long_number(uint64_t& field) { field = variable(64); }
    void signed_number(int32_t& field);
    void varint(int32_t& field);
    void index_pair(int32_t& first, int32_t& second);
    void string(std::string& field);
    void address(dnm_address& field);
    template <class integer>
    void fixed(integer& field, unsigned width) {
        field = static_cast<integer>(fixed(width));
    }
    uint64_t fixed(unsigned width);    // bytes
    uint64_t variable(unsigned width); // bits; fixed in a file that is not compressed
};

struct dnm_writer {
    std::vector<std::byte> bytes;
    dnm_coding coding;

    void u8(uint8_t field) { fixed(field, 1); }
    void u32(uint32_t field) { fixed(field, 4); }
    void number(uint32_t field) { variable(field, 32); }
    void long_number(uint64_t field) { variable(field, 64); }
    void signed_number(int32_t field);
    void varint(int32_t field);
    void index_pair(int32_t first, int32_t second);
    void string(const std::string& field);
    void address(const dnm_address& field);
    void fixed(uint64_t value, unsigned width);
    void variable(uint64_t value, unsigned width);
};

// An address mode as one byte of a file, and back. An unknown byte is an error, and taken as
// mode 2.
uint8_t dnm_address_encoding(dnm_address_mode mode);
dnm_address_mode dnm_mode_from_encoding(uint8_t encoding);
