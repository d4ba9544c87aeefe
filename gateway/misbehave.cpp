// Three parts: the table, the parser of what people write, and the effects.
#include "misbehave.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace krvgw {
namespace {

constexpr std::size_t AT_DATA_LENGTH_FROM_NAME = 1;      // the security byte stands between

constexpr MisbehaviourRow MISBEHAVIOUR_TABLE[] = {
    {"no-answer", Fault::NoAnswer, "", "", "never answers; the connection stays open"},
    {"delay", Fault::Delay, "[=MS]", "200", "answers after MS milliseconds"},
    {"byte-by-byte", Fault::ByteByByte, "[=US]", "0", "sends every byte by itself, US microseconds apart"},
    {"split", Fault::Split, "=K[/MS]", "",
     "sends K bytes, the rest MS milliseconds (5) later; -K from the end"},
    {"close-on-accept", Fault::CloseOnAccept, "", "", "closes a new connection at once"},
    {"reset-on-accept", Fault::ResetOnAccept, "", "", "resets a new connection at once"},
    {"close-before", Fault::CloseBefore, "", "", "closes instead of answering"},
    {"close-after", Fault::CloseAfter, "", "", "answers, then closes"},
    {"close-at", Fault::CloseAt, "=K", "", "closes behind the first K bytes of the answer; -K from the end"},
    {"reset-before", Fault::ResetBefore, "", "", "resets instead of answering"},
    {"reset-after", Fault::ResetAfter, "", "", "answers, then resets"},
    {"reset-at", Fault::ResetAt, "=K", "", "resets behind the first K bytes of the answer; -K from the end"},
    {"stall-at", Fault::StallAt, "=K", "", "stops behind the first K bytes of the answer; the connection stays open"},
    {"no-body", Fault::ShortBody, "", "0", "answers with a header alone, of data length 0"},
    {"short-body", Fault::ShortBody, "=K", "",
     "answers with K bytes of the body and that data length; -K from the end"},
    {"extra-body", Fault::ExtraBody, "[=K]", "1", "answers with K zeros behind the body, counted by the data length"},
    {"huge-claim", Fault::HugeClaim, "[=N]", "2147483647", "claims a data length of N, answers, then closes"},
    {"name", Fault::Name, "=TEXT", "", "header: answers under the request name TEXT, of that length"},
    {"opaque", Fault::Opaque, "=HEX", "", "auth1 (12), auth2 (8), init (4): these opaque bytes, and expects them back"},
    {"bad-eyecatcher", Fault::SetField, "", "0x47617464", "header: the last letter of the eyecatcher is wrong"},
    {"header-rc", Fault::SetField, "[=N]", "3", "header: return code N (==-N for a negative one)"},
    {"refuse-auth", Fault::SetField, "[=N]", "5", "authorisation: result N"},
    {"refuse-admin", Fault::SetField, "[=N]", "7", "admin: result N"},
    {"exception", Fault::SetField, "", "1", "admin calls after init: the exception flag is set"},
};

struct PresetField {
    std::string_view name;
    Field field;
};

// The fields behind the rows with Fault::SetField.
constexpr PresetField PRESET_FIELDS[] = {
    {"bad-eyecatcher", Field::Eyecatcher},  {"header-rc", Field::GatewayRc},      {"refuse-auth", Field::AuthRc},
    {"refuse-admin", Field::AdminRc},       {"exception", Field::ExceptionFlag},
};

bool parseWhole(std::string_view text, std::int64_t& value)
{
    const bool isNegative = !text.empty() && text.front() == '-';
    if (isNegative) text.remove_prefix(1);
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty() || text.front() == '-') return false;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) return false;
    if (isNegative) value = -value;
    return true;
}

bool parseAmount(std::string_view text, Amount& amount)
{
    amount.isAdded = text.starts_with("+") || text.starts_with("-");
    if (text.starts_with("+") || text.starts_with("=")) text.remove_prefix(1);
    return parseWhole(text, amount.value);
}

