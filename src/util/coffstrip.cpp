// COFF files: symbols, line numbers and strings are their last things. The string table moves to
// where the first of these began, and the file ends behind it.
#include "util/coffstrip.h"

#include <algorithm>
#include <cinttypes>
#include <optional>
#include <utility>

#include "shared/genmem.h"
#include "shared/genmessage.h"
#include "util/damage.h"
#include "util/fieldimage.h"

namespace {

constexpr obj_kind wide_kind = OBJ_COFF4;

// How the fields of one file lie.
struct coff_form {
    bool big_endian;
    uint32_t sym_entry_size;
    bool wide_entries; // addresses are followed by a high word
    bool wide_counts;  // counts of section headers have four bytes, the second half of which counts
    bool ti;           // target id, counts of 32 bits, reserved and page fields
};

struct coff_header {
    uint16_t f_magic = 0;
    uint16_t f_nscns = 0;
    uint32_t f_timdat = 0;
    uint32_t f_symptr = 0;
    uint32_t f_nsyms = 0;
    uint16_t f_opthdr = 0;
    uint16_t f_flags = 0;
    uint16_t target_id = 0;
};

struct coff_section {
    uint8_t s_name[8] = {};
    uint32_t addresses[6] = {}; // s_paddr, s_vaddr, s_size, s_scnptr, s_relptr, s_lnnoptr
    uint32_t s_nreloc = 0;
    uint32_t s_nlnno = 0;
    uint32_t s_flags = 0;
    uint16_t reserved = 0;
    uint16_t page = 0;
};
constexpr size_t s_lnnoptr = 5; // in addresses

coff_form form_of(const objinfo& info, bool ti_coff, bool& coff_wide_counts) {
    coff_wide_counts = coff_wide_counts || info.target == OBJ_TARGET_WIDE_COUNTS;
    return {info.big_endian, info.sym_entry_size, info.kind == wide_kind, coff_wide_counts,
            ti_coff};
}

uint64_t header_size(const coff_form& form) {
    return form.ti ? 22 : 20;
}

uint64_t section_header_size(const coff_form& form) {
    const uint64_t addresses = form.wide_entries ? 48 : 24;
    const uint64_t counts = form.ti || form.wide_counts ? 8 : 4;
    return 8 + addresses + counts + 4 + (form.ti ? 4 : 0);
}

// coff_reader and coff_writer have the same routines, so that a layout is written once, as a
// template over either.
struct coff_reader {
    field_image& image;
    const coff_form& form;

    void u8(uint8_t& field) { field = image.get8(); }
    void u16(uint16_t& field) { field = image.get16(); }
    void u32(uint32_t& field) { field = image.get32(); }
    void end_of_name(bool) {}
    // The high word says nothing unless it is more than the sign of the low one.
    void address(uint32_t& low) {
        low = image.get32();
        const uint32_t high = form.wide_entries ? image.get32() : 0;
        const bool sign_extension = high == UINT32_MAX && (low & 0x80000000) != 0;
        if (high != 0 && !sign_extension)
            gen_warning("64-bit entries not supported!");
    }
    void count(uint32_t& field) {
        if (form.wide_counts && !form.ti)
            image.get16();
        field = form.ti ? image.get32() : image.get16();
    }
};

// Every field in its standard width, whatever it had; but a name that stands in the header is
// written with the zero that ends it, which makes the header a byte longer.
struct coff_writer {
    field_image& image;
    const coff_form& form;

