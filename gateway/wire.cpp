// Shifts, not casts: the same bytes on every host.
#include "wire.h"

namespace krvgw {
namespace {

void putNumber(Message& message, std::uint64_t value, std::size_t width, std::optional<Field> field)
{
    if (field) message.marks.push_back({*field, message.bytes.size(), width});
    for (std::size_t i = width; i > 0; --i)
        message.bytes.push_back(static_cast<unsigned char>(value >> (8 * (i - 1))));
}

// The one function that moves the cursor of a reader.
const unsigned char* take(WireReader& reader, std::size_t count)
{
    if (reader.spent || count > reader.bytes.size() - reader.at) {
        reader.spent = true;
        return nullptr;
    }
    const unsigned char* taken = reader.bytes.data() + reader.at;
    reader.at += count;
    return taken;
}

std::uint32_t takeNumber(WireReader& reader, std::size_t width)
{
    const unsigned char* from = take(reader, width);
    std::uint32_t value = 0;
    for (std::size_t i = 0; from != nullptr && i < width; ++i) value = (value << 8) | from[i];
    return value;
}

int nibble(char digit)
{
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

}  // namespace

void put8(Message& message, std::uint32_t value, std::optional<Field> field) { putNumber(message, value, 1, field); }
void put16(Message& message, std::uint32_t value, std::optional<Field> field) { putNumber(message, value, 2, field); }
void put32(Message& message, std::uint32_t value, std::optional<Field> field) { putNumber(message, value, 4, field); }
void put64(Message& message, std::uint64_t value) { putNumber(message, value, 8, std::nullopt); }

void putText(Message& message, std::string_view text)
{
    message.bytes.insert(message.bytes.end(), text.begin(), text.end());
}

void putBytes(Message& message, const Bytes& bytes)
{
    message.bytes.insert(message.bytes.end(), bytes.begin(), bytes.end());
}

void putUtf(Message& message, std::string_view text, std::optional<Field> field)
{
    put16(message, static_cast<std::uint32_t>(text.size()), field);
    putText(message, text);
}

void putPart(Message& message, const Message& part, std::size_t from, std::size_t count)
{
    for (const FieldMark& mark : part.marks)
        if (mark.at >= from && mark.at + mark.width <= from + count)
            message.marks.push_back({mark.field, mark.at - from + message.bytes.size(), mark.width});
    const auto first = part.bytes.begin() + static_cast<std::ptrdiff_t>(from);
    message.bytes.insert(message.bytes.end(), first, first + static_cast<std::ptrdiff_t>(count));
}

void putMessage(Message& message, const Message& part)
{
    putPart(message, part, 0, part.bytes.size());
}

void overwrite(Bytes& bytes, std::size_t at, std::size_t width, std::uint32_t value)
{
    for (std::size_t i = 0; i < width; ++i)
        bytes[at + i] = static_cast<unsigned char>(value >> (8 * (width - 1 - i)));
}

std::uint32_t numberAt(const Bytes& bytes, std::size_t at, std::size_t width)
{
    WireReader reader{bytes, at};
    return takeNumber(reader, width);
}

std::uint32_t take8(WireReader& reader) { return takeNumber(reader, 1); }
std::uint32_t take16(WireReader& reader) { return takeNumber(reader, 2); }
std::uint32_t take32(WireReader& reader) { return takeNumber(reader, 4); }

std::string takeText(WireReader& reader, std::size_t count)
{
    const unsigned char* from = take(reader, count);
    return from == nullptr ? std::string() : std::string(from, from + count);
}

std::string takeUtf(WireReader& reader)
{
    return takeText(reader, take16(reader));
}

std::size_t left(const WireReader& reader)
{
    return reader.bytes.size() - reader.at;
}

std::string hexOf(std::string_view bytes)
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex.push_back(DIGITS[byte >> 4]);
        hex.push_back(DIGITS[byte & 0x0F]);
    }
    return hex;
}

std::string hexOf(const Bytes& bytes)
{
    return hexOf(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::optional<Bytes> bytesOfHex(std::string_view hex)
{
    if (hex.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = nibble(hex[i]);
        const int low = nibble(hex[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return bytes;
}

}  // namespace krvgw
