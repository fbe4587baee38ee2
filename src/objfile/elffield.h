// ELF fields: byte order, widths, and the layer's one error policy.
//
// An error of the ELF layer is fatal, unless whoever reads the file wants errors to be counted
// only: then the routine returns a neutral value. Identification probes files that way.
#pragma once

#include <cstddef>
#include <cstdint>

#include "shared/genbytes.h"
#include "shared/genfile.h"
#include "shared/genmem.h"

enum elf_order : uint32_t { ELF_ORDER_UNSET = 0, ELF_ORDER_BIG = 1, ELF_ORDER_LITTLE = 2 };

// How the fields of one ELF file are read and written, and what went wrong with them. Whoever works
// on the file has one of these.
struct elf_access {
    int elfbits = 0;                           // the class, 32 or 64
    uint32_t elf_byte_order = ELF_ORDER_UNSET; // set by the file's header when it is read
    bool elf_error_sink = false;               // errors are counted, and do not end the program
    uint64_t elf_error_count = 0; // compared before and after an operation; means nothing by itself
    void (*elf_overflow_hook)() = nullptr; // called before an overflow is reported

    bool is_64() const { return elfbits == 64; }
    bool is_big_endian() const { return elf_byte_order == ELF_ORDER_BIG; }
};

// Counts the error, and ends the program with status 1 unless there is a sink. `format` takes one
// string, `argument`, or none. The system's text follows if the error number is not 0.
void elf_error(elf_access& elf, const char* format, const char* argument = nullptr);
void elf_overflow(elf_access& elf);
void elf_bad_class(elf_access& elf);

// The low 32 bits; a value that needs more is elf_overflow.
uint32_t elf_narrow(elf_access& elf, uint64_t value);

// To the position `offset` of the stream. What fails is told of `name`, and ends the program.
inline void elf_seek(const char* name, gen_stream& stream, uint64_t offset) {
    gen_safe_fseek64(name, &stream, static_cast<int64_t>(offset), GEN_SEEK_SET);
}

// Fields at the stream's position. A byte past the end of the file reads as 0xFF. With the order
// unset the wider ones are an error, and give 0 or write nothing.
uint8_t elf_read_u8(gen_stream& stream);
uint16_t elf_read_u16(elf_access& elf, gen_stream& stream);
uint32_t elf_read_u32(elf_access& elf, gen_stream& stream);
uint64_t elf_read_u64(elf_access& elf, gen_stream& stream);
void elf_write_u16(elf_access& elf, gen_stream& stream, uint16_t value);
void elf_write_u32(elf_access& elf, gen_stream& stream, uint32_t value);
void elf_write_u64(elf_access& elf, gen_stream& stream, uint64_t value);
// The same in an order of the caller's.
uint16_t elf_read_u16_as(gen_stream& stream, bool big_endian);
uint32_t elf_read_u32_as(gen_stream& stream, bool big_endian);

// `size` bytes, zeroed: none for a size of 0, or when a sink absorbed the failure.
gen_block elf_malloc(elf_access& elf, uint64_t size);
// Exactly `size` bytes from the stream's position, or an empty block after an error, which counts
// twice. Nothing is allocated that the file cannot fill. The block has one more byte behind its
// size, a NUL, so that text in it always ends.
gen_block elf_read_bytes(elf_access& elf, gen_stream& stream, uint64_t size);
// The same into `to`, which has room for it. False after an error.
bool elf_read_into(elf_access& elf, gen_stream& stream, std::byte* to, uint64_t size);

// elf_decoder and elf_encoder walk one entry of a table in memory. They have the same routines, so
// that a layout is written once, as a template over either (elf_layout_* in elfhead.cpp). The
// caller answers for the entry lying inside its block.

struct elf_decoder {
    const std::byte* at;
    bool big_endian;
    bool is_64;

    void u8(uint8_t& field) { field = static_cast<uint8_t>(*at++); }
    void u16(uint16_t& field) { field = take<uint16_t>(); }
    void u32(uint32_t& field) { field = take<uint32_t>(); }
    void u64(uint64_t& field) { field = take<uint64_t>(); }
    // 32 bits wide in a 32-bit file, 64 in a 64-bit one.
    void word(uint64_t& field) { field = is_64 ? take<uint64_t>() : take<uint32_t>(); }

private:
    template <class field>
    field take() {
        const field value = gen_load<field>(at, big_endian);
        at += sizeof value;
        return value;
    }
};

struct elf_encoder {
    std::byte* at;
    bool big_endian;
    bool is_64;
    elf_access& elf; // for its errors

    void u8(uint8_t field) { *at++ = static_cast<std::byte>(field); }
    void u16(uint16_t field) { put(field); }
    void u32(uint32_t field) { put(field); }
    void u64(uint64_t field) { put(field); }
    // In a 32-bit file the value is checked to fit.
    void word(uint64_t field) {
        if (is_64)
            put(field);
        else
            put(elf_narrow(elf, field));
    }

private:
    template <class field>
    void put(field value) {
        gen_store(at, value, big_endian);
        at += sizeof value;
    }
};

inline elf_decoder elf_decode_at(const elf_access& elf, const std::byte* at) {
    return {at, elf.is_big_endian(), elf.is_64()};
}
inline elf_encoder elf_encode_at(elf_access& elf, std::byte* at) {
    return {at, elf.is_big_endian(), elf.is_64(), elf};
}
