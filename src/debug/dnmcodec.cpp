// Encodings: each is read and written by a pair of routines that stand side by side.
#include "debug/dnmcodec.h"

#include "shared/genmessage.h"

namespace {

constexpr unsigned group_bits = 7;
constexpr uint8_t group_mask = 0x7F;
constexpr uint8_t more_follows = 0x80;
constexpr uint8_t sign_of_group = 0x40;

uint8_t get_byte(dnm_reader& reader) {
    const int byte =
        !reader.failed && reader.stream->position < reader.end ? gen_getc(*reader.stream) : -1;
    if (byte < 0) {
        reader.failed = true;
        return 0;
    }
    return static_cast<uint8_t>(byte);
}

// Groups of seven bits, the lowest first. `bits` tells how many were read, and `last` what the last
// byte was. More groups than `width` bits need are no number.
uint64_t get_groups(dnm_reader& reader, unsigned width, unsigned& bits, uint8_t& last) {
    uint64_t value = 0;
    bits = 0;
    do {
        last = get_byte(reader);
        if (bits >= width)
            reader.failed = true;
        else
            value |= static_cast<uint64_t>(last & group_mask) << bits;
        bits += group_bits;
    } while (!reader.failed && (last & more_follows) != 0);
    return reader.failed ? 0 : value;
}

// By mode: the byte that tells it, and how many bytes an address has behind its bank.
constexpr uint8_t address_encodings[] = {2, 66, 4, 8};
constexpr uint8_t address_widths[] = {2, 2, 4, 8};

} // namespace

uint64_t dnm_reader::fixed(unsigned width) {
    uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = value << 8 | get_byte(*this);
    return failed ? 0 : value;
}

void dnm_writer::fixed(uint64_t value, unsigned width) {
    for (unsigned i = width; i > 0; --i)
        bytes.push_back(static_cast<std::byte>(value >> (8 * (i - 1))));
}

uint64_t dnm_reader::variable(unsigned width) {
    if (!coding.compressed)
        return fixed(width / 8);
    unsigned bits = 0;
    uint8_t last = 0;
    return get_groups(*this, width, bits, last);
}

void dnm_writer::variable(uint64_t value, unsigned width) {
    if (!coding.compressed)
        return fixed(value, width / 8);
    for (; value > group_mask; value >>= group_bits)
        bytes.push_back(static_cast<std::byte>((value & group_mask) | more_follows));
    bytes.push_back(static_cast<std::byte>(value));
}

// Compressed, one more than the value, so that -1 takes a single byte.
void dnm_reader::signed_number(int32_t& field) {
    uint32_t value = 0;
    number(value);
    field = static_cast<int32_t>(coding.compressed && !failed ? value - 1 : value);
}

void dnm_writer::signed_number(int32_t field) {
    const uint32_t value = static_cast<uint32_t>(field);
    number(coding.compressed ? value + 1 : value);
}

void dnm_reader::varint(int32_t& field) {
    unsigned bits = 32;
    uint8_t last = 0;
    uint64_t value = coding.compressed ? get_groups(*this, 32, bits, last) : fixed(4);
    if (bits < 32 && (last & sign_of_group) != 0)
        value |= UINT64_MAX << bits;
    field = static_cast<int32_t>(static_cast<uint32_t>(value));
}

void dnm_writer::varint(int32_t field) {
    if (!coding.compressed)
        return u32(static_cast<uint32_t>(field));
    for (;;) {
        const uint8_t group = static_cast<uint8_t>(field) & group_mask;
        field >>= group_bits;
        const bool sign_is_told = field == ((group & sign_of_group) != 0 ? -1 : 0);
        u8(static_cast<uint8_t>(sign_is_told ? group : group | more_follows));
        if (sign_is_told)
            return;
    }
}

// Compressed, the second is written as its distance from the first.
void dnm_reader::index_pair(int32_t& first, int32_t& second) {
    signed_number(first);
    varint(second);
    if (coding.compressed)
        second = static_cast<int32_t>(static_cast<uint32_t>(first) + static_cast<uint32_t>(second));
}

void dnm_writer::index_pair(int32_t first, int32_t second) {
    const uint32_t distance = static_cast<uint32_t>(second) - static_cast<uint32_t>(first);
    signed_number(first);
    varint(coding.compressed ? static_cast<int32_t>(distance) : second);
}

// A length with the NUL counted, and the characters; no string has length 0.
void dnm_reader::string(std::string& field) {
    uint32_t length = 0;
    number(length);
    if (failed || length > end - stream->position) {
        failed = true;
        return;
    }
    field.resize(length);
    failed = gen_read_stream(*stream, field.data(), length) != length;
}

void dnm_writer::string(const std::string& field) {
    number(static_cast<uint32_t>(field.size()));
    for (char c : field)
        bytes.push_back(static_cast<std::byte>(c));
}

void dnm_reader::address(dnm_address& field) {
    if (coding.address_mode == DNM_ADDRESS_BANKED)
        number(field.bank);
    fixed(field.value, address_widths[coding.address_mode]);
}

void dnm_writer::address(const dnm_address& field) {
    if (coding.address_mode == DNM_ADDRESS_BANKED)
        number(field.bank);
    fixed(field.value, address_widths[coding.address_mode]);
}

uint8_t dnm_address_encoding(dnm_address_mode mode) {
    return address_encodings[mode];
}

dnm_address_mode dnm_mode_from_encoding(uint8_t encoding) {
    for (dnm_address_mode mode :
         {DNM_ADDRESS_16, DNM_ADDRESS_BANKED, DNM_ADDRESS_32, DNM_ADDRESS_64})
        if (dnm_address_encoding(mode) == encoding)
            return mode;
    gen_error("[gadr_mode_from_encoding]: unknown mode!");
    return DNM_ADDRESS_32;
}
