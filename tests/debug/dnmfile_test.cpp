// Debug-name-map files: read, checked and written back, with every message.
#include <sstream>

#include "debug/dnmfile.h"
#include "shared/genmessage.h"
#include "support/child.h"
#include "support/dnm_builder.h"

namespace {

struct dnmfile : placed_test {
    dnmfile() { gen_sink().gathered = &said; }
    ~dnmfile() override { gen_sink().gathered = nullptr; }

    std::unique_ptr<dnm_map> read(const std::string& bytes) {
        said.clear();
        place.put("d/p.dnm", bytes);
        return STDnm_Read("d/p.dnm");
    }
    // What is read is written with the same bytes, those of `expected`.
    void expect_written(const dnm_file& file, const dnm_file& expected) {
        const std::unique_ptr<dnm_map> map = read(build_dnm(file));
        ASSERT_TRUE(map) << said;
        EXPECT_EQ(STDnm_Write(*map, temp), 0);
        EXPECT_TRUE(place.get("d/p.dnm") == build_dnm(in_written_order(expected)));
    }
    std::string said;
};

TEST_F(dnmfile, every_version_mode_and_encoding_is_written_as_it_was) {
    for (int i = 0; i < 35 * 4 * 2; ++i) {
        const int version = 10 + i % 35, mode = std::array{2, 66, 4, 8}[i / 35 % 4];
        const bool compressed = i >= 140, filled = i % 4 != 0;
        SCOPED_TRACE(testing::Message() << version << " " << mode << compressed << filled);
        const dnm_file file = sample_dnm(version, filled, mode, compressed);
        dnm_file expected = file;
        expected.head["compressed"] = compressed || !filled;
        expect_written(file, expected);
        EXPECT_EQ(said.ends_with(" 44, which is the development version\n"), version == 44) << said;
    }
}

TEST_F(dnmfile, fields_that_are_not_written_as_they_were_read) {
    std::istringstream rows("31 text 0 1 25 text 15 15 28 text 34 2 30 text 47 47 32 text 16 16 "
                            "42 flags 254 2 42 flags 255 3 42 flags 253 253 43 flags 255 255 "
                            "43 prologue 0 1 43 kind 9 3 43 compressed 7 1 43 encoding 2 4 "
                            "43 tables 40 36 26 level 2 0");
    std::string field;
    for (int version = 0, value = 0, written = 0; rows >> version >> field >> value >> written;) {
        SCOPED_TRACE(field + " " + std::to_string(value));
        dnm_file file = sample_dnm(version), expected = file;
        file.head[field] = value;
        expected.head[field] = written;
        expect_written(file, expected);
    }
}

// Version, where ("head", or the number of a table), field, value, the position where reading then
// fails (0: it does not), and what is said before that.
const char* const rules = R"(
43 head magic 2135904855 1; 43 head prologue 2 1; 43 head level 3 1; 43 head reserved 1 1;
43 head descriptors 1 1 error: GFile desciptors not supported;
43 head version 9 2 old 9, which is no longer supported;
43 head version 45 2 old 45, this utility only supports up to version 43;
43 head encoding 3 0 mode; 43 head mode 3 0 mode; 43 head type 3 0; 43 head tables 76 0;
43 head endian 2 2 bad endian flag (2); 43 head format 4 2 bad object module format (4);
43 head type 4 2 bad object module type (4); 43 head text 1 0; 43 head text 32 0; 43 head data 1 0;
43 head text 0 2 bad bytes per text address unit (0);
43 head data 33 2 bad bytes per data address unit (33);
43 head abi 8 2 bad C++ ABI style (8); 43 head mangle 7 2 bad C++ mangle style (7);
43 head encodingType 2 2 bad encodingType (2); 43 head tables 77 2 bad numTables (77);
43 2 max 4294967295 2 bad max -1 for table with index 2;
43 2 parameter 21 2 bad max 200 for table with index 2; 29 29 offset 99999 0; 43 33 offset 99999 0;
39 5 offset -2 2 bad offset 0xfffffffffffffffe for table with index 5; 43 35 offset 99999 20;
43 5 offset 9223372036854775807 9; 10 0 offset 99999 6; 30 29 offset 99999 7;
43 section kind 43 7 error: <libst>: [STDnm_CheckSectionSanity] Invalid link label sc (43);)";

