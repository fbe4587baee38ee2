// PE images.
#include <cstring>
#include <initializer_list>

#include "kinds.h"

void make_pe(output& to) {
    const uint64_t code_size = megabytes(30) / 512 * 512 + 512;
    const uint64_t data_size = megabytes(6) / 512 * 512 + 512;
    const uint32_t symbols = static_cast<uint32_t>(scaled(300000));
    const auto halves = [](bytes& head, std::initializer_list<int> values) {
        for (const int value : values)
            put(head, static_cast<uint16_t>(value));
    };
    const auto words = [](bytes& head, std::initializer_list<uint64_t> values) {
        for (const uint64_t value : values)
            put(head, static_cast<uint32_t>(value));
    };
    const uint64_t image_size = (0x1000 + code_size + 0xFFF) / 0x1000 * 0x1000;
    bytes head = "MZ";
    head.resize(60);
    words(head, {128});
    head.resize(128);
    head.append("PE\0\0", 4);
    halves(head, {0x8664, 2});
    words(head, {0, 1024 + code_size + data_size, symbols});
    halves(head, {240, 0x0022});
    halves(head, {0x20B, 0x0202});
    words(head, {code_size, data_size, 0, 0x1000, 0x1000});
    put(head, uint64_t{0x140000000});
    words(head, {0x1000, 512});
    halves(head, {6, 0, 0, 0, 6, 0});
    words(head, {0, image_size + (data_size + 0xFFF) / 0x1000 * 0x1000, 1024, 0});
    halves(head, {3, 0});
    for (int i = 0; i < 4; ++i)
        put(head, uint64_t{0x100000});
    words(head, {0, 16});
    head.resize(head.size() + 16 * 8);
    head.append(".text\0\0\0", 8);
    words(head, {code_size, 0x1000, code_size, 1024, 0, 0, 0, 0x60000020});
    head.append(".data\0\0\0", 8);
    words(head, {data_size, image_size, data_size, 1024 + code_size, 0, 0, 0, 0xC0000040});
    head.resize(1024);
    write(to, head);
    fill(to, code_size + data_size);
    bytes table, strings(4, '\0');
    for (uint32_t i = 0; i < symbols; ++i) {
        words(table, {0, strings.size(), next_random() % code_size});
        halves(table, {1, 0x20});
        table.append("\x02\0", 2);
        strings.append(long_name(i, 30)).append(1, '\0');
    }
    const uint32_t size = static_cast<uint32_t>(strings.size());
    memcpy(strings.data(), &size, sizeof size);
    write(to, table);
    write(to, strings);
}
