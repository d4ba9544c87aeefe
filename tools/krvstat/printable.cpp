// Which bytes are a character, whether it shows, and how wide it is, is the C library's knowledge (LC_CTYPE).
// Characters without a width, such as marks that turn the direction of writing, are not shown as they are: they would
// change how the text around them looks.

#include "printable.h"

#include <fmt/format.h>

#include <cwchar>
#include <cwctype>

namespace {

constexpr std::string_view CutMark = "...";

struct Glyph {
    Printable shown;
    std::size_t bytes; // of the raw text
};

// The first glyph of a text that is not empty.
Glyph firstGlyph(std::string_view raw)
{
    if (raw.front() == '\\') return {{"\\\\", 2}, 1};

    std::mbstate_t state{};
    wchar_t character = 0;
    const std::size_t bytes = std::mbrtowc(&character, raw.data(), raw.size(), &state);
    const bool isCharacter = bytes >= 1 && bytes <= raw.size(); // else NUL, invalid or incomplete
    if (isCharacter && std::iswprint(static_cast<std::wint_t>(character)) != 0) {
        const int columns = wcwidth(character);
        if (columns > 0) return {{std::string(raw.substr(0, bytes)), static_cast<std::size_t>(columns)}, bytes};
    }
    return {{fmt::format("\\x{:02x}", static_cast<unsigned char>(raw.front())), 4}, 1};
}

} // namespace

Printable printable(std::string_view raw)
{
    Printable all;
    while (!raw.empty()) {
        const Glyph glyph = firstGlyph(raw);
        all.text += glyph.shown.text;
        all.columns += glyph.shown.columns;
        raw.remove_prefix(glyph.bytes);
    }
    return all;
}

Printable printableWithin(std::string_view raw, std::size_t columns)
{
    Printable all = printable(raw);
    if (all.columns <= columns) return all;

    Printable cut;
    if (columns < CutMark.size()) return {std::string(CutMark.substr(0, columns)), columns};
    const std::size_t room = columns - CutMark.size();
    for (Glyph glyph = firstGlyph(raw); cut.columns + glyph.shown.columns <= room; glyph = firstGlyph(raw)) {
        cut.text += glyph.shown.text;
        cut.columns += glyph.shown.columns;
        raw.remove_prefix(glyph.bytes);
    }
    cut.text += CutMark;
    cut.columns += CutMark.size();
    return cut;
}

std::string printableText(std::string_view raw)
{
    std::string all;
    while (!raw.empty()) {
        const Glyph glyph = firstGlyph(raw);
        all += raw.front() == '\\' ? "\\" : glyph.shown.text;
        raw.remove_prefix(glyph.bytes);
    }
    return all;
}

std::string inQuotes(std::string_view raw)
{
    return "'" + printable(raw).text + "'";
}
