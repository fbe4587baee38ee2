// Debug-name-map files: read, checked and written back, with every message and its level.
#include "debug/dnmfile.h"
#include "debug/dnmsanity.h"
#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "support/child.h"
#include "support/dnm_builder.h"

namespace {

std::string said; // level and text of each message

void note(uint32_t level, const char* format, va_list arguments) {
    char text[500];
    vsnprintf(text, sizeof text, format, arguments);
    said += std::to_string(level) + " " + text + "|";
}

struct dnmfile : placed_test {
    dnmfile() { gen_sink().message = note; }
    ~dnmfile() override { gen_sink().message = gen_message; }

    std::unique_ptr<dnm_map> read(const std::string& bytes) const {
        said.clear();
        place.put("d/p.dnm", bytes);
        return STDnm_Read("d/p.dnm");
    }
    // Reading says the text and fails at the position; 0: it does not fail.
    void expect(const dnm_file& file, const std::string& text, int position) const {
        EXPECT_EQ(read(build_dnm(file)) == nullptr, position != 0);
        EXPECT_EQ(said,
                  text + (position == 0 ? ""
                                        : "3 <libst>: failed while reading \"d/p.dnm\" (pos " +
                                              std::to_string(position) + ", errno 0)|"));
    }
};

TEST_F(dnmfile, every_version_mode_and_encoding_is_written_as_it_was) {
    for (int i = 0; i < 35 * 4 * 2 * 2; ++i) {
        const int version = 10 + i % 35, mode = std::array{2, 66, 4, 8}[i / 35 % 4];
        const bool compressed = i / 140 % 2 != 0, filled = i / 280 != 0;
        SCOPED_TRACE(testing::Message() << version << " " << mode << compressed << filled);
        const dnm_file file = sample_dnm(version, filled, mode, compressed);
        const std::unique_ptr<dnm_map> map = read(build_dnm(file));
        ASSERT_TRUE(map) << said;
        EXPECT_EQ(map->sections[2].section_indexes[2], version < 30 ? -1 : 2333);
        ASSERT_EQ(STDnm_Write(*map, temp), 0);
        dnm_file expected = in_written_order(file);
        expected.head["compressed"] = compressed || !filled;
        EXPECT_TRUE(place.get("d/p.dnm") == build_dnm(expected));
        EXPECT_EQ(place.list("d"), words{"p.dnm"});
        EXPECT_EQ(said, version < 44 ? ""
                                     : "4 <libst>: \"d/p.dnm\" has version 44, which is the "
                                       "development version|");
    }
}

TEST_F(dnmfile, fields_that_are_not_written_as_they_were_read) {
    const struct {
        int version;
        const char* field;
        int64_t value, written;
    } cases[] = {{31, "text", 0, 1},       {25, "text", 15, 15},      {28, "text", 0x22, 2},
                 {30, "text", 0x2F, 0x2F}, {32, "text", 16, 16},      {42, "flags", 0xFE, 2},
                 {42, "flags", 0xFF, 3},   {42, "flags", 0xFD, 0xFD}, {43, "flags", 0xFF, 0xFF},
                 {43, "prologue", 0, 1},   {43, "kind", 9, 3},        {43, "compressed", 7, 1},
                 {43, "encoding", 2, 4},   {43, "tables", 40, 36},    {26, "level", 2, 0}};
    for (const auto& [version, field, value, written] : cases) {
        dnm_file file = sample_dnm(version);
        file.head[field] = value;
        const std::unique_ptr<dnm_map> map = read(build_dnm(file));
        ASSERT_TRUE(map && STDnm_Write(*map, temp) == 0) << said;
        file.head[field] = written;
        EXPECT_TRUE(place.get("d/p.dnm") == build_dnm(in_written_order(file))) << field << value;
    }
}

const std::string invalid = "3 <libst>: [STDnm_CheckHeadSanity] Invalid ";

TEST_F(dnmfile, rules_of_prologue_and_header) {
    const std::string has = "3 <libst>: \"d/p.dnm\" has version ";
    const std::string mode = "3 [gadr_mode_from_encoding]: unknown mode!|";
    const struct {
        const char* field;
        int64_t value;
        std::string text;
        int position;
    } cases[] = {{"magic", 0x7F4F5257, "", 1},
                 {"prologue", 2, "", 1},
                 {"level", 3, "", 1},
                 {"reserved", 1, "", 1},
                 {"descriptors", 1, "3 GFile desciptors not supported|", 1},
                 {"version", 9, has + "9, which is no longer supported|", 2},
                 {"version", 0x80000000, has + "-2147483648, which is no longer supported|", 2},
                 {"version", 45, has + "45, this utility only supports up to version 43|", 2},
                 {"encoding", 3, mode, 0},
                 {"mode", 3, mode, 0},
                 {"endian", 2, invalid + "endian flag (2)|", 2},
                 {"format", 4, invalid + "object module format (4)|", 2},
                 {"type", 4, invalid + "object module type (4)|", 2},
                 {"text", 0, invalid + "bytes per text address unit (0)|", 2},
                 {"data", 33, invalid + "bytes per data address unit (33)|", 2},
                 {"abi", 8, invalid + "C++ ABI style (8)|", 2},
                 {"mangle", 7, invalid + "C++ mangle style (7)|", 2},
                 {"encodingType", 2, invalid + "encodingType (2)|", 2},
                 {"tables", 77, invalid + "numTables (77)|", 2},
                 {"tables", 76, "", 0}};
    for (const auto& [field, value, text, position] : cases) {
        dnm_file file = sample_dnm();
        file.head[field] = value;
        expect(file, text, position);
    }
}

TEST_F(dnmfile, rules_of_tables) {
    const words rules =
        split("4 3 SourceFileByBaseNames SourceFiles 5 3 SourceFileByRelNames SourceFiles "
              "6 3 SourceFileByFullNames SourceFiles 17 2 DloFileByOffsets DloFiles "
              "18 2 DloFileUpdateLinks DloFiles 8 7 LinkLabelByAdrs LinkLabel "
              "9 7 LinkLabelByUseNames LinkLabel 10 7 LinkLabelByMangledNames LinkLabel "
              "11 7 LinkLabelByLinkNames LinkLabel 16 7 LinkLabelByStaticIDbgSyms LinkLabel "
              "19 7 LinkLabelUpdateLinks LinkLabel 21 7 LinkLabelByAdrAgainsts LinkLabel "
              "22 7 LinkLabelByRegs LinkLabel 23 7 LinkLabelByRegPlusOffsets LinkLabel "
              "13 12 TypeByMangledNames Types 28 12 TypeByUseNames Types "
              "33 12 CppTypesByRevUseName Types 29 1 SectionByAdr Section "
              "25 24 LinkageStubByLinkNames LinkageStubs 26 24 LinkageStubByAdrs LinkageStubs");
    for (size_t i = 0; i < rules.size(); i += 4) {
        dnm_file file = sample_dnm();
        file.entries[std::stoi(rules[i])]["max"] = 201;
        const int most = rules[i + 1] == "1" ? 3 : 200;
        expect(file,
               invalid + rules[i + 2] + " max 201 > " + rules[i + 3] + " max " +
                   std::to_string(most) + "|",
               2);
    }
    const struct {
        const char* field;
        int table;
        int64_t value;
        std::string text;
        int version, position;
    } cases[] = {{"max", 2, UINT32_MAX, invalid + "max -1 for table with index 2|", 43, 2},
                 {"parameter", 2, 21, invalid + "max 200 for table with index 2|", 43, 2},
                 {"", 5, -2, invalid + "offset 0xfffffffffffffffe for table with index 5|", 39, 2},
                 {"", 5, INT64_MAX, "", 43, 9},
                 {"", 0, 99999, "", 10, 6},
                 {"", 29, 99999, "", 30, 7},
                 {"", 29, 99999, "", 29, 0},
                 {"", 33, 99999, "", 43, 0},
                 {"", 35, 99999, "", 43, 20}};
    for (const auto& [field, table, value, text, version, position] : cases) {
        dnm_file file = sample_dnm(version);
        (*field ? file.entries[table][field] : file.offsets[table]) = value;
        expect(file, text, position);
    }
    dnm_file file = sample_dnm();
    file.sections[1]["kind"] = 43;
    expect(file, "3 <libst>: [STDnm_CheckSectionSanity] Invalid link label sc (43)|", 7);
}

TEST_F(dnmfile, whole_map_and_writing) {
    std::unique_ptr<dnm_map> map = read(build_dnm(sample_dnm(39)));
    map->held[4].entries = 7;
    EXPECT_EQ(STDnm_CheckSanity(*map), 1);
    map->held[33].entries = map->held[4].entries = 200;
    EXPECT_EQ(STDnm_CheckSanity(*map), 1);
    const std::string sanity = "3 <libst>: [STDnm_CheckSanity] max ";
    EXPECT_EQ(said, sanity + "200 for table with index 4 (loaded) != table size 7|" + sanity +
                        "0 for table with index 33 (not loaded) != table size 200|");
    // As if the file were larger than it is: the last table but one does not fit.
    said.clear();
    map->header.tables[34].size = 0x7FFFFFFF;
    EXPECT_EQ(STDnm_Write(*map, temp), 1);
    EXPECT_EQ(said.find("3 <libst>: offset is too large: 0x80000"), 0u) << said;
    EXPECT_NE(said.find("103 <libst>: failed to write \"" + gen_join("d", "ov_")),
              std::string::npos)
        << said;
    EXPECT_EQ(place.list("d"), words{});
}

// Cut anywhere, the file fails at the step that misses something.
TEST_F(dnmfile, every_length) {
    for (const bool compressed : {false, true}) {
        dnm_file file = sample_dnm(43, true, 66, compressed);
        file.tail = "";
        std::erase(file.order, 1);
        file.order.push_back(1); // what is cut is seen where its end is known
        const std::string whole = build_dnm(file);
        std::set<int> positions;
        int position = 0;
        for (size_t length = 0; length < whole.size(); ++length) {
            ASSERT_FALSE(read(whole.substr(0, length))) << length;
            const size_t at = said.find("(pos ");
            ASSERT_NE(at, std::string::npos);
            position = std::stoi(said.substr(at + 5));
            EXPECT_EQ(length < 20, position == 1) << length;
            positions.insert(position);
        }
        EXPECT_EQ(position, 7);
        EXPECT_EQ(positions, (std::set{1, 2, 6, 7}));
    }
}

} // namespace
