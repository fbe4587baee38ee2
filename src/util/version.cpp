// Version stamps: the four fields, and their texts by mode.
#include "util/version.h"

#include <array>
#include <string_view>

namespace {

constexpr size_t stamp_width = 383; // characters, without the NUL
constexpr std::string_view mark = "@(#)";
constexpr std::string_view maker = "Orvale Software, ";

using stamp_field = std::array<char, stamp_width + 1>;

constexpr stamp_field padded(std::string_view text) {
    stamp_field field = {};
    for (size_t i = 0; i < stamp_width; ++i)
        field[i] = i < text.size() ? text[i] : ' ';
    return field;
}

// Kept by compiler and linker, as far as the format of the program lets them be told.
#ifdef __ELF__
#define KEPT [[gnu::used, gnu::retain]]
#else
#define KEPT [[gnu::used]]
#endif

// Not constant, and read through volatile below: the file may have been patched since it was built.
KEPT stamp_field product_field = padded("@(#)Orvale Software, Compiler v2023.5.4");
KEPT stamp_field customer_field = padded("@(#)[Customer version stamp space]");
KEPT stamp_field directory_field = padded("@(#)[Directory] src/util");
KEPT stamp_field version_control_field = padded("@(#)[VCInfo] objtrim");

std::string text_of(const stamp_field& field) {
    std::string text;
    const volatile char* character = field.data();
    while (text.size() < stamp_width && *character != '\0')
        text.push_back(*character++);
    return text;
}

std::string after(const std::string& text, size_t count) {
    return count < text.size() ? text.substr(count) : std::string();
}

// Whether the text still is the one that the stamp begins with. A text that was cut off within it,
// at a blank, counts as the same.
bool is_unchanged(const std::string& marked, std::string_view initial) {
    std::string whole(initial);
    whole.resize(stamp_width, ' ');
    return whole.starts_with(marked) && whole[marked.size()] == ' ';
}

// What follows the mark; nothing if only a changed text is asked for and it is not.
std::string marked_text(const stamp_field& field, std::string_view initial, int mode) {
    std::string marked = after(text_of(field), mark.size());
    return mode == VERSION_CHANGED && is_unchanged(marked, initial) ? std::string() : marked;
}

} // namespace

std::string version_stamp(int mode) {
    if (mode < VERSION_MARKED || mode > VERSION_CHANGED)
        return text_of(product_field);
    const std::string marked =
        marked_text(product_field, "Orvale Software, Version 2023.5.4", mode);
    return mode == VERSION_MARKED ? marked : after(marked, maker.size());
}

std::string customer_stamp(int mode) {
    return marked_text(customer_field, "[Customer version stamp space]", mode);
}

std::string directory_stamp(int mode) {
    return marked_text(directory_field, "[Directory]", mode);
}

std::string version_control_stamp(int mode) {
    return marked_text(version_control_field, "[VCInfo]", mode);
}