bool parseOrdinal(std::string_view text, std::size_t& value)
{
    std::int64_t number = 0;
    if (!parseWhole(text, number) || number < 1) return false;
    value = static_cast<std::size_t>(number);
    return true;
}

// "@get-stats#2%1", in any order.
bool parseConditions(std::string_view text, Misbehaviour& made, std::string& complaint)
{
    while (!text.empty()) {
        const char mark = text.front();
        const std::size_t next = std::min(text.find_first_of("@#%", 1), text.size());
        const std::string_view value = text.substr(1, next - 1);
        text.remove_prefix(next);
        if (mark == '@') {
            made.message = messageKindByName(value);
            if (!made.message) complaint = fmt::format("no message is named \"{}\"", value);
        } else if (!parseOrdinal(value, mark == '#' ? made.nth : made.connection)) {
            complaint = fmt::format("\"{}{}\" is not a number from 1", mark, value);
        }
        if (!complaint.empty()) return false;
    }
    return true;
}

// "id-length[3]" becomes "id-length" and 3.
bool parseOccurrence(std::string_view& name, std::size_t& occurrence)
{
    const std::size_t bracket = name.find('[');
    if (bracket == std::string_view::npos) return true;
    const bool isClosed = name.ends_with("]");
    const std::string_view inside = isClosed ? name.substr(bracket + 1, name.size() - bracket - 2) : "";
    name = name.substr(0, bracket);
    occurrence = 0;
    return inside == "*" || parseOrdinal(inside, occurrence);
}

bool parseSplit(std::string_view argument, Misbehaviour& made)
{
    const std::size_t slash = argument.find('/');
    std::int64_t pause = 5;
    if (slash != std::string_view::npos && !parseWhole(argument.substr(slash + 1), pause)) return false;
    if (pause < 0) return false;
    made.pause = std::chrono::milliseconds(pause);
    return parseAmount(argument.substr(0, slash), made.amount);
}

// Pauses and sizes: what is out of proportion is a slip of the pen.
bool parseQuantity(std::string_view argument, Misbehaviour& made)
{
    constexpr std::int64_t MOST = std::int64_t{16} * 1024 * 1024;
    return parseWhole(argument, made.amount.value) && made.amount.value >= 0 && made.amount.value <= MOST;
}

bool parseArgument(std::string_view argument, Misbehaviour& made)
{
    switch (made.fault) {
    case Fault::Delay:
    case Fault::ByteByByte:
    case Fault::ExtraBody: return parseQuantity(argument, made);
    case Fault::Split: return parseSplit(argument, made);
    case Fault::Name: made.text = argument; return true;
    case Fault::Opaque: {
        const auto bytes = bytesOfHex(argument);
        if (bytes) made.bytes = *bytes;
        return bytes.has_value();
    }
    default: return parseAmount(argument, made.amount);
    }
}

// A place in [0, size], counted from the end where it was written with a minus.
std::size_t placeOf(const Amount& amount, std::size_t size)
{
    const std::int64_t whole = static_cast<std::int64_t>(size);
    const std::int64_t place = amount.isAdded && amount.value < 0 ? whole + amount.value : amount.value;
    return static_cast<std::size_t>(std::clamp<std::int64_t>(place, 0, whole));
}

std::size_t headerSizeOf(const Message& reply)
{
    for (const FieldMark& mark : reply.marks)
        if (mark.field == Field::DataLength) return mark.at + mark.width;
    return 0;
}

std::size_t setField(Message& reply, Field field, std::size_t occurrence, const Amount& amount)
{
    std::size_t seen = 0;
    std::size_t changed = 0;
    for (const FieldMark& mark : reply.marks) {
        if (mark.field != field) continue;
        ++seen;
        if (occurrence != 0 && occurrence != seen) continue;
        const std::int64_t there = amount.isAdded ? numberAt(reply.bytes, mark.at, mark.width) : 0;
        overwrite(reply.bytes, mark.at, mark.width, static_cast<std::uint32_t>(there + amount.value));
        ++changed;
    }
    return changed;
}

