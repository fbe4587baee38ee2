// Debug-name-maps.
#include "kinds.h"

void make_map(output& to) {
    constexpr uint64_t image_base = 0x400000;
    constexpr uint32_t version = 42;
    constexpr uint32_t sections = 3;
    const auto big = [](bytes& text, uint64_t value, unsigned width) {
        while (width-- != 0)
            text.push_back(static_cast<char>(value >> (8 * width)));
    };
    bytes head;
    for (const uint32_t word : {0x7F4F5256u, 1u, 3u, 0u, 0x08000200u, version, 0u, 0u, 0u, 0u})
        big(head, word, 4);
    head.append("\x08\0\0\0\0\0", 6);
    big(head, 0, 8);
    big(head, UINT64_MAX, 8);
    head.append(bytes("\0\0\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0", 17));
    for (const uint32_t word : {0u, 0u, 0u, 0u, 0u, UINT32_MAX, UINT32_MAX})
        big(head, word, 4);
    head.push_back(36);
    bytes records;
    for (uint32_t i = 0; i < sections; ++i) {
        big(records, 0, 8);
        big(records, image_base, 8);
        big(records, image_base, 8);
        big(records, 0x1000, 8);
        big(records, i, 4);
        records.push_back(0);
        for (const uint32_t index : {i + 1, UINT32_MAX, UINT32_MAX, 0u})
            big(records, index, 4);
        big(records, 0, 8);
        big(records, 0, 4);
    }
    const uint64_t sections_at = head.size() + 36 * (8 + 10);
    const uint64_t labels_at = sections_at + records.size();
    for (unsigned table = 0; table < 36; ++table)
        big(head, table == 1 ? sections_at : labels_at, 8);
    for (unsigned table = 0; table < 36; ++table) {
        big(head, table == 1 ? sections : table == 7 ? scaled(2000000) : 0, 4);
        big(head, 0, 4);
        big(head, 0, 2);
    }
    write(to, head);
    write(to, records);
    fill(to, megabytes(200));
}
