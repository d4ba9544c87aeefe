#include "rates.h"

namespace {

Change changeBetween(const Observed& before, const Observed& now)
{
    Change change;
    change.isOther = before.value != now.value;
    if (!before.number || !now.number) return change;
    if (before.round + 1 != now.round) {
        change.note = Note::Gap;
        return change;
    }
    if (*now.number < *before.number) {
        change.note = Note::Reset;
        return change;
    }
    const std::chrono::duration<Number> seconds = now.monotonic - before.monotonic;
    if (seconds.count() <= 0) return change; // two samples of the same moment say nothing
    change.delta = *now.number - *before.number;
    change.rate = *change.delta / seconds.count();
    return change;
}

} // namespace

void beginRound(RateBook* book)
{
    ++book->round;
}

const Change& observe(RateBook* book, const Record& record, std::chrono::nanoseconds monotonic)
{
    Observed now{record.value, readNumber(record.value), monotonic, book->round, {}};
    const auto [place, isNew] = book->byId.try_emplace(record.id);
    Observed& known = place->second;
    if (!isNew && known.round == book->round) return known.change;
    if (!isNew) now.change = changeBetween(known, now);
    known = std::move(now);
    return known.change;
}

const char* noteText(Note note)
{
    if (note == Note::Reset) return "reset";
    return note == Note::Gap ? "gap" : "";
}
