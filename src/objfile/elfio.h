// ELF fields: byte order, widths, and the layer's one error policy.
//
// An error of the ELF layer is fatal, unless a caller has installed a sink: then the error is noted
// in the sink and the routine returns a neutral value. Identification probes files that way.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "shared/genfile.h"
#include "shared/genmem.h"

enum elf_order : uint32_t { ELF_ORDER_UNSET = 0, ELF_ORDER_BIG = 1, ELF_ORDER_LITTLE = 2 };

// The order of every field read or written; each ELF header that is read sets it.
extern uint32_t elf_byte_order;
// Errors so far. Compare it before and after a composite operation; its value means nothing.
extern uint64_t elf_error_count;
extern void (*elf_overflow_hook)(); // called before an overflow is reported; may be null

// Counts, then notes the error in the sink or ends the program with status 1. `format` takes one
// string, `argument`, or none. The system's text follows if the error number is not 0.
void elf_error(const char* format, const char* argument = nullptr);
void elf_set_error_sink(int32_t* flag); // null removes it; the flag becomes 0
int32_t* elf_get_error_sink();
void elf_overflow();
void elf_bad_class();

// The low 32 bits; a value that needs more is elf_overflow.
uint32_t elf_narrow(uint64_t value);

// Fields at the stream's position. A byte past the end of the file reads as 0xFF. With the order
// unset the wider ones are an error, and give 0 or write nothing.
uint8_t elf_read_u8(gen_stream& stream);
uint16_t elf_read_u16(gen_stream& stream);
uint32_t elf_read_u32(gen_stream& stream);
uint64_t elf_read_u64(gen_stream& stream);
void elf_write_u16(gen_stream& stream, uint16_t value);
void elf_write_u32(gen_stream& stream, uint32_t value);
void elf_write_u64(gen_stream& stream, uint64_t value);
// The same in an order of the caller's.
uint16_t elf_read_u16_as(gen_stream& stream, bool big_endian);
uint32_t elf_read_u32_as(gen_stream& stream, bool big_endian);

// `size` bytes, zeroed: none for a size of 0, or when a sink absorbed the failure.
gen_block elf_malloc(uint64_t size);
// Exactly `size` bytes from the stream's position, or an empty block after an error, which counts
// twice. Nothing is allocated that the file cannot fill. The block has one more byte behind its
// size, a NUL, so that text in it always ends.
gen_block elf_read_bytes(gen_stream& stream, uint64_t size);
// The same into `to`, which has room for it. False after an error.
bool elf_read_into(gen_stream& stream, std::byte* to, uint64_t size);

// A field of 2, 4 or 8 bytes at any address, in either byte order.
template <class field>
inline field elf_swap(field value) {
    static_assert(sizeof value == 2 || sizeof value == 4 || sizeof value == 8);
    if constexpr (sizeof value == 2)
        return __builtin_bswap16(value);
    else if constexpr (sizeof value == 4)
        return __builtin_bswap32(value);
    else
        return __builtin_bswap64(value);
}
template <class field>
inline field elf_load(const std::byte* at, bool big_endian) {
    field value;
    memcpy(&value, at, sizeof value);
    return big_endian == (std::endian::native == std::endian::big) ? value : elf_swap(value);
}
template <class field>
inline void elf_store(std::byte* at, field value, bool big_endian) {
    if (big_endian != (std::endian::native == std::endian::big))
        value = elf_swap(value);
    memcpy(at, &value, sizeof value);
}

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
        const field value = elf_load<field>(at, big_endian);
        at += sizeof value;
        return value;
    }
};

struct elf_encoder {
    std::byte* at;
    bool big_endian;
    bool is_64;

    void u8(uint8_t field) { *at++ = static_cast<std::byte>(field); }
    void u16(uint16_t field) { put(field); }
    void u32(uint32_t field) { put(field); }
    void u64(uint64_t field) { put(field); }
    // In a 32-bit file the value is checked to fit.
    void word(uint64_t field) {
        if (is_64)
            put(field);
        else
            put(elf_narrow(field));
    }

private:
    template <class field>
    void put(field value) {
        elf_store(at, value, big_endian);
        at += sizeof value;
    }
};

// A decoder or encoder in the current byte order for class `elfbits`.
elf_decoder elf_decode_at(const std::byte* at, int elfbits);
elf_encoder elf_encode_at(std::byte* at, int elfbits);
