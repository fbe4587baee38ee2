// Symbols: verdicts and emission in one pass over the table, in input order.
//
// A kept symbol moves down in the same array, since its new index is never above its old one.
#include "util/elfsymbols.h"

#include <cstring>
#include <optional>

#include "util/elfassert.h"

namespace {

// The STT_SECTION symbol of a section, 0 when it has none.
struct section_symbol {
    uint32_t index = 0;
    uint64_t value = 0;
};

enum class verdict {
    drop,
    keep,
    keep_by_rule // not subject to -s
};

struct rewrite_job {
    const strip_options& options;
    elf_image& image;
    const section_plan& plan;
    symbol_plan& symbols;
    const option_flags& flags = options.strip_flags;
    std::vector<section_symbol> section_symbols = {};
    name_judge keep = make_judge(options.keep_symbol_list, symbols.strings.old);
    name_judge strip = make_judge(options.strip_symbol_list, symbols.strings.old);
    bool shared_strings = false;
    std::vector<uint32_t> old_names = {}; // shared strings: every section's sh_name in the input
    std::vector<std::optional<uint32_t>> equal_names = {}; // ... and an st_name that says the same
    // The same for sections whose name is still to be placed.
    std::vector<uint32_t> section_names = {};
};

uint32_t section_count(const rewrite_job& job) {
    return static_cast<uint32_t>(job.image.sechead.size());
}

// Recorded for all symbols before the first verdict. Of two for one section the later counts.
void record_section_symbols(rewrite_job& job) {
    job.section_symbols.resize(job.image.sechead.size());
    const std::vector<elf_symbol>& symbols = job.symbols.symbols;
    for (uint32_t i = 0; i < symbols.size(); ++i) {
        if (elf_symbol_type(symbols[i]) != STT_SECTION)
            continue;
        elf_assert(symbols[i].st_shndx < section_count(job), ASSERT_SECTION_SYMBOL_INDEX);
        job.section_symbols[symbols[i].st_shndx] = {i, symbols[i].st_value};
    }
}

bool in_section(const rewrite_job& job, const elf_symbol& symbol) {
    return symbol.st_shndx > 0 && symbol.st_shndx < section_count(job);
}

// The rules that hold in every mode.
verdict judge_by_rule(rewrite_job& job, uint32_t index) {
    const elf_symbol& symbol = job.symbols.symbols[index];
    if (index == 0)
        return verdict::keep_by_rule;
    if (in_section(job, symbol) && job.plan.info[symbol.st_shndx].state == SECTION_REMOVED)
        return verdict::drop;
    if (elf_symbol_type(symbol) == STT_SECTION)
        return verdict::keep_by_rule;
    return is_named(job.keep, symbol.st_name) ? verdict::keep_by_rule : verdict::keep;
}

// -s: what no relocation names goes.
verdict judge_need(const rewrite_job& job, uint32_t index) {
    const elf_symbol& symbol = job.symbols.symbols[index];
    const std::vector<symbol_usage>& usage = job.symbols.usage;
    if (elf_symbol_type(symbol) == STT_FILE || usage.empty() || !usage[index].referenced)
        return verdict::drop;
    if (job.flags.keep_used_common && elf_symbol_type(symbol) == STT_COMMON)
        return verdict::keep_by_rule;
    return verdict::keep;
}

// Lets the section's symbol stand in for this one where every relocation can be made relative to
// the section. The stand-in has no new index yet if it comes later in the table; the relocations
// then go.
verdict convert_to_section(rewrite_job& job, uint32_t index) {
    const elf_symbol& symbol = job.symbols.symbols[index];
    symbol_usage& usage = job.symbols.usage[index];
    if (!in_section(job, symbol) || usage.nonsimple_reloc)
        return verdict::keep_by_rule;
    const section_symbol& stand_in = job.section_symbols[symbol.st_shndx];
    if (stand_in.index == 0)
        return verdict::keep_by_rule;
    job.symbols.new_index[index] = job.symbols.new_index[stand_in.index];
    usage.value_delta = static_cast<int64_t>(symbol.st_value - stand_in.value);
    usage.thumb_function = job.image.elfhead.e_machine == EM_ARM &&
                           elf_symbol_type(symbol) == STT_FUNC && symbol.st_size > 0 &&
                           (symbol.st_other & 1) != 0;
    return verdict::drop;
}

// What -s removes anyway is not sought in the strip list: that would be every name of the table,
// for nothing.
verdict judge(rewrite_job& job, uint32_t index) {
    verdict result = judge_by_rule(job, index);
    if (result != verdict::keep)
        return result;
    if (job.flags.strip_unneeded)
        result = judge_need(job, index);
    if (result != verdict::drop && is_named(job.strip, job.symbols.symbols[index].st_name))
        result = verdict::drop;
    if (result == verdict::keep && job.flags.strip_unneeded && job.flags.secrel_reloc)
        result = convert_to_section(job, index);
    return result;
}

// Shared strings: the section takes its name from its symbol.
void name_section_by_symbol(rewrite_job& job, const elf_symbol& symbol, uint32_t new_name) {
    elf_section_header& section = job.image.sechead[symbol.st_shndx];
    const char* name = job.image.shstrtab.text() + job.old_names[symbol.st_shndx];
    // A name that was found equal once is not compared again: there may be any number of symbols.
    std::optional<uint32_t>& equal = job.equal_names[symbol.st_shndx];
    elf_assert(equal == symbol.st_name ||
                   strcmp(name, job.symbols.strings.old.strings + symbol.st_name) == 0,
               ASSERT_SECTION_SYMBOL_NAME);
    equal = symbol.st_name;
    section.sh_name = new_name;
    job.section_names[symbol.st_shndx] = 0;
}

void emit(rewrite_job& job, uint32_t index, uint32_t new_index) {
    elf_symbol symbol = job.symbols.symbols[index];
    const uint32_t new_name = move_string(job.symbols.strings, symbol.st_name);
    if (job.shared_strings && elf_symbol_type(symbol) == STT_SECTION)
        name_section_by_symbol(job, symbol, new_name);
    symbol.st_name = new_name;
    if (symbol.st_shndx < section_count(job))
        symbol.st_shndx = job.plan.new_section_index[symbol.st_shndx];
    if (elf_symbol_binding(symbol) == STB_LOCAL)
        job.symbols.first_nonlocal = new_index + 1;
    job.symbols.new_index[index] = new_index;
    job.symbols.symbols[new_index] = symbol;
}

void begin_shared_strings(rewrite_job& job) {
    job.shared_strings =
        job.flags.strip_reloc && job.image.elfhead.e_shstrndx == job.plan.strtab_index;
    if (!job.shared_strings)
        return;
    job.old_names.resize(job.image.sechead.size());
    job.equal_names.resize(job.image.sechead.size());
    job.section_names.resize(job.image.sechead.size());
    for (size_t i = 0; i < job.section_names.size(); ++i) {
        job.old_names[i] = job.image.sechead[i].sh_name;
        if (i != 0 && job.plan.info[i].state != SECTION_REMOVED)
            job.section_names[i] = job.old_names[i];
    }
}

// Shared strings: the names of the sections that no symbol has named.
void place_section_names(rewrite_job& job) {
    string_move& strings = job.symbols.strings;
    const uint64_t room = job.image.sechead[job.plan.strtab_index].sh_size;
    for (size_t i = 1; i < job.section_names.size(); ++i) {
        if (job.section_names[i] == 0)
            continue;
        const char* name = job.image.shstrtab.text() + job.section_names[i];
        const uint64_t length = strlen(name) + 1;
        elf_assert(length <= room - strings.newstrsize, ASSERT_SECTION_NAME_ROOM);
        job.image.sechead[i].sh_name = append_string(strings, name, length);
    }
}

} // namespace

