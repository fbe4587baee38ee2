// ELF fields: the layer's error policy, fields on a stream, width checks, block reads.
#include "objfile/elffield.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "shared/genexit.h"

namespace {

// Bytes past the end read as 0xFF.
template <class field>
field read_field(gen_stream& stream, bool big_endian) {
    std::byte bytes[sizeof(field)];
    std::fill(std::begin(bytes), std::end(bytes), std::byte{0xFF});
    gen_read_stream(stream, bytes, sizeof bytes);
    return gen_load<field>(bytes, big_endian);
}

bool order_is_set(elf_access& elf) {
    if (elf.elf_byte_order == ELF_ORDER_UNSET)
        elf_error(elf, "internal, endian not set");
    return elf.elf_byte_order != ELF_ORDER_UNSET;
}

template <class field>
field read_in_order(elf_access& elf, gen_stream& stream) {
    const field value = read_field<field>(stream, elf.is_big_endian());
    return order_is_set(elf) ? value : field{0};
}

template <class field>
void write_in_order(elf_access& elf, gen_stream& stream, field value) {
    if (!order_is_set(elf))
        return;
    std::byte bytes[sizeof value];
    gen_store(bytes, value, elf.is_big_endian());
    gen_write_stream(stream, bytes, sizeof bytes);
}

void report_failed_read(elf_access& elf, const gen_stream& stream) {
    elf_error(elf, stream.at_end ? "read failed, unexpected EOF" : "read failed");
    ++elf.elf_error_count;
}

} // namespace

void elf_error(elf_access& elf, const char* format, const char* argument) {
    ++elf.elf_error_count;
    if (elf.elf_error_sink)
        return;
    const char* text = argument ? argument : "";
    if (errno != 0)
        gen_perror_exit(status_failure, format, text);
    gen_fatal(status_failure, format, text);
}

void elf_overflow(elf_access& elf) {
    if (elf.elf_overflow_hook)
        elf.elf_overflow_hook();
    elf_error(elf, "ELF file overflow");
}

void elf_bad_class(elf_access& elf) {
    elf_error(elf, "Unexpected elfbits");
}

uint32_t elf_narrow(elf_access& elf, uint64_t value) {
    if (value > UINT32_MAX)
        elf_overflow(elf);
    return static_cast<uint32_t>(value);
}

uint8_t elf_read_u8(gen_stream& stream) {
    return static_cast<uint8_t>(gen_getc(stream));
}

uint16_t elf_read_u16(elf_access& elf, gen_stream& stream) {
    return read_in_order<uint16_t>(elf, stream);
}

uint32_t elf_read_u32(elf_access& elf, gen_stream& stream) {
    return read_in_order<uint32_t>(elf, stream);
}

uint64_t elf_read_u64(elf_access& elf, gen_stream& stream) {
    return read_in_order<uint64_t>(elf, stream);
}

void elf_write_u16(elf_access& elf, gen_stream& stream, uint16_t value) {
    write_in_order(elf, stream, value);
}

void elf_write_u32(elf_access& elf, gen_stream& stream, uint32_t value) {
    write_in_order(elf, stream, value);
}

void elf_write_u64(elf_access& elf, gen_stream& stream, uint64_t value) {
    write_in_order(elf, stream, value);
}

uint16_t elf_read_u16_as(gen_stream& stream, bool big_endian) {
    return read_field<uint16_t>(stream, big_endian);
}

uint32_t elf_read_u32_as(gen_stream& stream, bool big_endian) {
    return read_field<uint32_t>(stream, big_endian);
}

gen_block elf_malloc(elf_access& elf, uint64_t size) {
    gen_block block = gen_new_block(size);
    if (size != 0 && !block.bytes) {
        // Only a replaced allocator comes back with nothing.
        char text[21];
        elf_error(elf, "out of memory allocating %s bytes",
                  gen_str64(text, static_cast<int64_t>(size), 'd'));
        block.size = 0;
    }
    return block;
}

gen_block elf_read_bytes(elf_access& elf, gen_stream& stream, uint64_t size) {
    if (stream.position > stream.size || size > stream.size - stream.position) {
        stream.at_end = true; // the file cannot fill the block, so none is made
        if (size != 0)
            report_failed_read(elf, stream);
        return {};
    }
    if (size == 0)
        return {};
    gen_block block = elf_malloc(elf, size + 1);
    if (!block.bytes)
        return {};
    block.size = size;
    return elf_read_into(elf, stream, block.bytes.get(), size) ? std::move(block) : gen_block();
}

bool elf_read_into(elf_access& elf, gen_stream& stream, std::byte* to, uint64_t size) {
    if (gen_read_stream(stream, to, size) == size)
        return true;
    report_failed_read(elf, stream);
    return false;
}
