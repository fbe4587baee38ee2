// Makes what README, the manual and the completions say about options of the table of options, or
// tells what is out of date.
//
//     documents --write ROOT    writes it
//     documents --stamp ROOT    notes in the manual page which manual it was made of
//     documents --check ROOT    ends with status 1 if a document has to be made again
//
// What is made stands between a line with "made of the options: NAME" and one with "end of what is
// made"; everything around it is written by hand.
#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "util/optiontable.h"

namespace {

constexpr const char* manual = "docs/manual.md";
constexpr const char* page = "docs/objtrim.1";
constexpr const char* documents[] = {"README.md", manual, "contrib/completion/_objtrim",
                                     "contrib/completion/objtrim.bash"};
constexpr std::string_view start_mark = "made of the options: ";
constexpr std::string_view end_mark = "end of what is made";
constexpr std::string_view stamp_mark = ".\\\" Checksum of the manual and of this page: ";
constexpr size_t line_length = 100;

std::string root;

// --- files ---------------------------------------------------------------------------------------

[[noreturn]] void give_up(const std::string& subject, const std::string& what) {
    fprintf(stderr, "documents: %s: %s\n", subject.c_str(), what.c_str());
    exit(1);
}

std::string get_document(const char* name) {
    FILE* const file = fopen((root + "/" + name).c_str(), "rb");
    if (!file)
        give_up(name, "cannot be read");
    std::string text;
    char block[4096];
    for (size_t length; (length = fread(block, 1, sizeof block, file)) != 0;)
        text.append(block, length);
    fclose(file);
    return text;
}

void put_document(const char* name, const std::string& text) {
    FILE* const file = fopen((root + "/" + name).c_str(), "wb");
    if (!file || fwrite(text.data(), 1, text.size(), file) != text.size() || fclose(file) != 0)
        give_up(name, "cannot be written");
}

// --- words ---------------------------------------------------------------------------------------

// Names that take a value end in "=".
struct option_words {
    std::vector<std::string> names;
    std::string value;
};

option_words words_of(const option_row& row) {
    const std::string_view name = option_name(row.spelling);
    option_words words = {{std::string(name)}, std::string(row.spelling.substr(name.size()))};
    if (!row.alias.empty())
        words.names.emplace_back(row.alias);
    return words;
}

// Each with something before and after it.
std::string joined(const std::vector<std::string>& names, const std::string& before,
                   const std::string& after, const char* separator) {
    std::string text;
    for (const std::string& name : names)
        text.append(text.empty() ? "" : separator).append(before).append(name).append(after);
    return text;
}

// Markdown with other marks for what is bold and what is italic.
std::string with_marks(std::string_view markdown, const char* bold, const char* italic) {
    std::string text;
    for (size_t i = 0; i < markdown.size(); ++i) {
        if (markdown.substr(i, 2) == "**") {
            text += bold;
            ++i;
        } else if (markdown[i] == '*') {
            text += italic;
        } else {
            i += markdown[i] == '\\' ? 1 : 0;
            text += markdown[i];
        }
    }
    return text;
}

// As zsh takes an explanation between single quotes and brackets.
std::string quoted(const std::string& words) {
    std::string text;
    for (const char letter : words)
        if (letter == '\'')
            text += "'\\''";
        else
            text.append(letter == '[' || letter == ']' ? "\\" : "") += letter;
    return text;
}

std::string with_capital(std::string text) {
    text[0] = static_cast<char>(toupper(static_cast<unsigned char>(text[0])));
    return text;
}

// Words in lines that are not too long; the second and later ones are indented.
std::string in_lines(std::string line, std::string_view words, const std::string& indent) {
    std::string text;
    for (bool is_first = true; !words.empty(); is_first = false) {
        const std::string word(words.substr(0, words.find(' ')));
        words.remove_prefix(std::min(word.size() + 1, words.size()));
        if (!is_first && line.size() + 1 + word.size() > line_length) {
            text += line + "\n";
            line = indent + word;
        } else {
            line += (is_first ? "" : " ") + word;
        }
    }
    return text + line;
}

// --- what is made --------------------------------------------------------------------------------

std::string make_table() {
    std::string text = "\n| Option | What it does |\n|---|---|\n";
    for (const option_row& row : option_table) {
        if (row.place == IN_MANUAL)
            continue;
        const auto [names, value] = words_of(row);
        text += "| " + joined(names, "`", value + "`", ", ") + " | " +
                with_capital(with_marks(row.brief, "`", "*")) + " |\n";
    }
    return text + "\n";
}

std::string make_list(const std::string& group) {
    std::string text = "\n";
    for (const option_row& row : option_table) {
        if (row.group != group)
            continue;
        const auto [names, value] = words_of(row);
        const std::string rest = value.empty() ? "**" : "***" + value + "*";
        const std::string words = with_capital(std::string(row.brief).append(row.more));
        text += joined(names, "**", rest, ", ") + "\n\n" + in_lines(":   ", words, "    ") + "\n\n";
    }
    return text;
}

std::string make_words() {
    std::string words;
    for (const option_row& row : option_table)
        words += (words.empty() ? "" : " ") + joined(words_of(row).names, "", "", " ");
    return in_lines("    local options='", words, "        ") + "'\n";
}

// What cannot be given beside the option: its other spelling, and what sets its flag differently.
std::string excluded_by(const option_row& row) {
    std::vector<std::string> names;
    for (const option_row& other : option_table)
        if (&other == &row ? !row.alias.empty() : row.flag && other.flag == row.flag)
            for (const std::string& name : words_of(other).names)
                names.push_back(name);
    return joined(names, "", "", " ");
}

std::string make_arguments() {
    std::string text = "_arguments \\\n";
    for (const option_row& row : option_table) {
        const auto [names, value] = words_of(row);
        std::string before, behind;
        if (!value.empty()) {
            // All values add up, but for the name of the result.
            before = value == "file" ? "" : "*";
            behind = ":" + value + (value == "file" ? ":_files" : "");
        } else if (const std::string excluded = excluded_by(row); !excluded.empty()) {
            before = "(" + excluded + ")";
        }
        const std::string spellings = joined(names, "", value.empty() ? "" : "-", ",");
        const std::string words = quoted(with_marks(row.brief, "", ""));
        text.append("    '").append(before);
        text.append(names.size() == 1 ? spellings : "'{" + spellings + "}'");
        text.append("[").append(words).append("]").append(behind).append("' \\\n");
    }
    return text + "    '*:file:_files'\n";
}

// The parts that have to be somewhere.
std::vector<std::string> all_parts() {
    std::vector<std::string> parts = {"table", "words", "arguments"};
    for (const option_row& row : option_table)
        if (std::find(parts.begin(), parts.end(), row.group) == parts.end())
            parts.emplace_back(row.group);
    return parts;
}

std::string make_part(const std::string& part) {
    if (part == "table")
        return make_table();
    if (part == "words")
        return make_words();
    return part == "arguments" ? make_arguments() : make_list(part);
}

// The document with its parts made anew; they are taken off those that are still to be found.
std::string renewed(const char* name, const std::string& text, std::vector<std::string>& parts) {
    std::string result;
    size_t at = 0;
    for (size_t start; (start = text.find(start_mark, at)) != std::string::npos;) {
        const size_t part_at = start + start_mark.size();
        const std::string part = text.substr(part_at, text.find_first_of(" \n", part_at) - part_at);
        const size_t end = text.find(end_mark, start);
        const auto found = std::find(parts.begin(), parts.end(), part);
        if (found == parts.end())
            give_up(name, "there is no such part of the options, or twice: " + part);
        if (end == std::string::npos || end > text.find(start_mark, part_at))
            give_up(name, "there is no end of this part: " + part);
        parts.erase(found);
        result += text.substr(at, text.find('\n', start) + 1 - at) + make_part(part);
        at = text.rfind('\n', end) + 1;
    }
    return result + text.substr(at);
}

// The page as it is written, without the stamp of an earlier one, and with its own.
std::string stamped(const std::string& text) {
    const std::string body = text.substr(0, text.find(stamp_mark));
    uint64_t sum = 0xCBF29CE484222325; // FNV-1a
    for (const char letter : get_document(manual) + body)
        sum = (sum ^ static_cast<unsigned char>(letter)) * 0x100000001B3;
    char digits[17];
    snprintf(digits, sizeof digits, "%016" PRIx64, sum);
    return body + std::string(stamp_mark) + digits + "\n";
}

// Whether the document is as it should be, or is now.
bool settle(const char* name, const std::string& text, const std::string& wanted, bool is_check) {
    if (text == wanted)
        return true;
    if (is_check)
        fprintf(stderr, "documents: %s is out of date; run: ./dev documents\n", name);
    else
        put_document(name, wanted);
    return !is_check;
}

} // namespace

int main(int argc, char** argv) {
    const std::string verb = argc == 3 ? argv[1] : "";
    const bool is_check = verb == "--check";
    if (!is_check && verb != "--write" && verb != "--stamp") {
        fprintf(stderr, "usage: documents --write|--stamp|--check ROOT\n");
        return 1;
    }
    root = argv[2];
    bool is_settled = true;
    if (verb != "--stamp") {
        std::vector<std::string> parts = all_parts();
        for (const char* name : documents) {
            const std::string text = get_document(name);
            is_settled = settle(name, text, renewed(name, text, parts), is_check) && is_settled;
        }
        for (const std::string& part : parts)
            give_up("no document has this part of the options", part);
    }
    if (verb != "--write") {
        const std::string text = get_document(page);
        is_settled = settle(page, text, stamped(text), is_check) && is_settled;
    }
    return is_settled ? 0 : 1;
}
