#include "top_model.h"

#include "view.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace {

bool containsFolded(const std::string& text, const std::string& part)
{
    const auto isSame = [](char left, char right) {
        return std::tolower(static_cast<unsigned char>(left)) == std::tolower(static_cast<unsigned char>(right));
    };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), isSame) != text.end();
}

void takeSample(TargetAnswer answer, TopTarget* target)
{
    target->last = std::move(answer);
    target->hasSample = true;
    for (const Record& record : target->last.sample.records) {
        const Change& change = observe(&target->book, record, target->last.sample.monotonic);
        TopStatistic& statistic = target->statistics[record.id];
        if (change.note == Note::Reset) statistic.hasFallen = true;
        addToHistory(&statistic.rates, change.rate);
        addToHistory(&statistic.values, readNumber(record.value));
    }
}

void takeGap(TargetAnswer answer, TopTarget* target)
{
    target->last.failure = std::move(answer.failure);
    for (auto& [id, statistic] : target->statistics) {
        addToHistory(&statistic.rates, std::nullopt);
        addToHistory(&statistic.values, std::nullopt);
    }
}

struct Section {
    std::string heading;
    std::vector<Entry> entries;
};

// In the order in which groups occur in the answer.
std::vector<Section> sectionsOf(const TopModel& model, const std::string& name, const TopTarget& target)
{
    std::vector<Section> sections;
    std::map<std::string, std::size_t> placeOf;
    for (const Record& record : target.last.sample.records) {
        if (!containsFolded(record.id, model.filter)) continue;
        const auto [place, isNew] = placeOf.try_emplace(record.group, sections.size());
        if (isNew) {
            const std::string group = record.group.empty() ? "(no group)" : record.group;
            sections.push_back({model.targets.size() > 1 ? fmt::format("{}  {}", group, name) : group, {}});
        }
        Change change = target.book.byId.at(record.id).change;
        if (target.last.failure) change = {std::nullopt, std::nullopt, Note::Gap, false};
        sections[place->second].entries.push_back({&name, &record, change, target.last.sample.time});
    }
    return sections;
}

TopRow rowOf(const Settings& settings, const Entry& entry, const TopStatistic& statistic)
{
    const std::optional<Number> number = settings.units != Units::Raw ? readNumber(entry.record->value) : std::nullopt;
    TopRow row;
    row.id = entry.record->id;
    row.value = number ? numberText(*number, settings.units) : entry.record->value;
    if (entry.change.rate) row.rate = rateText(*entry.change.rate, settings.units);
    if (entry.change.note != Note::None) row.rate = noteText(entry.change.note);
    row.hasNote = entry.change.note != Note::None;
    row.isChanged = entry.change.isOther;
    row.history = statistic.hasFallen ? &statistic.values : &statistic.rates;
    return row;
}

} // namespace

void takeRound(const Settings& settings, std::vector<TargetAnswer> answers, TopModel* model)
{
    model->time = std::chrono::system_clock::now();
    model->status.clear();
    for (TargetAnswer& answer : answers) {
        const std::string name = answer.target;
        const auto [place, isNew] = model->targets.try_emplace(name);
        if (isNew) model->order.push_back(name);
        TopTarget& target = place->second;
        beginRound(&target.book);
        if (answer.failure) {
            model->status = answer.failure->sentence + "; trying again";
            takeGap(std::move(answer), &target);
            continue;
        }
        const auto isMissing = [](const RefusedElement& refused) { return refused.isMissing; };
        const auto& refused = answer.sample.refused;
        const auto missing = std::find_if(refused.begin(), refused.end(), isMissing);
        if (missing != refused.end() && !settings.ignoresMissing) {
            model->status = fmt::format("{} has no {}", name, missing->element);
        }
        takeSample(std::move(answer), &target);
    }
}

std::vector<TopRow> rowsOf(const Settings& settings, const TopModel& model)
{
    Settings sorted = settings;
    sorted.selection.sort = model.sort;
    std::vector<TopRow> rows;
    for (const std::string& name : model.order) {
        const TopTarget& target = model.targets.at(name);
        for (Section& section : sectionsOf(model, name, target)) {
            const std::vector<Entry> entries = selectEntries(sorted, std::move(section.entries));
            if (entries.empty()) continue;
            TopRow heading;
            heading.heading = section.heading;
            rows.push_back(std::move(heading));
            for (const Entry& entry : entries) {
                rows.push_back(rowOf(settings, entry, target.statistics.at(entry.record->id)));
            }
        }
    }
    return rows;
}

void nextSort(TopModel* model)
{
    constexpr SortKey next[] = {SortKey::Name, SortKey::Value, SortKey::Rate, SortKey::None};
    model->sort = next[static_cast<int>(model->sort)];
}

const char* sortName(SortKey sort)
{
    constexpr const char* names[] = {"none", "name", "value", "rate"};
    return names[static_cast<int>(sort)];
}
