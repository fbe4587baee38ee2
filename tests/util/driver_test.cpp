// Options, the order in which they and files take effect, what is said about files that cannot be
// stripped, and the exit status.
#include <gtest/gtest.h>
#include <map>
#include <tuple>

#include "support/coff_builder.h"
#include "util/version.h"

using namespace std::string_literals;

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
const std::string unable = "objtrim: fatal: Unable to open ";
const std::string absent = "No such file or directory\n";

std::string unknown(const std::string& option) {
    return "objtrim: warning: unrecognized option, " + option + " (ignored)\n";
}

std::string not_a(const std::string& file, const std::string& what) {
    return "objtrim: error: file " + file + " is not " + what + "\n";
}

std::string repeated(int count, const std::string& word) {
    std::string line;
    while (count-- > 0)
        line += word + " ";
    return line;
}

std::map<std::string, std::string> files_at_hand() {
    const std::string elf = build_elf(sample_draft(elf_forms[0], false));
    const std::string mz = "MZ" + std::string(58, '\0');
    std::map<std::string, std::string> files = {
        {"a", elf},
        {"b", elf},
        {"strange", elf},
        {"object", elf},
        {"no_class", elf},
        {"coff", build_coff({}).bytes},
        {"xcoff", build_coff({.magic = "\x01\xDF", .big_endian = true}).bytes},
        {"pe", build_pe({}).bytes},
        {"empty", ""},
        {"text", "hello, world\n"},
        {"elfa", "!<elfa>\n"},
        {"imitated", "!<arcade"},
        {"returns", "!<arch>\r\n"},
        {"far_header", mz + "\xff\xff\xff\x7f" + std::string(64, 'x')},
        {"no_signature", mz + std::string("@\0\0\0PE\0x", 8)},
    };
    set_field(files["strange"], field::e_machine, 0xBEEF);
    set_field(files["object"], field::e_type, et::rel);
    files["no_class"][4] = 3;
    return files;
}

struct run_case {
    std::string line;
    int status;
    std::string said;
    std::string changed = ""; // files
};

void check_runs(const std::vector<run_case>& cases) {
    for (const auto& [line, status, said, changed] : cases) {
        work_place place;
        for (const auto& [name, bytes] : files_at_hand())
            place.put(name, bytes);
        place.put("dir/file", "");
        SCOPED_TRACE(line.substr(0, 90));
        const run_result result = place.trim(line);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out + result.err, said);
        std::string differing;
        for (const auto& [name, bytes] : files_at_hand())
            if (place.get(name) != bytes)
                differing += (differing.empty() ? "" : " ") + name;
        EXPECT_EQ(differing, changed);
    }
}

TEST(driver, every_option_is_known_and_spelled_exactly) {
    std::string wrong, said;
    for (const char* option : {"-",
                               "-A",
                               "-aa",
                               "-r",
                               "-o",
                               "-wl",
                               "-bl",
                               "--keep-symbol",
                               "--strip-symbol",
                               "--remove-section",
                               "--idl",
                               "-X4",
                               "-S",
                               "-Vx",
                               "-Stripreloc",
                               "-Help",
                               "--help",
                               "-v",
                               "--vxworks",
                               "-f",
                               "--"}) {
        wrong += std::string(option) + " ";
        said += unknown(option) + (said.empty() ? usage : "");
    }
    check_runs({
        {"-prefixed_msgs -F -a -vxworks -x -l -o= -o=x -r= -r=x --remove-section=x "
         "-wildcards_in_secnames -wl=x --keep-symbol=x -bl= --strip-symbol=x -s --strip-unneeded "
         "--strip-orv-debug --convert-to-secrel-reloc --keep-used-common --no-keep-used-common "
         "--update-dnm --dont-update-dnm --idll -X1 -X2 -X3 -stripreloc -V",
         0, version},
        {wrong + "-V", 0, said + version},
        {wrong, 1, said + no_file},
        {"-a -o=x -F", 1, no_file + usage},
        {"-V -V", 0, version + version},
        {"-help -bogus -help", 0, usage + unknown("-bogus")},
        {"-prefixed_msgs", 1, "objtrim: ERROR: File argument required.\n" + usage},
        {"-prefixed_msgs -Vx -V", 0,
         "objtrim: WARNING: unrecognized option, -Vx (ignored)\n" + usage + version},
    });
}

TEST(driver, files_that_cannot_be_opened_end_the_run) {
    check_runs({
        {"-r gone a", 1, unknown("-r") + usage + unable + "executable 'gone' for input: " + absent},
        {"a gone b", 1, unable + "executable 'gone' for input: " + absent, "a"},
        {"dir a", 1, unable + "executable 'dir' for input: Is a directory\n"},
        {"-prefixed_msgs gone", 1,
         "objtrim: ERROR: FATAL: Unable to open executable 'gone' for input: " + absent},
        {"-o= a", 1, unable + "output file '' for output: " + absent},
    });
}

