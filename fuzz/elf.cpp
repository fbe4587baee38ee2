// A whole strip of an ELF file, from the options to the rename.
#include <algorithm>

#include "support/checks.h"
#include "support/elf_builder.h"

namespace {

using range = std::pair<uint64_t, uint64_t>; // start and end

// Whether nothing in the file is said to be in two places. Only then is the result sound, too: data
// that overlaps is laid out all the same.
bool is_well_formed(const std::string& file) {
    const bool is_64 = file.size() > 4 && file[4] == 2;
    if (file.size() < 64)
        return false;
    const uint64_t count = get_field(file, field::e_shnum);
    if (count > file.size() / 40 || get_field(file, field::e_shentsize) < (is_64 ? 64u : 40u))
        return false;
    // Names that stand in a table of symbols or relocations are rewritten with it.
    const uint64_t names = get_field(file, field::e_shstrndx);
    if (names >= count || get_field(file, field::sh_type, names) != sht::strtab)
        return false;
    std::vector<range> ranges = {{0, is_64 ? 64 : 52}};
    const auto claim = [&ranges](uint64_t start, uint64_t size) {
        if (size != 0)
            ranges.emplace_back(start, size > UINT64_MAX - start ? UINT64_MAX : start + size);
    };
    claim(get_field(file, field::e_shoff), count * get_field(file, field::e_shentsize));
    const uint64_t segment_size =
        std::max<uint64_t>(get_field(file, field::e_phentsize), is_64 ? 56 : 32);
    claim(get_field(file, field::e_phoff), get_field(file, field::e_phnum) * segment_size);
    for (uint64_t i = 0; i < count; ++i)
        if (get_field(file, field::sh_type, i) != sht::nobits)
            claim(get_field(file, field::sh_offset, i), get_field(file, field::sh_size, i));
    std::sort(ranges.begin(), ranges.end());
    for (size_t i = 1; i < ranges.size(); ++i)
        if (ranges[i].first < ranges[i - 1].second)
            return false;
    return count != 0 && ranges.back().second <= file.size();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size, "\177ELF");
    const auto [arguments, run, before, after] = strip_input(input, "prog.elf");

    const kept_file result = look_at_file("result");
    const bool is_stripped = run.status == 0 || (!run.is_fatal() && run.has_said(survived_error));
    require(is_stripped || after == before, run, "a refused file stays as it was");
    if (!(after == before))
        check_again("prog.elf", input.choice, is_well_formed(before.bytes));
    else if (result.exists() && is_stripped)
        check_again("result", input.choice, is_well_formed(before.bytes));
    clear_directory();
    return 0;
}
