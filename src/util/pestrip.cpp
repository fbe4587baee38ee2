// PE/COFF images (Microsoft Portable Executable format): the headers are patched in place, and the
// file is cut where its symbols or its debug data begin.
//
// All that can be refused is refused before the first byte is written.
#include "util/pestrip.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "shared/genmessage.h"
#include "util/fieldimage.h"

namespace {

constexpr uint64_t e_lfanew_at = 60;
constexpr uint64_t file_header_size = 20;
constexpr uint64_t section_header_size = 40;
constexpr uint64_t debug_entry_size = 28;
constexpr uint32_t debug_directory_index = 6;
constexpr uint32_t fixed_directories = 16;

constexpr uint16_t IMAGE_FILE_EXECUTABLE_IMAGE = 0x0002;
constexpr uint16_t stripped_flags = 0x020C; // line numbers, local symbols and debug data are gone

struct pe_section {
    uint32_t VirtualSize = 0;
    uint32_t VirtualAddress = 0;
    uint32_t SizeOfRawData = 0;
    uint32_t PointerToRawData = 0;
};

// The headers behind the signature, and what is known of them.
struct pe_image {
    const char* name = nullptr;
    gen_stream* stream = nullptr;
    field_image head = {}; // file header, optional header, section headers
    uint16_t NumberOfSections = 0;
    uint32_t PointerToSymbolTable = 0;
    uint32_t NumberOfSymbols = 0;
    uint16_t SizeOfOptionalHeader = 0;
    uint16_t Characteristics = 0;
    uint64_t debug_directory_at = 0; // in the head; 0 when there is none
    uint32_t debug_address = 0;
    uint32_t debug_size = 0;
    std::vector<pe_section> sections = {};
};

bool refuse(const pe_image& image) {
    gen_error("%s not stripped", image.name);
    return false;
}

bool refuse_format(const pe_image& image) {
    gen_error("%s not stripped, bad file format", image.name);
    return false;
}

bool leave_alone(const pe_image& image) {
    gen_warning("%s already stripped", image.name);
    return false;
}

// The file header lies behind the stub, which tells where in little-endian order on every machine.
uint64_t find_file_header(gen_stream& stream) {
    field_image pointer = read_field_image(stream, e_lfanew_at, 4, false);
    constexpr uint64_t signature_size = 4;
    return pointer.get32() + signature_size;
}

bool read_file_header(pe_image& image, uint64_t at, bool big_endian) {
    image.head = read_field_image(*image.stream, at, file_header_size, big_endian);
    field_image& head = image.head;
    if (head.bytes.size() < file_header_size)
        return refuse(image);
    head.at = 2;
    image.NumberOfSections = head.get16();
    head.get32(); // TimeDateStamp
    image.PointerToSymbolTable = head.get32();
    image.NumberOfSymbols = head.get32();
    image.SizeOfOptionalHeader = head.get16();
    image.Characteristics = head.get16();
    if ((image.Characteristics & IMAGE_FILE_EXECUTABLE_IMAGE) == 0)
        return refuse(image);
    return (image.NumberOfSymbols != 0 && image.PointerToSymbolTable != 0) || leave_alone(image);
}

// Sizes of the optional header's parts, which differ by its magic.
struct optional_layout {
    uint64_t standard; // the standard fields
    uint64_t complete; // with the Windows-specific fields, the last of which counts the directories
};

optional_layout layout_of(uint16_t magic) {
    constexpr uint16_t pe32 = 0x10B;
    constexpr uint16_t pe32_plus = 0x20B;
    if (magic == pe32)
        return {28, 96};
    if (magic == pe32_plus)
        return {24, 112};
    return {24, 92}; // as PE32, but without BaseOfData
}

bool read_optional_header(pe_image& image) {
    constexpr uint64_t least_with_windows_fields = 92;
    field_image& head = image.head;
    const uint64_t size = image.SizeOfOptionalHeader;
    if (head.bytes.size() < file_header_size + size)
        return refuse_format(image);
    head.at = file_header_size;
    const optional_layout layout = layout_of(head.get16());
    if (size < layout.standard)
        return refuse_format(image);
    if (size < least_with_windows_fields)
        return true;
    if (size < layout.complete)
        return refuse_format(image);
    head.at = file_header_size + layout.complete - 4;
    const uint32_t directories = head.get32();
    if (directories > (size - layout.complete) / 8)
        return refuse_format(image);
    if (directories < fixed_directories)
        return true;
    image.debug_directory_at = head.at + uint64_t{debug_directory_index} * 8;
    head.at = image.debug_directory_at;
    image.debug_address = head.get32();
    image.debug_size = head.get32();
    return true;
}

uint64_t section_header_at(const pe_image& image, size_t index) {
    return file_header_size + image.SizeOfOptionalHeader + index * section_header_size;
}

bool read_sections(pe_image& image) {
    if (image.head.bytes.size() < section_header_at(image, image.NumberOfSections))
        return refuse_format(image);
    image.sections.resize(image.NumberOfSections);
    for (size_t i = 0; i < image.sections.size(); ++i) {
        pe_section& section = image.sections[i];
        image.head.at = section_header_at(image, i) + 8; // behind the name
        section.VirtualSize = image.head.get32();
        section.VirtualAddress = image.head.get32();
        section.SizeOfRawData = image.head.get32();
        section.PointerToRawData = image.head.get32();
    }
    return true;
}

bool read_headers(pe_image& image, bool big_endian) {
    const uint64_t at = find_file_header(*image.stream);
    if (!read_file_header(image, at, big_endian))
        return false;
    image.head = read_field_image(*image.stream, at,
                                  section_header_at(image, image.NumberOfSections), big_endian);
    return read_optional_header(image) && read_sections(image);
}

int32_t as_signed(uint32_t value) {
    return static_cast<int32_t>(value);
}

// Where in the file the byte at `address` of the loaded image lies, or -1.
int64_t pe_rva_to_offset(const std::vector<pe_section>& sections, uint32_t address) {
    for (const pe_section& section : sections) {
        if (as_signed(section.VirtualAddress) > as_signed(address) ||
            as_signed(address) >= as_signed(section.VirtualAddress + section.VirtualSize))
            continue;
        const uint32_t offset = address - section.VirtualAddress;
        if (as_signed(offset) >= as_signed(section.SizeOfRawData))
            return -1;
        return as_signed(section.PointerToRawData + offset);
    }
    return -1;
}

// What the debug directory points to, taken together.
struct debug_extent {
    uint64_t total = 0;          // bytes, each piece rounded up to four
    uint64_t first = UINT64_MAX; // lowest place in the file
    uint64_t end = 0;            // behind the highest
};

// Of no bytes when an entry lies behind the end of the file.
debug_extent read_debug_directory(const pe_image& image, uint64_t at) {
    debug_extent extent;
    const uint64_t count = image.debug_size / debug_entry_size;
    if (at > image.stream->size || count > (image.stream->size - at) / debug_entry_size)
        return extent;
    for (uint64_t i = 0; i < count; ++i) {
        field_image entry = read_field_image(*image.stream, at + i * debug_entry_size,
                                             debug_entry_size, image.head.big_endian);
        entry.at = 16;
        const uint64_t size = entry.get32();
        entry.get32(); // AddressOfRawData
        const uint64_t pointer = entry.get32();
        if (size == 0 || pointer == 0)
            continue;
        const uint64_t rounded = (size + 3) / 4 * 4;
        extent.total += rounded;
        extent.first = std::min(extent.first, pointer);
        extent.end = std::max(extent.end, pointer + rounded);
    }
    return extent;
}

// The length that the file is cut to. False after a report.
bool find_new_length(const pe_image& image, uint64_t& length) {
    length = image.PointerToSymbolTable;
    if (image.debug_address != 0 && image.debug_size != 0) {
        const int64_t at = pe_rva_to_offset(image.sections, image.debug_address);
        if (at < 0)
            return leave_alone(image);
        const debug_extent extent = read_debug_directory(image, static_cast<uint64_t>(at));
        // Only one block without gaps at the very end of the file can go.
        if (extent.total == 0 || extent.first + extent.total != extent.end ||
            extent.end != image.stream->size)
            return refuse(image);
        length = extent.first;
    }
    return length <= image.stream->size || refuse(image); // never longer
}

void patch_headers(pe_image& image) {
    field_image& head = image.head;
    head.at = 8;
    head.put32(0); // PointerToSymbolTable
    head.put32(0); // NumberOfSymbols
    head.at = 18;
    head.put16(image.Characteristics | stripped_flags);
    if (image.debug_directory_at != 0) {
        head.at = image.debug_directory_at;
        head.put32(0);
        head.put32(0);
    }
    for (size_t i = 0; i < image.sections.size(); ++i) {
        const uint64_t line_numbers_at = section_header_at(image, i) + 28;
        const uint64_t line_count_at = section_header_at(image, i) + 34;
        head.at = line_numbers_at;
        const uint32_t PointerToLinenumbers = head.get32();
        head.at = line_count_at;
        const uint16_t NumberOfLinenumbers = head.get16();
        if (PointerToLinenumbers == 0 || NumberOfLinenumbers == 0)
            continue;
        head.at = line_numbers_at;
        head.put32(0);
        head.at = line_count_at;
        head.put16(0);
    }
}

} // namespace

void pecoff_strip(gen_stream_ptr stream, const char* name, const objinfo& info) {
    pe_image image = {name, stream.get()};
    uint64_t length = 0;
    bool changed = read_headers(image, info.big_endian) && find_new_length(image, length);
    if (changed) {
        patch_headers(image);
        changed = is_writable_up_to(*stream, name, image.head.file_at + image.head.changed_end) &&
                  write_field_image(*stream, name, image.head);
    }
    gen_safe_fclose(name, "executable", std::move(stream));
    if (changed && gen_set_length(name, length) != 0)
        gen_error("unable to shrink %s", name);
}