TEST(driver, options_that_exclude_each_other) {
    const std::string warning = "objtrim: warning: ";
    const std::string secrel = warning + "Option --convert-to-secrel-reloc ignored as it requires "
                                         "presence of the --strip-unneeded option\n";
    const std::string no_debug = warning + "failed to find the .debug section in 'a'\n";
    check_runs({
        {"-l -vxworks a a", 0,
         warning + "Option l ignored due to the presence of the -vxworks option\n" + no_debug +
             no_debug},
        {"--convert-to-secrel-reloc a b", 0, secrel, "a b"},
        {"--convert-to-secrel-reloc -s a", 0, "", "a"},
        {"--idll a", 0, "", "a"},
    });
}

TEST(driver, lists_are_full_at_their_limits) {
    const std::string fatal = "objtrim: fatal: Too many ";
    const std::string remove = fatal + "-r options, limit is 99\n";
    const std::string keep = fatal + "--keep-symbol= options, limit is 999\n";
    const std::string strip = fatal + "--strip-symbol= options, limit is 999\n";
    const std::string not_known = not_a("strange", "a known ELF type");
    check_runs({
        {repeated(99, "-r=.x") + "a", 0, ""},
        {repeated(99, "-r=.x") + "--remove-section=.x -V", 1, remove},
        {repeated(98, "-r=.x") + "-l strange", 1, not_known},
        {repeated(98, "-r=.x") + "-l object", 1, remove},
        {repeated(79, "-r=.x") + "-x a", 0, "", "a"}, // 18 names, one of them twice, and 2
        {repeated(80, "-r=.x") + "-x a", 1, remove},
        {repeated(77, "-r=.x") + "-s a", 0, "", "a"},
        {repeated(78, "-r=.x") + "-s a", 1, remove},
        {repeated(994, "-wl=x") + "--idll -V", 0, version},
        {repeated(995, "-wl=x") + "--idll -V", 1, keep},
        {repeated(998, "-bl=x") + "--strip-orv-debug a", 0, "", "a"},
        {repeated(999, "-bl=x") + "--strip-orv-debug a", 1, strip},
    });
}

// The first ELF file settles the options; what follows it is still heard, after the usage text.
TEST(driver, options_act_on_the_files_behind_them) {
    const std::string object = "objtrim: error: Unable to strip relocatable ELF file 'object'\n";
    check_runs({
        {"a -x -bogus b", 0, usage + unknown("-bogus"), "a b"},
        {"-bogus a -x", 0, unknown("-bogus") + usage, "a"},
        {"strange -l a", 1, not_a("strange", "a known ELF type"), "a"},
        {"object -l a", 1, object + usage, "a"},
    });
    const elf_draft draft = sample_draft(elf_forms[0], false);
    const std::string file = build_elf(draft), stripped = build_stripped(draft, sample_removed);
    std::set<std::string> removed = sample_removed;
    removed.insert(".comment");
    work_place place;
    for (const char* name : {"a", "b", "c", "d"})
        place.put(name, file);
    EXPECT_EQ(place.trim("a -x b -r=.comment c -a gone d").status, 1);
    for (const auto& [name, expected] : {std::pair("a", stripped),
                                         {"b", stripped},
                                         {"c", build_stripped(draft, removed)},
                                         {"d", file}})
        EXPECT_EQ(difference(place.get(name), expected), "") << name;
}

TEST(driver, files_of_other_kinds_are_refused_and_the_run_goes_on) {
    const std::string returns =
        "objtrim: error: archive file '<unknown>' has had carriage-returns (\\r)\n"
        "\tinserted before new-lines (\\n) and is unusable.\n"
        "\tNOTE: This can be caused by some Windows archive managers, which\n"
        "\tcan corrupt binary files unless automatic CR/LF conversion is\n"
        "\texplicitly disabled.\n";
    check_runs({
        {"coff xcoff pe", 0, "", "coff pe xcoff"},
        {"returns", 1, returns + not_a("'returns'", "COFF/ELF")},
        {"empty text elfa imitated a", 1,
         not_a("'empty'", "COFF/ELF") + not_a("'text'", "COFF/ELF") + not_a("'elfa'", "COFF/ELF") +
             not_a("'imitated'", "COFF/ELF"),
         "a"},
        {"a imitated", 1, not_a("imitated", "a known ELF type"), "a"}, // the kind is left from a
        {"far_header no_signature no_class a", 1,
         not_a("'far_header'", "BSD/COFF/ELF") + not_a("'no_signature'", "BSD/COFF/ELF") +
             not_a("no_class", "a known ELF type"),
         "a"},
    });
}

// Blanks fill each stamp up to 383 characters with its mark, and less what is left out.
TEST(driver, version_stamps) {
    const std::string field = "@(#)Orvale Software, Compiler v2023.5.4";
    const std::tuple<std::string (*)(int), int, std::string, size_t> rows[] = {
        {version_stamp, 0, field, 383},
        {version_stamp, 4, field, 383},
        {version_stamp, 1, field.substr(4), 379},
        {version_stamp, 2, field.substr(21), 362},
        {version_stamp, 3, field.substr(21), 362},
        {customer_stamp, 1, "[Customer version stamp space]", 379},
        {customer_stamp, 3, "", 0},
        {directory_stamp, 3, "[Directory] src/util", 379},
        {version_control_stamp, 3, "[VCInfo] objtrim", 379},
    };
    for (const auto& [stamp, mode, text, size] : rows)
        EXPECT_EQ(stamp(mode), text + std::string(size - text.size(), ' ')) << mode;
}

} // namespace