    void u8(uint8_t field) { image.put8(field); }
    void u16(uint16_t field) { image.put16(field); }
    void u32(uint32_t field) { image.put32(field); }
    void end_of_name(bool is_long) {
        if (!is_long)
            image.put8(0);
    }
    void address(uint32_t field) { image.put32(field); }
    void count(uint32_t field) {
        if (form.ti)
            image.put32(field);
        else
            image.put16(static_cast<uint16_t>(field));
    }
};

template <class fields, class header>
void layout_header(fields f, header& h) {
    f.u16(h.f_magic);
    f.u16(h.f_nscns);
    f.u32(h.f_timdat);
    f.u32(h.f_symptr);
    f.u32(h.f_nsyms);
    f.u16(h.f_opthdr);
    f.u16(h.f_flags);
    if (f.form.ti)
        f.u16(h.target_id);
}

// A long name is four zero bytes, and an offset into the string table.
template <class fields, class section>
void layout_section(fields f, section& s) {
    for (auto& byte : s.s_name)
        f.u8(byte);
    f.end_of_name(std::all_of(s.s_name, s.s_name + 4, [](uint8_t byte) { return byte == 0; }));
    for (auto& address : s.addresses)
        f.address(address);
    f.count(s.s_nreloc);
    f.count(s.s_nlnno);
    f.u32(s.s_flags);
    if (f.form.ti) {
        f.u16(s.reserved);
        f.u16(s.page);
    }
}

// What is to be done with one file.
struct coff_plan {
    uint64_t sections_at = 0; // where the section headers begin
    int32_t lines_at = 0;     // the lowest s_lnnoptr; 0 without line numbers
    uint32_t cut_at = 0;      // where the first thing that goes begins
    uint64_t strings_at = 0;
};

int32_t lowest_line_pointer(field_image& image, const coff_form& form, uint16_t count) {
    std::optional<int32_t> lowest;
    for (unsigned i = 0; i < count; ++i) {
        coff_section section;
        layout_section(coff_reader{image, form}, section);
        const int32_t pointer = static_cast<int32_t>(section.addresses[s_lnnoptr]);
        if (section.s_nlnno != 0)
            lowest = lowest ? std::min(*lowest, pointer) : pointer;
    }
    return lowest.value_or(0);
}

// False after a report of damage: the file is not to be touched.
bool make_plan(const char* name, field_image& image, const coff_form& form,
               const coff_header& header, uint64_t file_size, coff_plan& plan) {
    plan.sections_at = header_size(form) + header.f_opthdr;
    const uint64_t headers_end =
        plan.sections_at + uint64_t{header.f_nscns} * section_header_size(form);
    if (headers_end > image.bytes.size())
        return report_damage(name,
                             "f_opthdr %u and f_nscns %u: the headers reach to 0x%" PRIx64
                             ", past the end of the file, 0x%" PRIx64,
                             unsigned{header.f_opthdr}, unsigned{header.f_nscns}, headers_end,
                             file_size);
    image.at = plan.sections_at;
    plan.lines_at = lowest_line_pointer(image, form, header.f_nscns);

    int32_t cut_at = static_cast<int32_t>(header.f_symptr);
    if (plan.lines_at != 0)
        cut_at = std::min(cut_at, plan.lines_at);
    plan.cut_at = static_cast<uint32_t>(cut_at);
    const char* const field = plan.cut_at == header.f_symptr ? "f_symptr" : "s_lnnoptr";
    if (cut_at < 0 || plan.cut_at > file_size)
        return report_damage(name, "%s 0x%" PRIx32 " is outside the file, which ends at 0x%" PRIx64,
                             field, plan.cut_at, file_size);
    if (cut_at != 0 && plan.cut_at < headers_end)
        return report_damage(name,
                             "%s 0x%" PRIx32 " is inside the headers, which end at 0x%" PRIx64,
                             field, plan.cut_at, headers_end);
    plan.strings_at = header.f_symptr + uint64_t{form.sym_entry_size} * header.f_nsyms;
    if (plan.strings_at > UINT32_MAX)
        return report_damage(name,
                             "f_nsyms %" PRIu32 ": the string table would begin at 0x%" PRIx64
                             ", above 0xffffffff",
                             header.f_nsyms, plan.strings_at);
    return true;
}

// Takes the line numbers out of the section headers, each read where the one before ended.
void clear_line_numbers(field_image& image, const coff_form& form, const coff_header& header,
                        const coff_plan& plan) {
    image.at = plan.sections_at;
    for (unsigned i = 0; i < header.f_nscns; ++i) {
        const uint64_t start = image.at;
        coff_section section;
        layout_section(coff_reader{image, form}, section);
        section.addresses[s_lnnoptr] = 0;
        section.s_nlnno = 0;
        image.at = start;
        layout_section(coff_writer{image, form}, section);
    }
}

bool report_unread(const char* name) {
    gen_error("unable to read string table in %s", name);
    return false;
}

// The size word of the string table as it will be once the image is written, which may reach it; 0
// behind the end of the file. False after a report.
bool read_string_table_size(gen_stream& stream, const char* name, const field_image& image,
                            uint64_t at, uint32_t& size) {
    field_image word = read_field_image(stream, at, 4, image.big_endian);
    if (word.bytes.size() < 4)
        return stream.read_error == 0 || report_unread(name);
    for (uint64_t i = 0; i < 4 && at + i < image.changed_end; ++i)
        word.bytes[i] = image.bytes[at + i];
    size = word.get32();
    return true;
}

// Moves `size` bytes towards the start of the file. False after a report.
bool move_strings(gen_stream& stream, const char* name, const coff_plan& plan, uint64_t size,
                  const gen_block& piece) {
    if (size > stream.size - plan.strings_at)
        return report_unread(name);
    for (uint64_t done = 0; done < size && plan.strings_at != plan.cut_at;) {
        const uint64_t wanted = std::min(size - done, piece.size);
        gen_seek(stream, static_cast<int64_t>(plan.strings_at + done), GEN_SEEK_SET);
        if (gen_read_stream(stream, piece.bytes.get(), wanted) != wanted)
            return report_unread(name);
        gen_seek(stream, static_cast<int64_t>(plan.cut_at + done), GEN_SEEK_SET);
        if (gen_write_stream(stream, piece.bytes.get(), wanted) != wanted) {
            gen_error("unable to write string table in %s", name);
            return false;
        }
        done += wanted;
    }
    return true;
}

// The new length of the file, or nothing after a report.
std::optional<uint64_t> strip_in_place(gen_stream& stream, const char* name, const coff_form& form,
                                       const objinfo& info) {
    field_image first = read_field_image(stream, 0, header_size(form), form.big_endian);
    if (first.bytes.size() < header_size(form)) {
        report_damage(name,
                      "the file header of %" PRIu64 " bytes reaches past the end of the file, "
                      "0x%" PRIx64,
                      header_size(form), stream.size);
        return std::nullopt;
    }
    coff_header header;
    layout_header(coff_reader{first, form}, header);
    if (header.f_nsyms == 0) {
        gen_warning("%s has no symbols", name);
        return std::nullopt;
    }
    // Section headers may grow by a byte each when they are written back.
    const uint64_t head_size =
        header_size(form) + header.f_opthdr + header.f_nscns * (section_header_size(form) + 1);
    field_image image = read_field_image(stream, 0, head_size, form.big_endian);
    coff_plan plan;
    if (!make_plan(name, image, form, header, stream.size, plan))
        return std::nullopt;
    const bool has_symbols_at = header.f_symptr != 0;
    header.f_magic = static_cast<uint16_t>(info.machine);
    header.f_symptr = plan.cut_at;
    header.f_nsyms = 0;
    image.at = 0;
    layout_header(coff_writer{image, form}, header);
    if (plan.lines_at != 0)
        clear_line_numbers(image, form, header, plan);

    // Whatever can fail does so before the first write.
    uint32_t size = 0;
    if (has_symbols_at && plan.strings_at != 0 &&
        !read_string_table_size(stream, name, image, plan.strings_at, size))
        return std::nullopt;
    constexpr uint64_t piece_size = 256 * 1024;
    const gen_block piece = gen_new_block(std::min({uint64_t{size}, piece_size, stream.size}));
    if (!is_writable_up_to(stream, name,
                           std::max(image.changed_end, uint64_t{plan.cut_at} + size)) ||
        !write_field_image(stream, name, image) ||
        (size != 0 && !move_strings(stream, name, plan, size, piece)))
        return std::nullopt;
    return uint64_t{plan.cut_at} + size;
}

} // namespace

void coff_strip(gen_stream_ptr stream, const char* name, const objinfo& info, bool ti_coff,
                bool& coff_wide_counts) {
    const coff_form form = form_of(info, ti_coff, coff_wide_counts);
    const std::optional<uint64_t> length = strip_in_place(*stream, name, form, info);
    gen_safe_fclose(name, "executable", std::move(stream));
    if (length && gen_set_length(name, *length) != 0)
        gen_error("unable to shrink %s", name);
}
