// Bytes on their way into a file.
#include "output.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

double scale = 1;

uint64_t scaled(uint64_t number) {
    return std::max<uint64_t>(1, static_cast<uint64_t>(static_cast<double>(number) * scale));
}

uint64_t megabytes(uint64_t number) {
    return scaled(number * 1000000) / 16 * 16;
}

[[noreturn]] void fail(const char* what) {
    perror(what);
    exit(1);
}

uint64_t next_random() {
    static uint64_t state = 0x9E3779B97F4A7C15;
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

std::string long_name(uint64_t number, size_t length) {
    static const char* const words[] = {"engine", "matrix",  "vector",  "stream",   "detail",
                                        "policy", "storage", "network", "iterator", "allocator"};
    std::string name = "_ZN";
    for (uint64_t rest = number; name.size() + 12 < length; rest = rest / 10 + 7) {
        const char* const word = words[rest % 10];
        name.append(std::to_string(strlen(word))).append(word);
    }
    return name + "6f" + std::to_string(number) + "Ev";
}

void write(output& to, const bytes& data) {
    if (!data.empty() && fwrite(data.data(), 1, data.size(), to.file) != data.size())
        fail("write");
    to.position += data.size();
}

void fill(output& to, uint64_t size) {
    static bytes filler;
    while (filler.size() < 1 << 20)
        put(filler, next_random());
    while (size != 0) {
        const uint64_t piece = std::min<uint64_t>(size, filler.size());
        write(to, filler.substr(0, piece));
        size -= piece;
    }
}

void skip(output& to, uint64_t size) {
    if (fseeko(to.file, static_cast<off_t>(size), SEEK_CUR) != 0)
        fail("seek");
    to.position += size;
}

void align(output& to, uint64_t unit) {
    write(to, bytes((unit - to.position % unit) % unit, '\0'));
}
