#include "base64.h"

#include <cstdint>

namespace {

constexpr std::string_view Letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string toBase64(std::string_view bytes)
{
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::string_view part = bytes.substr(i, 3);
        std::uint32_t word = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            word = word << 8 | (k < part.size() ? static_cast<unsigned char>(part[k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += k <= part.size() ? Letters[word >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

bool fromBase64(std::string_view text, std::string* bytes)
{
    if (text.size() % 4 != 0) return false;
    std::string read;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const std::string_view part = text.substr(i, 4);
        const bool isLast = i + 4 == text.size();
        std::size_t padding = 0;
        if (isLast && part[3] == '=') padding = part[2] == '=' ? 2 : 1;
        std::uint32_t word = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            const std::size_t letter = k < 4 - padding ? Letters.find(part[k]) : 0;
            if (letter == std::string_view::npos) return false;
            word = word << 6 | static_cast<std::uint32_t>(letter);
        }
        for (std::size_t k = 0; k < 3 - padding; ++k) read += static_cast<char>(word >> (16 - 8 * k) & 255);
    }
    *bytes = std::move(read);
    return true;
}
