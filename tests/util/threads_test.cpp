// The strip of a file depends on nothing but what it is handed: files that are stripped in four
// threads at once come out as those that are stripped one after the other, with the same words.
#include <thread>

#include "shared/genmessage.h"
#include "support/child.h"
#include "support/dnm_builder.h"
#include "support/symbol_builder.h"
#include "util/elfstrip.h"

namespace {

constexpr size_t file_count = 48;

// Of all forms; some are damaged.
std::string file_at(size_t i) {
    symbol_draft symbols{.entries = "T lS .text; main gF .text 16 8; s.c lf ABS; undef gN ''; "
                                    "@.rela.text 4 1 main 7; @.rel.text 2 1 T",
                         .elf = base_draft(elf_forms[i % 4])};
    std::string file = i % 3 ? build_symbols(symbols) : build_elf(sample_draft(elf_forms[i % 4]));
    if (i % 5 == 0)
        set_field(file, field::sh_name, UINT32_MAX, 1);
    return file;
}

struct threads : placed_test {
    // Of each file, what was said of it, its bytes, and those of its map.
    words strip_all(const strip_options& options, size_t thread_count) {
        for (size_t i = 0; i < file_count; ++i) {
            place.put(std::to_string(i), file_at(i));
            if (i % 4 == 3)
                place.put(std::to_string(i) + ".dnm", build_dnm(sample_dnm(int(10 + i % 35))));
        }
        words results(file_count);
        std::vector<std::jthread> workers;
        while (workers.size() < thread_count)
            workers.emplace_back([&, first = workers.size()] {
                gen_message_sink sink;
                gen_use_sink(sink);
                gen_temp_space space = {temp_counter};
                for (size_t i = first; i < file_count; i += thread_count) {
                    const std::string name = std::to_string(i);
                    sink.gathered = &results[i];
                    elf_strip(options, space, gen_open(name.c_str(), "rb+"), name.c_str());
                    results[i] += place.get(name) + place.get(name + ".dnm");
                }
            });
        workers.clear();
        return results;
    }
};

TEST_F(threads, four_make_what_one_makes) {
    for (const char* line : {"-a", "", "-x -bl=*e", "-s --convert-to-secrel-reloc -wl=*i*"}) {
        strip_options options;
        const words arguments = split(line);
        for (const std::string& argument : arguments)
            parse_option(options, argument.c_str());
        reconcile_options(options);
        const words alone = strip_all(options, 1);
        EXPECT_FALSE(alone[4].starts_with(file_at(4))) << line;
        for (int round = 0; round < 4; ++round) {
            const words together = strip_all(options, 4);
            for (size_t i = 0; i < file_count; ++i)
                EXPECT_TRUE(alone[i] == together[i]) << "'" << line << "' of file " << i;
        }
    }
}

} // namespace
