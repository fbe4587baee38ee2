// Options, the order in which they and files take effect, what is said about files that cannot be
// stripped, and the exit status.
#include <gtest/gtest.h>
#include <map>

#include "support/coff_builder.h"
#include "support/table.h"
#include "util/version.h"

namespace {

const std::map<std::string, std::string> long_messages = {
    {"USAGE", "usage: objtrim [options] [files]\n"
              "\t-a          remove all unallocated sections except .shstrtab (ELF only)\n"
              "\t-l          strip line number information only\n"
              "\t-r=secname  strip sections named secname\n"
              "\t-stripreloc enable stripping of relocatable objects and libraries\n"
              "\t-x          do not strip the symbol table\n"
              "\t-V          display the version number\n"
              "\t-help       display this message\n"},
    {"VERSION", "Compiler v2023.5.4" + std::string(344, ' ') + "\n"},
    {"FULL", "objtrim: fatal: Too many -r options, limit is 99\n"},
    {"GONE", "objtrim: fatal: Unable to open executable 'gone' for input: "
             "No such file or directory\n"},
    {"RETURNS", "objtrim: error: archive file '<unknown>' has had carriage-returns (\\r)\n"
                "\tinserted before new-lines (\\n) and is unusable.\n"
                "\tNOTE: This can be caused by some Windows archive managers, which\n"
                "\tcan corrupt binary files unless automatic CR/LF conversion is\n"
                "\texplicitly disabled.\n"},
};

std::map<std::string, std::string> files_at_hand() {
    const std::string elf = build_elf(sample_draft(elf_forms[0], false)),
                      mz = "MZ" + std::string(58, '\0');
    std::map<std::string, std::string> files = {{"empty", ""}, {"elfa", "!<elfa>\n"}};
    files["text"] = "hello, world\n";
    files["imitated"] = "!<arcade";
    files["returns"] = "!<arch>\r\n";
    files["coff"] = build_coff({}).bytes;
    files["xcoff"] = build_coff({.magic = "\x01\xDF", .big_endian = true}).bytes;
    files["pe"] = build_pe({}).bytes;
    files["far_header"] = mz + "\xff\xff\xff\x7f" + std::string(64, 'x');
    files["no_signature"] = mz + std::string("@\0\0\0PE\0x", 8);
    for (const char* name : {"a", "b", "strange", "object", "no_class"})
        files[name] = elf;
    set_field(files["strange"], field::e_machine, 0xBEEF);
    set_field(files["object"], field::e_type, et::rel);
    files["no_class"][4] = 3;
    return files;
}

// In each row: the command line, where "3*x" stands for "x x x"; the status; the files that have
// changed; and the messages, without the program's name. "?" is before options that are unknown.
void check_runs(const std::string& table) {
    for (const words& row : rows_of(table)) {
        std::string line, said, changed;
        for (const std::string& word : split(row[0]))
            for (int i = 0; i < std::max(atoi(word.c_str()), 1); ++i)
                line += word.substr(isdigit(word[0]) ? word.find('*') + 1 : 0) + " ";
        for (const std::string& message : parts_of(row[3], ';'))
            if (long_messages.contains(message))
                said += long_messages.at(message);
            else if (message.starts_with("?"))
                for (const std::string& option : split(message.substr(1)))
                    said += "objtrim: warning: unrecognized option, " + option + " (ignored)\n";
            else
                said += "objtrim: " + message + "\n";
        work_place place;
        for (const auto& [name, bytes] : files_at_hand())
            place.put(name, bytes);
        place.put("dir/file", "");
        const run_result result = place.trim(line);
        EXPECT_EQ(result.status, atoi(row[1].c_str())) << row[0];
        EXPECT_EQ(result.out + result.err, said) << row[0];
        for (const auto& [name, bytes] : files_at_hand())
            if (place.get(name) != bytes)
                changed += (changed.empty() ? "" : " ") + name;
        EXPECT_EQ(changed, row[2]) << row[0];
    }
}

TEST(driver, every_option_is_known_and_spelled_exactly) {
    check_runs(R"(
        > -prefixed_msgs -F -a -vxworks -x -l -o= -o=x -r= -r=x --remove-section=x
          -wildcards_in_secnames -wl=x --keep-symbol=x -bl= --strip-symbol=x -s --strip-unneeded
          --strip-orv-debug --convert-to-secrel-reloc --keep-used-common --no-keep-used-common
          --update-dnm --dont-update-dnm --idll -X1 -X2 -X3 -stripreloc -V | 0 | | VERSION
        > -A -aa -r -o -wl -bl --keep-symbol --strip-symbol --remove-section --idl -X4 -S -Vx
          -Stripreloc -Help --help -v --vxworks -f -- -help= -V= -V | 0 | | ?-A; USAGE; ?-aa -r -o
          -wl -bl --keep-symbol --strip-symbol --remove-section --idl -X4 -S -Vx -Stripreloc -Help
          --help -v --vxworks -f -- -help= -V=; VERSION > -help -bogus -help | 0 | | USAGE; ?-bogus
        > - | 1 | | ?-; USAGE; error: File argument required. > -V -V | 0 | | VERSION; VERSION
        > -a -o=x -F | 1 | | error: File argument required.; USAGE
        > -prefixed_msgs | 1 | | ERROR: File argument required.; USAGE
        > -V -prefixed_msgs -l -vxworks a | 0 | | VERSION; WARNING: Option l ignored due to the
          presence of the -vxworks option; WARNING: failed to find the .debug section in 'a')");
}

// 18 names for debugging, one of them twice, and 2 for line numbers, and 2 of the tool chain.
TEST(driver, lists_are_full_at_their_limits) {
    check_runs(R"(
        > 99*-r=.x a | 0 > 98*-r=.x -l strange | 1 | | error: file strange is not a known ELF type
        > 99*-r=.x --remove-section=.x -V | 1 | | FULL > 998*-bl=x --strip-orv-debug a | 0 | a
        > 98*-r=.x -l object | 1 | | FULL > 994*-wl=x --idll -V | 0 | | VERSION
        > 79*-r=.x -x a | 0 | a > 80*-r=.x -x a | 1 | | FULL > 78*-r=.x -s a | 1 | | FULL
        > 77*-r=.x -s a | 0 | a
        > 995*-wl=x --idll -V | 1 | | fatal: Too many --keep-symbol= options, limit is 999
        > 999*-bl=x --strip-orv-debug a | 1 | | fatal: Too many --strip-symbol= options, limit is
          999)");
}

// The first ELF file settles the options; what follows it is still heard, after the usage text.
TEST(driver, options_act_on_the_files_behind_them_and_exclude_each_other) {
    check_runs(R"(
        > a -x -bogus b | 0 | a b | USAGE; ?-bogus > --convert-to-secrel-reloc -s a | 0 | a
        > -bogus a -x | 0 | a | ?-bogus; USAGE > --idll a | 0 | a
        > strange -l a | 1 | a | error: file strange is not a known ELF type
        > object -l a | 1 | a | error: Unable to strip relocatable ELF file 'object'; USAGE
        > -l -vxworks a a | 0 | | warning: Option l ignored due to the presence of the -vxworks
          option; warning: failed to find the .debug section in 'a'; warning: failed to find the
          .debug section in 'a'
        > --convert-to-secrel-reloc a b | 0 | a b | warning: Option --convert-to-secrel-reloc
          ignored as it requires presence of the --strip-unneeded option)");
    const work_place place;
    for (const char* name : {"a", "b"})
        place.put(name, files_at_hand()["a"]);
    EXPECT_EQ(place.trim("a -r=.comment b").status, 0);
    EXPECT_NE(section_content(place.get("a"), ".comment"), "");
    EXPECT_EQ(section_content(place.get("b"), ".comment"), "");
}

// The kind of a file that imitates an archive is left over from the file before.
TEST(driver, files_of_other_kinds_are_refused_and_those_that_do_not_open_end_the_run) {
    check_runs(R"(
        > -r gone a | 1 | | ?-r; USAGE; GONE > coff xcoff pe | 0 | coff pe xcoff
        > a gone b | 1 | a | GONE > returns | 1 | | RETURNS; error: file 'returns' is not COFF/ELF
        > dir a | 1 | | fatal: Unable to open executable 'dir' for input: Is a directory
        > -prefixed_msgs gone | 1 | | ERROR: FATAL: Unable to open executable 'gone' for input: No
          such file or directory
        > -o= a | 1 | | fatal: Unable to open output file '' for output: No such file or directory
        > empty text elfa imitated a imitated | 1 | a | error: file 'empty' is not COFF/ELF; error:
          file 'text' is not COFF/ELF; error: file 'elfa' is not COFF/ELF; error: file 'imitated' is
          not COFF/ELF; error: file imitated is not a known ELF type
        > far_header no_signature no_class a | 1 | a | error: file 'far_header' is not BSD/COFF/ELF;
          error: file 'no_signature' is not BSD/COFF/ELF; error: file no_class is not a known ELF
          type
        > -F text a | 1 | a | error: file 'text' is damaged: the file header of 20 bytes reaches
          past the end of the file, 0xd)");
}

// Blanks fill each stamp up to 383 characters with its mark, and less what is left out. A stamp
// that is patched in the program's file is the one that it shows.
TEST(driver, version_stamps) {
    const std::string field = "@(#)Orvale Software, Compiler v2023.5.4";
    const auto trimmed = [](const std::string& text) {
        return text.substr(0, text.find_last_not_of(' ') + 1) + "|" + std::to_string(text.size());
    };
    EXPECT_EQ(trimmed(version_stamp(4)), field + "|383");
    EXPECT_EQ(trimmed(customer_stamp(1)), "[Customer version stamp space]|379");
    EXPECT_EQ(trimmed(customer_stamp(3)), "|0");
    if (!host_has_tools)
        return;
    const work_place place;
    std::string program = read_file(OBJTRIM_PROGRAM);
    program.replace(program.find(field), field.size(), "@(#)Orvale Software, Version 2023.5.4  ");
    place.put("patched", program, 0755);
    EXPECT_EQ(place.command("./patched -V").err, "Version 2023.5.4" + std::string(346, ' ') + "\n");
}

} // namespace
