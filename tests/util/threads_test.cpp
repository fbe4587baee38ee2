// The strip of a file depends on nothing but what it is handed: files that are stripped in four
// threads at once come out as those that are stripped one after the other, with the same words.
#include <atomic>
#include <map>
#include <thread>

#include "objfile/objident.h"
#include "shared/genmessage.h"
#include "support/child.h"
#include "support/coff_builder.h"
#include "support/dnm_builder.h"
#include "support/symbol_builder.h"
#include "util/coffstrip.h"
#include "util/elfstrip.h"
#include "util/pestrip.h"

namespace {

// Some are damaged.
std::map<std::string, std::string> files_of_all_kinds() {
    std::map<std::string, std::string> files;
    for (size_t i = 0; i < 48; ++i) {
        const std::string name = "f" + std::to_string(i),
                          entries = "T lS .text; main gF .text 16 8; s.c lf ABS; wide wF .text 8; "
                                    "undef gN ''; @.rela.text 4 1 main 7; @.rel.text 2 1 T";
        symbol_draft symbols{.entries = entries, .elf = base_draft(elf_forms[i % 4])};
        files[name] = i % 3 ? build_symbols(symbols) : build_elf(sample_draft(elf_forms[i % 4]));
        if (i % 5 == 0)
            set_field(files[name], field::sh_name, UINT32_MAX, 1);
        if (i % 4 == 3)
            files[name + ".dnm"] = build_dnm(sample_dnm(int(10 + i % 35)));
        files[name + "_coff"] = build_coff({.big_endian = i % 2 != 0}).bytes;
        files[name + "_pe"] = build_pe({.magic = i % 2 ? 0x20Bu : 0x10Bu}).bytes;
    }
    return files;
}

void strip_file(const strip_options& options, gen_temp_space& temp, const std::string& name) {
    obj_history history;
    bool coff_wide_counts = false;
    gen_stream_ptr stream = gen_open(name.c_str(), "rb+");
    const objinfo* const info = obj_identify(history, stream.get(), nullptr);
    if (info->kind == OBJ_ELF)
        elf_strip(options, temp, std::move(stream), name.c_str());
    else if (info->kind == OBJ_PECOFF)
        pecoff_strip(std::move(stream), name.c_str(), *info);
    else
        coff_strip(std::move(stream), name.c_str(), *info, history.ti_coff, coff_wide_counts);
}

using outcome = std::map<std::string, std::string>; // of each file: the bytes; and what was said

struct threads : placed_test {
    outcome strip_all(const strip_options& options, unsigned thread_count) {
        words names;
        for (const auto& [name, bytes] : files_of_all_kinds()) {
            place.put(name, bytes);
            if (!name.ends_with(".dnm"))
                names.push_back(name);
        }
        words said(names.size());
        std::atomic<size_t> next = 0;
        std::vector<std::jthread> workers;
        while (workers.size() < thread_count)
            workers.emplace_back([&] {
                gen_message_sink sink;
                gen_use_sink(sink);
                gen_temp_space space = {temp_counter};
                for (size_t i; (i = next++) < names.size();) {
                    sink.gathered = &said[i];
                    strip_file(options, space, names[i]);
                }
            });
        workers.clear();
        outcome result;
        for (size_t i = 0; i < names.size(); ++i)
            result["said of " + names[i]] = said[i];
        for (const std::string& name : place.list())
            result[name] = place.get(name);
        return result;
    }
};

TEST_F(threads, four_make_what_one_makes) {
    for (const char* line : {"-a", "", "-x -bl=*e", "-s --convert-to-secrel-reloc -wl=*i*"}) {
        strip_options options;
        const words arguments = split(line);
        for (const std::string& argument : arguments)
            parse_option(options, argument.c_str());
        reconcile_options(options);
        const outcome alone = strip_all(options, 1);
        EXPECT_TRUE(alone.at("f4") != files_of_all_kinds().at("f4")) << line;
        for (int round = 0; round < 4; ++round)
            for (const auto& [name, expected] : strip_all(options, 4))
                EXPECT_TRUE(alone.contains(name) && alone.at(name) == expected)
                    << "'" << line << "' " << name;
    }
}

} // namespace
