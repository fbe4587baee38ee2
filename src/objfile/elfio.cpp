// ELF fields: the layer's error policy, fields on a stream, width checks, block reads.
#include "objfile/elfio.h"

#include <cerrno>
#include <cinttypes>
#include <utility>

#include "shared/genout.h"

uint32_t elf_byte_order = ELF_ORDER_UNSET;
uint64_t elf_error_count;
void (*elf_overflow_hook)();

namespace {

int32_t* error_sink;

// The next `width` bytes, those past the end as 0xFF, with the first the most significant one if
// `big_endian`.
uint64_t read_field(gen_stream& stream, unsigned width, bool big_endian) {
    uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i) {
        const uint64_t byte = static_cast<uint8_t>(gen_getc(stream)); // -1 at the end is 0xFF
        value |= byte << (8 * (big_endian ? width - 1 - i : i));
    }
    return value;
}

bool order_is_set() {
    if (elf_byte_order == ELF_ORDER_UNSET)
        elf_error("internal, endian not set");
    return elf_byte_order != ELF_ORDER_UNSET;
}

uint64_t read_in_order(gen_stream& stream, unsigned width) {
    const uint64_t value = read_field(stream, width, elf_byte_order == ELF_ORDER_BIG);
    return order_is_set() ? value : 0;
}

void write_in_order(gen_stream& stream, uint64_t value, unsigned width) {
    if (!order_is_set())
        return;
    uint8_t bytes[8];
    const bool big_endian = elf_byte_order == ELF_ORDER_BIG;
    for (unsigned i = 0; i < width; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * (big_endian ? width - 1 - i : i)));
    gen_write_stream(stream, bytes, width);
}

} // namespace

void elf_error(const char* format, const char* argument) {
    ++elf_error_count;
    if (error_sink) {
        *error_sink = -1;
        return;
    }
    const char* text = argument ? argument : "";
    if (errno != 0)
        gen_perror_exit(status_failure, format, text);
    gen_fatal(status_failure, format, text);
}

void elf_set_error_sink(int32_t* flag) {
    error_sink = flag;
    if (flag)
        *flag = 0;
}

int32_t* elf_get_error_sink() {
    return error_sink;
}

void elf_overflow() {
    if (elf_overflow_hook)
        elf_overflow_hook();
    elf_error("ELF file overflow");
}

void elf_bad_class() {
    elf_error("Unexpected elfbits");
}

uint32_t elf_narrow(uint64_t value) {
    if (value > UINT32_MAX)
        elf_overflow();
    return static_cast<uint32_t>(value);
}

uint8_t elf_read_u8(gen_stream& stream) {
    return static_cast<uint8_t>(gen_getc(stream));
}

uint16_t elf_read_u16(gen_stream& stream) {
    return static_cast<uint16_t>(read_in_order(stream, 2));
}

uint32_t elf_read_u32(gen_stream& stream) {
    return static_cast<uint32_t>(read_in_order(stream, 4));
}

uint64_t elf_read_u64(gen_stream& stream) {
    return read_in_order(stream, 8);
}

void elf_write_u16(gen_stream& stream, uint16_t value) {
    write_in_order(stream, value, 2);
}

void elf_write_u32(gen_stream& stream, uint32_t value) {
    write_in_order(stream, value, 4);
}

void elf_write_u64(gen_stream& stream, uint64_t value) {
    write_in_order(stream, value, 8);
}

uint16_t elf_read_u16_as(gen_stream& stream, bool big_endian) {
    return static_cast<uint16_t>(read_field(stream, 2, big_endian));
}

uint32_t elf_read_u32_as(gen_stream& stream, bool big_endian) {
    return static_cast<uint32_t>(read_field(stream, 4, big_endian));
}

gen_block elf_malloc(uint64_t size) {
    gen_block block = gen_new_block(size);
    if (size != 0 && !block.bytes) {
        // Only a replaced allocator comes back with nothing.
        char text[21];
        elf_error("out of memory allocating %s bytes",
                  gen_str64(text, static_cast<int64_t>(size), 'd'));
        block.size = 0;
    }
    return block;
}

static void report_failed_read(const gen_stream& stream) {
    elf_error(stream.at_end ? "read failed, unexpected EOF" : "read failed");
    ++elf_error_count;
}

gen_block elf_read_bytes(gen_stream& stream, uint64_t size) {
    if (stream.position > stream.size || size > stream.size - stream.position) {
        stream.at_end = true; // the file cannot fill the block, so none is made
        if (size != 0)
            report_failed_read(stream);
        return {};
    }
    if (size == 0)
        return {};
    gen_block block = elf_malloc(size + 1);
    if (!block.bytes)
        return {};
    block.size = size;
    return elf_read_into(stream, block.bytes.get(), size) ? std::move(block) : gen_block();
}

bool elf_read_into(gen_stream& stream, std::byte* to, uint64_t size) {
    if (gen_read_stream(stream, to, size) == size)
        return true;
    report_failed_read(stream);
    return false;
}

elf_decoder elf_decode_at(const std::byte* at, int elfbits) {
    return {at, elf_byte_order == ELF_ORDER_BIG, elfbits == 64};
}

elf_encoder elf_encode_at(std::byte* at, int elfbits) {
    return {at, elf_byte_order == ELF_ORDER_BIG, elfbits == 64};
}
