// The head of a COFF or PE file in memory: read once, changed field by field, written back once.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "shared/genbytes.h"
#include "shared/genfile.h"

// Fields are read and written where `at` stands, which moves on. A field that reaches past the end
// reads as 0; a write there makes the image longer.
struct field_image {
    std::vector<std::byte> bytes;
    bool big_endian = false;
    uint64_t file_at = 0; // where in the file the image lies
    uint64_t at = 0;
    uint64_t changed_end = 0; // no byte behind this was written

    uint8_t get8() { return get<uint8_t>(); }
    uint16_t get16() { return get<uint16_t>(); }
    uint32_t get32() { return get<uint32_t>(); }
    void put8(uint8_t value) { put(value); }
    void put16(uint16_t value) { put(value); }
    void put32(uint32_t value) { put(value); }

private:
    template <class field>
    field get() {
        const bool present = at <= bytes.size() && sizeof(field) <= bytes.size() - at;
        const field value = present ? gen_load<field>(bytes.data() + at, big_endian) : field{0};
        at += sizeof value;
        return value;
    }
    template <class field>
    void put(field value) {
        if (at + sizeof value > bytes.size())
            bytes.resize(at + sizeof value);
        gen_store(bytes.data() + at, value, big_endian);
        at += sizeof value;
        changed_end = std::max(changed_end, at);
    }
};

// Up to `size` bytes at `at`: fewer when the file ends before.
field_image read_field_image(gen_stream& stream, uint64_t at, uint64_t size, bool big_endian);
// Writes what was changed back to its place. False after a report.
bool write_field_image(gen_stream& stream, const char* name, const field_image& image);
// Whether the host lets the file be written as far as `end`, which a limit on its size could
// forbid: asked before the first change, so that the file does not end up half changed. False after
// a report.
bool is_writable_up_to(gen_stream& stream, const char* name, uint64_t end);