void resizeBody(Message& reply, std::size_t bodySize)
{
    const std::size_t size = headerSizeOf(reply) + bodySize;
    reply.bytes.resize(size, 0);
    std::erase_if(reply.marks, [size](const FieldMark& mark) { return mark.at + mark.width > size; });
    setField(reply, Field::DataLength, 1, {static_cast<std::int64_t>(bodySize), false});
}

void rename(Message& reply, const std::string& name)
{
    const std::size_t oldEnd = headerSizeOf(reply) - 4 - AT_DATA_LENGTH_FROM_NAME;
    Message renamed;
    putPart(renamed, reply, 0, HEADER_BEFORE_NAME);
    putText(renamed, name);
    putPart(renamed, reply, oldEnd, reply.bytes.size() - oldEnd);
    reply = std::move(renamed);
    setField(reply, Field::NameLength, 1, {static_cast<std::int64_t>(name.size()), false});
}

bool setOpaque(Message& reply, const Bytes& bytes)
{
    for (const FieldMark& mark : reply.marks) {
        if (mark.field != Field::OpaqueBytes) continue;
        const std::size_t count = std::min(bytes.size(), mark.width);
        std::copy_n(bytes.begin(), count, reply.bytes.begin() + static_cast<std::ptrdiff_t>(mark.at));
        return true;
    }
    return false;
}

void cut(Delivery& delivery, std::size_t place, Ending ending)
{
    delivery.reply.bytes.resize(place);
    std::erase_if(delivery.reply.marks, [place](const FieldMark& mark) { return mark.at + mark.width > place; });
    delivery.ending = ending;
}

void applyTo(Delivery& delivery, const Misbehaviour& made)
{
    Message& reply = delivery.reply;
    const std::size_t size = reply.bytes.size();
    const std::size_t bodySize = size - std::min(size, headerSizeOf(reply));
    bool isDone = true;
    switch (made.fault) {
    case Fault::SetField: isDone = setField(reply, made.field, made.occurrence, made.amount) > 0; break;
    case Fault::NoAnswer: delivery.isSent = false; break;
    case Fault::Delay: delivery.delay = std::chrono::milliseconds(made.amount.value); break;
    case Fault::ByteByByte:
        delivery.isByteByByte = true;
        delivery.bytePause = std::chrono::microseconds(made.amount.value);
        break;
    case Fault::Split:
        delivery.splits.push_back(placeOf(made.amount, size));
        delivery.splitPause = made.pause;
        break;
    case Fault::CloseBefore: delivery.isSent = false; delivery.ending = Ending::Close; break;
    case Fault::ResetBefore: delivery.isSent = false; delivery.ending = Ending::Reset; break;
    case Fault::CloseAfter: delivery.ending = Ending::Close; break;
    case Fault::ResetAfter: delivery.ending = Ending::Reset; break;
    case Fault::CloseAt: cut(delivery, placeOf(made.amount, size), Ending::Close); break;
    case Fault::ResetAt: cut(delivery, placeOf(made.amount, size), Ending::Reset); break;
    case Fault::StallAt: cut(delivery, placeOf(made.amount, size), Ending::Stall); break;
    case Fault::ShortBody: resizeBody(reply, placeOf(made.amount, bodySize)); break;
    case Fault::ExtraBody: resizeBody(reply, bodySize + static_cast<std::size_t>(made.amount.value)); break;
    case Fault::HugeClaim:
        isDone = setField(reply, Field::DataLength, 1, made.amount) > 0;
        delivery.ending = Ending::Close;
        break;
    case Fault::Name: rename(reply, made.text); break;
    case Fault::Opaque: isDone = setOpaque(reply, made.bytes); break;
    case Fault::CloseOnAccept:
    case Fault::ResetOnAccept: break;
    }
    delivery.notes.push_back(isDone ? made.written : made.written + " (no such field in this reply)");
}

}  // namespace

