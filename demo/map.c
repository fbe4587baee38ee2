// Makes a debug-name-map for the demonstration, and shows its "Sections" records. The map has fixed
// integers throughout, so that every field has its place (docs/dnm-format.md).
//
//   map make FILE    from lines "name index offset" on standard input
//   map show FILE    the records as such lines, "-" for the index of a section that is gone
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { VERSION = 43, ADDRESS_BYTES = 8, TABLES = 36, MOST_SECTIONS = 100 };
// Where things lie in this kind of map, and how long a record and its parts are.
enum { OFFSETS_AT = 108, ENTRIES_AT = OFFSETS_AT + 8 * TABLES, ENTRY = 10, HEAD = 756 };
enum { RECORD = 65, OFFSET_IN_RECORD = 24, INDEX_IN_RECORD = 37, NAME = 64 };

static unsigned char bytes[HEAD + MOST_SECTIONS * (RECORD + NAME)];

static void put(size_t at, int width, unsigned long long value) {
    for (int i = width; i-- > 0; value >>= 8)
        bytes[at + (size_t)i] = (unsigned char)value;
}

static unsigned long long get(size_t at, int width) {
    unsigned long long value = 0;
    for (int i = 0; i < width; ++i)
        value = value << 8 | bytes[at + (size_t)i];
    return value;
}

// Table 0 holds the names, which objtrim carries over as they are; table 1 holds the records.
static size_t make(void) {
    unsigned long long offset;
    int index, count = 0;
    char name[NAME];
    const size_t names = HEAD, records = HEAD + MOST_SECTIONS * NAME;
    while (count < MOST_SECTIONS && scanf("%63s %d %llx", name, &index, &offset) == 3) {
        const size_t record = records + (size_t)count * RECORD;
        memcpy(bytes + names + (size_t)count * NAME, name, sizeof name);
        put(record + OFFSET_IN_RECORD, 8, offset);
        put(record + INDEX_IN_RECORD, 4, (unsigned)index);
        put(record + INDEX_IN_RECORD + 4, 8, ~0ull); // no second and third index
        ++count;
    }
    put(0, 4, 0x7F4F5256);
    put(4, 4, 1);
    put(8, 4, 3);
    put(16, 1, ADDRESS_BYTES);
    put(18, 1, 2);
    put(20, 4, VERSION);
    put(40, 1, ADDRESS_BYTES);
    put(70, 2, 0x0101); // bytes in an address unit
    put(OFFSETS_AT - 1, 1, TABLES);
    put(OFFSETS_AT, 8, names);
    put(OFFSETS_AT + 8, 8, records);
    put(ENTRIES_AT, 4, (unsigned)count);
    put(ENTRIES_AT + ENTRY, 4, (unsigned)count);
    return records + (size_t)count * RECORD;
}

static void show(void) {
    const size_t names = get(OFFSETS_AT, 8), records = get(OFFSETS_AT + 8, 8);
    for (size_t i = 0; i < get(ENTRIES_AT + ENTRY, 4); ++i) {
        const size_t record = records + i * RECORD;
        const int index = (int)get(record + INDEX_IN_RECORD, 4);
        char number[16] = "-";
        if (index >= 0)
            snprintf(number, sizeof number, "%d", index);
        printf("%-20s %3s %6llx\n", (const char*)bytes + names + i * NAME, number,
               get(record + OFFSET_IN_RECORD, 8));
    }
}

int main(int argc, char** argv) {
    const int makes = argc == 3 && strcmp(argv[1], "make") == 0;
    FILE* file = argc == 3 ? fopen(argv[2], makes ? "wb" : "rb") : NULL;
    if (!file)
        return EXIT_FAILURE;
    if (makes) {
        const size_t size = make();
        return fwrite(bytes, 1, size, file) != size || fclose(file) != 0;
    }
    if (fread(bytes, 1, sizeof bytes, file) < HEAD)
        return EXIT_FAILURE;
    show();
    return fclose(file) != 0;
}