TEST_F(dnmfile, rules) {
    std::istringstream lines(rules);
    std::string where, field, text;
    int64_t version = 0, value = 0;
    for (int position = 0; lines >> version >> where >> field >> value >> position;) {
        std::getline(lines, text, ';');
        dnm_file file = sample_dnm(static_cast<int>(version));
        (where == "head"      ? file.head[field]
         : where == "section" ? file.sections[1][field]
         : field == "offset"  ? file.offsets[std::stoi(where)]
                              : file.entries[std::stoi(where)][field]) = value;
        std::string expected = text.empty() ? "" : text.substr(1) + "\n";
        for (const auto& [word, stands_for] :
             {std::pair("bad ", "error: <libst>: [STDnm_CheckHeadSanity] Invalid "),
              {"old ", "error: <libst>: \"d/p.dnm\" has version "},
              {"mode", "error: [gadr_mode_from_encoding]: unknown mode!"}})
            if (expected.starts_with(word))
                expected.replace(0, 4, stands_for);
        if (position != 0)
            expected += "error: <libst>: failed while reading \"d/p.dnm\" (pos " +
                        std::to_string(position) + ", errno 0)\n";
        EXPECT_EQ(read(build_dnm(file)) == nullptr, position != 0);
        EXPECT_EQ(said, expected) << where << " " << field << " " << value;
    }
}

// An index table holds no more entries than the table that it indexes, 200 here, but 3 sections.
TEST_F(dnmfile, indexes_are_not_longer_than_their_tables) {
    std::istringstream rows(R"(
4 SourceFileByBaseNames SourceFiles 5 SourceFileByRelNames SourceFiles
6 SourceFileByFullNames SourceFiles 17 DloFileByOffsets DloFiles 18 DloFileUpdateLinks DloFiles
8 LinkLabelByAdrs LinkLabel 9 LinkLabelByUseNames LinkLabel 10 LinkLabelByMangledNames LinkLabel
11 LinkLabelByLinkNames LinkLabel 16 LinkLabelByStaticIDbgSyms LinkLabel
19 LinkLabelUpdateLinks LinkLabel 21 LinkLabelByAdrAgainsts LinkLabel
22 LinkLabelByRegs LinkLabel 23 LinkLabelByRegPlusOffsets LinkLabel 13 TypeByMangledNames Types
28 TypeByUseNames Types 33 CppTypesByRevUseName Types 29 SectionByAdr Section
25 LinkageStubByLinkNames LinkageStubs 26 LinkageStubByAdrs LinkageStubs)");
    std::string name, base;
    for (int table = 0; rows >> table >> name >> base;) {
        dnm_file file = sample_dnm();
        file.entries[table]["max"] = 201;
        EXPECT_FALSE(read(build_dnm(file)));
        EXPECT_EQ(said.substr(0, said.find('\n')),
                  "error: <libst>: [STDnm_CheckHeadSanity] Invalid " + name + " max 201 > " + base +
                      " max " + (base == "Section" ? "3" : "200"));
    }
}

TEST_F(dnmfile, a_map_that_cannot_be_written_is_gone) {
    const std::unique_ptr<dnm_map> map = read(build_dnm(sample_dnm(39)));
    map->header.tables[34].size = 0x7FFFFFFF;
    EXPECT_EQ(STDnm_Write(*map, temp), 1);
    EXPECT_EQ(said.find("error: <libst>: offset is too large: 0x80000"), 0u) << said;
    EXPECT_NE(said.find("error: <libst>: failed to write \"d"), std::string::npos) << said;
    EXPECT_EQ(place.list("d"), words{});
}

} // namespace