std::span<const MisbehaviourRow> misbehaviourTable()
{
    return MISBEHAVIOUR_TABLE;
}

std::optional<Misbehaviour> parseMisbehaviour(std::string_view text, std::string& complaint)
{
    complaint.clear();
    Misbehaviour made;
    made.written = text;

    const std::size_t headEnd = std::min(text.find_first_of("@#%"), text.size());
    const std::string_view head = text.substr(0, headEnd);
    const std::size_t equals = std::min(head.find('='), head.size());
    std::string_view name = head.substr(0, equals);
    std::optional<std::string_view> argument;
    if (equals < head.size()) argument = head.substr(equals + 1);
    const bool isOccurrenceGood = parseOccurrence(name, made.occurrence);

    const auto row = std::find_if(std::begin(MISBEHAVIOUR_TABLE), std::end(MISBEHAVIOUR_TABLE),
                                  [name](const MisbehaviourRow& each) { return each.name == name; });
    const auto field = fieldByName(name);
    if (row != std::end(MISBEHAVIOUR_TABLE)) {
        made.fault = row->fault;
        for (const PresetField& preset : PRESET_FIELDS)
            if (preset.name == name) made.field = preset.field;
        const bool takesNone = row->argument.empty();
        if (takesNone && argument) complaint = fmt::format("\"{}\" takes no argument", name);
        if (!argument && !row->fallback.empty()) argument = row->fallback;
        if (!takesNone && !argument)
            complaint = fmt::format("\"{}\" needs an argument: {}{}", name, name, row->argument);
    } else if (field) {
        made.fault = Fault::SetField;
        made.field = *field;
        if (!argument) complaint = fmt::format("\"{}\" needs an argument: {}=N", name, name);
    } else {
        complaint = fmt::format("no misbehaviour is named \"{}\"", name);
    }
    if (complaint.empty() && !isOccurrenceGood) complaint = fmt::format("\"{}\" is not NAME[K] or NAME[*]", head);
    if (complaint.empty() && argument && !parseArgument(*argument, made))
        complaint = fmt::format("\"{}\" is not an argument of \"{}\"", *argument, name);
    if (complaint.empty()) parseConditions(text.substr(headEnd), made, complaint);
    if (!complaint.empty()) return std::nullopt;
    return made;
}

std::vector<Misbehaviour> misbehavioursFor(const std::vector<Misbehaviour>& all, const Occasion& occasion)
{
    std::vector<Misbehaviour> chosen;
    for (const Misbehaviour& each : all) {
        const std::size_t nth = each.message ? occasion.nthOfKind : occasion.nthOfAll;
        const bool isOnAccept = each.fault == Fault::CloseOnAccept || each.fault == Fault::ResetOnAccept;
        if (!isOnAccept && (!each.message || *each.message == occasion.message) && (each.nth == 0 || each.nth == nth)
            && (each.connection == 0 || each.connection == occasion.connection))
            chosen.push_back(each);
    }
    return chosen;
}

std::optional<Misbehaviour> misbehaviourOnAccept(const std::vector<Misbehaviour>& all, std::size_t connection)
{
    for (const Misbehaviour& each : all)
        if ((each.fault == Fault::CloseOnAccept || each.fault == Fault::ResetOnAccept)
            && (each.connection == 0 || each.connection == connection))
            return each;
    return std::nullopt;
}

Delivery planDelivery(Message reply, const std::vector<Misbehaviour>& misbehaviours)
{
    Delivery delivery;
    delivery.reply = std::move(reply);
    for (const Misbehaviour& each : misbehaviours) applyTo(delivery, each);
    return delivery;
}

}  // namespace krvgw
