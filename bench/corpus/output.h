// A file that is written from its start to its end, and what fills it: bytes, random data, names.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// What the numbers of a kind are multiplied with.
extern double scale;
uint64_t scaled(uint64_t number);
uint64_t megabytes(uint64_t number);

[[noreturn]] void fail(const char* what);

using bytes = std::string;

template <typename number>
void put(bytes& to, number value) {
    to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

uint64_t next_random();

// A name like those of a C++ program, about `length` letters long.
std::string long_name(uint64_t number, size_t length);

struct output {
    FILE* file;
    uint64_t position = 0;
};

void write(output& to, const bytes& data);
void fill(output& to, uint64_t size);
void skip(output& to, uint64_t size);
void align(output& to, uint64_t unit);
