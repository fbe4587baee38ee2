// Writes the inputs that fuzzing and mutation begin with: DIRECTORY/files/FORMAT/NAME are files,
// DIRECTORY/inputs/ENTRY/NAME the same with options in front, as the entries take them.
//
// seeds DIRECTORY [FORMAT=FILE...]: the files given are taken in, too.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/ar_builder.h"
#include "support/coff_builder.h"
#include "support/dnm_builder.h"
#include "support/elf_builder.h"
#include "support/options.h"
#include "support/symbol_builder.h"

namespace {

std::string root;
bool complete_so_far = true;

void write_file(const std::string& directory, const std::string& name, const std::string& bytes) {
    std::filesystem::create_directories(directory);
    std::ofstream file(directory + "/" + name, std::ios::binary);
    file << bytes;
    complete_so_far = complete_so_far && file.good();
}

const char* const option_sets[] = {"",
                                   "-a",
                                   "-x -stripreloc -bl=*e",
                                   "-s --convert-to-secrel-reloc -stripreloc --keep-symbol=main",
                                   "--idll -stripreloc",
                                   "-wildcards_in_secnames -r=* -o=result",
                                   "-l -vxworks -F"};

option_choice choice_of(const std::string& options) {
    option_choice choice = 0;
    for (const std::string& option : split(options))
        choice |= option_bit(option);
    return choice;
}

void put_seed(const std::string& format, const std::string& name, const std::string& bytes) {
    write_file(root + "/files/" + format, name, bytes);
    const std::string entry = format.starts_with("elf") ? "elf" : format;
    const std::string input_name = format + "_" + name;
    int number = 0;
    for (const char* const options : option_sets)
        write_file(root + "/inputs/" + entry, input_name + std::to_string(number++),
                   ::number(choice_of(options), choice_size) + bytes);
    if (entry != "dnm")
        write_file(root + "/inputs/identify", input_name, ::number(0, choice_size) + bytes);
}

void put_elf_seeds() {
    for (const elf_form& form : elf_forms)
        for (const bool is_object : {false, true}) {
            const std::string format = std::string("elf") + (form.is_64() ? "64" : "32") +
                                       (form.big_endian ? "be" : "le") +
                                       (is_object ? "_rel" : "_exec");
            elf_draft draft = sample_draft(form);
            draft.type = is_object ? et::rel : et::exec;
            put_seed(format, "sections", build_elf(draft));
            draft.order = "S12P";
            draft.extra_entsize = 12;
            put_seed(format, "wide", build_elf(draft));
            symbol_draft symbols{.elf = base_draft(form)};
            symbols.elf.type = draft.type;
            symbols.entries =
                "T lS .text; L lS .line; main gF .text 16 8; common gC COM 8; local lO .data 4; "
                "undef gN ''; s.c lf ABS; wide wF .text 8; y..y lF .text; "
                "@.rela.text 4 1 main 7; @.rela.text 8 2 local; @.rela.data 0 1 common 1; "
                "@.rel.text 2 1 T; @.rela.line 1 1 L";
            put_seed(format, "symbols", build_symbols(symbols));
        }
}

void put_coff_seeds() {
    const words names = {".text\0\0\0", std::string("\0\0\0\0\4\0\0\0", 8), ".data123"};
    for (const char* const magic : {"\x4C\x01", "\xC2\x00", "\x66\x01", "\x9D\x00"})
        for (const auto lines :
             {coff_draft::NO_LINES, coff_draft::LINES_BEFORE, coff_draft::LINES_BEHIND}) {
            coff_draft draft;
            draft.magic = std::string(magic, 2);
            draft.lines = lines;
            for (const std::string& name : names)
                draft.names.push_back((name + std::string(8, '\0')).substr(0, 8));
            draft.ti = magic[0] == '\xC2';
            const std::string name = number(static_cast<uint8_t>(magic[0]), 1) == "L"
                                         ? "intel"
                                         : std::to_string(static_cast<uint8_t>(magic[0]));
            put_seed("coff", name + "_" + std::to_string(lines), build_coff(draft).bytes);
        }
}

void put_pe_seeds() {
    const pe_draft drafts[] = {{},
                               {0x20B, 19},
                               {0x107, 16, 0, true, {}, 100},
                               {0x10B, 16, 28},
                               {0x20B, 16, 0, false, {{0x1C, 0}, {0x20, 0x1C}}, 0x3C},
                               {0x10B, 16, 0, true, {{0x21, 0x20}, {0, 8}, {0x1D, 0}}, 0x44}};
    for (const pe_draft& draft : drafts)
        put_seed("pe", "draft" + std::to_string(&draft - drafts), build_pe(draft).bytes);
}

void put_archive_seeds() {
    const std::string program = build_elf(sample_draft(elf_forms[0], false));
    elf_draft object = sample_draft(elf_forms[1]);
    object.type = et::rel;
    const std::vector<ar_draft> members =
        with_long_names({{.name = "notes.txt", .data = "a text of odd size."},
                         {.name = "object.o", .data = build_elf(object)},
                         {.name = "a_name_that_is_quite_long.o", .data = program},
                         {.name = "a_name_that_is_quite_long.o", .data = program}});
    for (const obj_kind kind : {OBJ_ARCHIVE, OBJ_ARCHIVE64})
        put_seed("archive", "kind" + std::to_string(kind), build_archive(kind, members));
    std::vector<ar_draft> indexed = members;
    indexed.insert(indexed.begin(), {.name = "/", .data = ar_index({{"text", 68}, {"main", 68}})});
    put_seed("archive", "indexed", build_archive(OBJ_ARCHIVE, indexed));
    put_seed("archive", "single",
             build_archive(OBJ_ARCHIVE, {{.name = "one.o/", .data = program}}));
    put_seed("archive", "odd",
             build_archive(OBJ_ARCHIVE, {{.name = "odd.o/", .data = build_elf(object) + "\1"},
                                         {.name = "one.o/", .data = program}}));
}

void put_dnm_seeds() {
    for (const int version : {10, 20, 27, 30, 35, 40, 43, 44})
        for (const bool filled : {false, true})
            for (const int mode : {4, 2, 3})
                put_seed("dnm",
                         "v" + std::to_string(version) + (filled ? "filled" : "plain") +
                             std::to_string(mode),
                         build_dnm(sample_dnm(version, filled, mode, mode != 3)));
}

bool take_in(const char* argument) {
    const char* const equals = strchr(argument, '=');
    if (!equals)
        return false;
    std::ifstream file(equals + 1, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    put_seed(std::string(argument, equals), std::filesystem::path(equals + 1).filename(), bytes);
    return !bytes.empty();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: seeds DIRECTORY [FORMAT=FILE...]\n");
        return 1;
    }
    root = argv[1];
    put_elf_seeds();
    put_coff_seeds();
    put_pe_seeds();
    put_archive_seeds();
    put_dnm_seeds();
    for (int i = 2; i < argc; ++i)
        complete_so_far = take_in(argv[i]) && complete_so_far;
    return complete_so_far ? 0 : 1;
}