void rewrite_symbols(const strip_options& options, elf_image& image, const section_plan& plan,
                     symbol_plan& symbols) {
    rewrite_job job = {options, image, plan, symbols};
    record_section_symbols(job);
    begin_shared_strings(job);
    uint32_t new_count = 0;
    for (uint32_t i = 0; i < symbols.symbols.size(); ++i)
        if (judge(job, i) != verdict::drop)
            emit(job, i, new_count++);
    symbols.symbols.resize(new_count);
    place_section_names(job);
}

void prepare_symbol_output(elf_access& elf, const section_plan& plan, symbol_plan& symbols) {
    elf_assert(!symbols.symbols.empty(), ASSERT_NEWSYMBOLS);
    elf_symbols_for_output(elf, symbols.symbols,
                           plan.shndx_index != 0 ? &symbols.newshndx : nullptr);
}

uint64_t write_index_table(elf_access& elf, const char* name, gen_stream& output,
                           const elf_section_header& section, const symbol_plan& symbols) {
    elf_assert(symbols.newshndx.size() * 4 <= section.sh_size, ASSERT_NEWSHNDX_SIZE);
    return elf_write_words(elf, name, output, symbols.newshndx);
}

uint64_t write_string_table(const char* name, gen_stream& output, const elf_image& image,
                            const elf_section_header& section, const symbol_plan& symbols) {
    const uint64_t unit = alignment_unit(image);
    const uint64_t size = (symbols.strings.newstrsize + unit - 1) / unit * unit;
    elf_assert(size <= section.sh_size, ASSERT_NEWSTRTAB_SIZE);
    write_strings(name, output, symbols.strings, size);
    return size;
}
