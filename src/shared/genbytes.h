// Numbers of 1, 2, 4 or 8 bytes at any address, in either byte order.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

template <class number>
inline number gen_swap(number value) {
    if constexpr (sizeof value == 2)
        return __builtin_bswap16(value);
    else if constexpr (sizeof value == 4)
        return __builtin_bswap32(value);
    else if constexpr (sizeof value == 8)
        return __builtin_bswap64(value);
    static_assert(sizeof value == 1 || sizeof value == 2 || sizeof value == 4 || sizeof value == 8);
    return value;
}

template <class number>
inline number gen_load(const std::byte* at, bool big_endian) {
    number value;
    memcpy(&value, at, sizeof value);
    return big_endian == (std::endian::native == std::endian::big) ? value : gen_swap(value);
}

template <class number>
inline void gen_store(std::byte* at, number value, bool big_endian) {
    if (big_endian != (std::endian::native == std::endian::big))
        value = gen_swap(value);
    memcpy(at, &value, sizeof value);
}
