// Options, the order in which they and files take effect, what is said about files that cannot be
// stripped, and the exit status.
#include <gtest/gtest.h>
#include <tuple>

#include "support/elf_builder.h"
#include "support/runner.h"

namespace {

const std::string usage =
    "usage: objtrim [options] [files]\n"
    "\t-a          remove all unallocated sections except .shstrtab (ELF only)\n"
    "\t-l          strip line number information only\n"
    "\t-r=secname  strip sections named secname\n"
    "\t-stripreloc enable stripping of relocatable objects and libraries\n"
    "\t-x          do not strip the symbol table\n"
    "\t-V          display the version number\n"
    "\t-help       display this message\n";
const std::string version = "Compiler v2023.5.4" + std::string(344, ' ') + "\n";
const std::string no_file = "objtrim: error: File argument required.\n";
const std::string not_known = "objtrim: error: file strange is not a known ELF type\n";

std::string unknown(const std::string& option) {
    return "objtrim: warning: unrecognized option, " + option + " (ignored)\n";
}

std::string sample() {
    return build_elf(sample_draft(elf_forms[0], false));
}

std::string repeated(int count, const std::string& word) {
    std::string line;
    while (count-- > 0)
        line += word + " ";
    return line;
}

struct run_case {
    std::string line;
    int status;
    std::string err;
};

// Files at hand: the ELF executables a and b, an ELF file of unknown machine, a relocatable one,
// and a directory.
void check_runs(const std::vector<run_case>& cases) {
    std::string strange = sample(), object = sample();
    set_field(strange, field::e_machine, 0xBEEF);
    set_field(object, field::e_type, et::rel);
    for (const auto& [line, status, err] : cases) {
        work_place place;
        for (const auto& [name, bytes] : {std::pair("a", sample()),
                                          {"b", sample()},
                                          {"strange", strange},
                                          {"object", object},
                                          {"dir/file", ""}})
            place.put(name, bytes);
        const run_result result = place.trim(line);
        EXPECT_EQ(result.status, status) << line;
        EXPECT_EQ(result.out + result.err, err) << line;
    }
}

TEST(driver, runs_without_files) {
    check_runs({
        {"-a -o=x -F", 1, no_file + usage},
        {"-V -V", 0, version + version},
        {"-help -bogus -help", 0, usage + unknown("-bogus")},
        {"-", 1, unknown("-") + usage + no_file},
        {"-prefixed_msgs", 1, "objtrim: ERROR: File argument required.\n" + usage},
        {"-prefixed_msgs -Vx -V", 0,
         "objtrim: WARNING: unrecognized option, -Vx (ignored)\n" + usage + version},
    });
}

TEST(driver, every_option_is_known_and_spelled_exactly) {
    check_runs({{"-prefixed_msgs -F -a -vxworks -x -l -o= -o=x -r= -r=x --remove-section=x "
                 "-wildcards_in_secnames -wl=x --keep-symbol=x -bl= --strip-symbol=x -s "
                 "--strip-unneeded --strip-orv-debug --convert-to-secrel-reloc "
                 "--keep-used-common --no-keep-used-common --update-dnm --dont-update-dnm "
                 "--idll -X1 -X2 -X3 -stripreloc -V",
                 0, version}});
    for (const char* wrong : {"-A", "-aa", "-r", "-o", "-wl", "--keep-symbol", "--idl", "-X4", "-S",
                              "-Stripreloc", "-Help", "--help", "-v", "--vxworks", "-f", "--"})
        check_runs({{std::string(wrong) + " -V", 0, unknown(wrong) + usage + version}});
}

TEST(driver, files_that_cannot_be_opened_end_the_run) {
    const std::string unable = "objtrim: fatal: Unable to open ",
                      absent = "No such file or directory\n";
    check_runs({
        {"-r gone a", 1, unknown("-r") + usage + unable + "executable 'gone' for input: " + absent},
        {"dir strange", 1, unable + "executable 'dir' for input: Is a directory\n"},
        {"-prefixed_msgs gone", 1,
         "objtrim: ERROR: FATAL: Unable to open executable 'gone' for input: " + absent},
        {"-o= a", 1, unable + "output file '' for output: " + absent},
    });
}

TEST(driver, options_that_exclude_each_other) {
    const std::string warning = "objtrim: warning: ";
    const std::string lines =
        warning + "Option l ignored due to the presence of the -vxworks option\n";
    const std::string secrel = warning + "Option --convert-to-secrel-reloc ignored as it requires "
                                         "presence of the --strip-unneeded option\n";
    const std::string no_debug = warning + "failed to find the .debug section in 'a'\n";
    check_runs({
        {"-l -vxworks a a", 0, lines + no_debug + no_debug},
        {"--convert-to-secrel-reloc a b", 0, secrel},
        {"--convert-to-secrel-reloc -s a", 0, ""},
        {"--idll a", 0, ""},
    });
}

TEST(driver, lists_are_full_at_their_limits) {
    const std::string fatal = "objtrim: fatal: Too many ";
    const std::string remove = fatal + "-r options, limit is 99\n";
    const std::string keep = fatal + "--keep-symbol= options, limit is 999\n";
    const std::string strip = fatal + "--strip-symbol= options, limit is 999\n";
    check_runs({
        {repeated(99, "-r=.x") + "a", 0, ""},
        {repeated(99, "-r=.x") + "--remove-section=.x -V", 1, remove},
        {repeated(98, "-r=.x") + "-l strange", 1, not_known},
        {repeated(98, "-r=.x") + "-l object", 1, remove},
        {repeated(79, "-r=.x") + "-x a", 0, ""}, // 18 names, one of them twice, and 2
        {repeated(80, "-r=.x") + "-x a", 1, remove},
        {repeated(77, "-r=.x") + "-s a", 0, ""},
        {repeated(78, "-r=.x") + "-s a", 1, remove},
        {repeated(994, "-wl=x") + "--idll -V", 0, version},
        {repeated(995, "-wl=x") + "--idll -V", 1, keep},
        {repeated(998, "-bl=x") + "--strip-orv-debug a", 0, ""},
        {repeated(999, "-bl=x") + "--strip-orv-debug a", 1, strip},
    });
}

// The first ELF file settles the options; what follows it is still heard, after the usage text.
TEST(driver, options_act_on_the_files_behind_them) {
    const std::string object = "objtrim: error: Unable to strip relocatable ELF file 'object'\n";
    check_runs({
        {"a -x -bogus b", 0, usage + unknown("-bogus")},
        {"-bogus a -x", 0, unknown("-bogus") + usage},
        {"strange -l a", 1, not_known},
        {"object -l a", 1, object + usage},
    });
    work_place place;
    for (const char* name : {"a", "b", "c", "d"})
        place.put(name, sample());
    EXPECT_EQ(place.trim("a -x b -r=.comment c -a gone d").status, 1);
    const elf_draft draft = sample_draft(elf_forms[0], false);
    std::set<std::string> removed = sample_removed;
    EXPECT_EQ(difference(place.get("a"), build_stripped(draft, removed)), "");
    EXPECT_EQ(difference(place.get("b"), build_stripped(draft, removed)), "");
    removed.insert(".comment");
    EXPECT_EQ(difference(place.get("c"), build_stripped(draft, removed)), "");
    EXPECT_EQ(difference(place.get("d"), build_elf(draft)), "");
}

TEST(driver, files_of_other_kinds_are_refused_and_the_run_goes_on) {
    const std::string not_coff = "objtrim: error: file 'f' is not COFF/ELF\n";
    const std::string not_bsd = "objtrim: error: file 'f' is not BSD/COFF/ELF\n";
    const std::string no_target = "objtrim: error: file f is not a known ELF type\n";
    const std::string returns =
        "objtrim: error: archive file '<unknown>' has had carriage-returns (\\r)\n"
        "\tinserted before new-lines (\\n) and is unusable.\n"
        "\tNOTE: This can be caused by some Windows archive managers, which\n"
        "\tcan corrupt binary files unless automatic CR/LF conversion is\n"
        "\texplicitly disabled.\n";
    std::string far_header =
        "MZ" + std::string(58, '\0') + "\xff\xff\xff\x7f" + std::string(64, 'x');
    std::string no_signature = "MZ" + std::string(58, '\0') + std::string("@\0\0\0", 4) + "PE\0x";
    std::string no_class = sample();
    no_class[4] = 3;
    const std::tuple<std::string, std::string, std::string> cases[] = {
        // contents, what is said before any ELF file, and what after one
        {"", not_coff, not_coff},
        {"hello, world\n", not_coff, not_coff},
        {std::string("\0\0\1\7", 4) + std::string(60, '\0'), not_coff, not_coff}, // a.out
        {"!<elfa>\n", not_coff, not_coff},
        {"<aiaff>\n", not_coff, not_coff},
        {"!<arch>\r\n", returns + not_coff, returns + not_coff},
        {"!<arcade", not_coff, no_target}, // the kind is left over from the file before
        {far_header, not_bsd, not_bsd},
        {no_signature, not_bsd, not_bsd},
        {no_class, no_target, no_target},
        {sample().substr(0, 18), no_target, no_target},
    };
    for (const auto& [bytes, alone, after] : cases) {
        work_place place;
        place.put("f", bytes);
        place.put("a", sample());
        file_state before = place.state("f");
        SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 20)));
        run_result result = place.trim("f a f");
        EXPECT_EQ(result.err, alone + after);
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(place.state("f") == before);
        EXPECT_NE(place.get("a"), sample());
    }
}

} // namespace
