#include "view.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

bool isForPeople(Form form)
{
    return form == Form::Table || form == Form::Wide;
}

bool isJson(Form form)
{
    return form == Form::Json || form == Form::JsonLines;
}

// What is named in the form "name", and what a line is about.
Column idColumn(Question question)
{
    return question == Question::Groups ? Column::Group : Column::Id;
}

std::vector<Column> allowedColumns(const View& view)
{
    if (view.question == Question::Groups) return {Column::Time, Column::Target, Column::Group};
    if (view.question == Question::Ids) return {Column::Time, Column::Target, Column::Group, Column::Id};
    return {Column::Time, Column::Target, Column::Group, Column::Id, Column::Value, Column::Delta, Column::Rate,
        Column::Note};
}

bool hasTimes(const Settings& settings, const View& view)
{
    if (settings.time == TimeForm::Default) return view.isSequence && !isForPeople(settings.form);
    return settings.time != TimeForm::None;
}

std::vector<Column> derivedColumns(const Settings& settings, const View& view)
{
    const bool hasNotes = !isForPeople(settings.form); // tables have them in the place of rates
    std::vector<Column> columns;
    if (settings.derived == Derived::Default || settings.derived == Derived::Raw) columns.push_back(Column::Value);
    if (settings.derived == Derived::Raw || !view.isSequence) return columns;
    if (settings.derived == Derived::Delta) columns.push_back(Column::Delta);
    if (settings.derived == Derived::Default && settings.form != Form::Table) columns.push_back(Column::Delta);
    if (settings.derived != Derived::Delta) columns.push_back(Column::Rate);
    if (hasNotes) columns.push_back(Column::Note);
    return columns;
}

std::vector<Column> usualColumns(const Settings& settings, const View& view)
{
    std::vector<Column> columns;
    if (hasTimes(settings, view)) columns.push_back(Column::Time);
    if (settings.targets.size() > 1 || isJson(settings.form)) columns.push_back(Column::Target);
    if (settings.form == Form::Wide && view.question != Question::Groups) columns.push_back(Column::Group);
    columns.push_back(idColumn(view.question));
    if (view.question == Question::Statistics) {
        for (Column column : derivedColumns(settings, view)) columns.push_back(column);
    }
    return columns;
}

Column valueColumn(const Settings& settings)
{
    if (settings.derived == Derived::Rate) return Column::Rate;
    return settings.derived == Derived::Delta ? Column::Delta : Column::Value;
}

// Forms that leave no choice of columns.
std::string fixedColumns(const Settings& settings, View* view)
{
    const bool isStatistics = view->question == Question::Statistics;
    const char* const name = settings.form == Form::Value ? "value" : "prom";
    if (settings.form == Form::Name) view->columns = {idColumn(view->question)};
    else if (!isStatistics) return fmt::format("--output '{}': there are no values to show", name);
    else if (settings.form == Form::Value) view->columns = {valueColumn(settings)};
    else view->columns = {Column::Target, Column::Group, Column::Id, Column::Value};
    return settings.columns.empty() ? "" : "--columns: this output form has columns of its own";
}

Cell changeCell(const Change& change, const std::optional<std::string>& text, std::string forPeople)
{
    Cell cell;
    cell.text = text;
    cell.forPeople = text ? std::move(forPeople) : std::string(noteText(change.note));
    if (cell.forPeople->empty()) cell.forPeople = std::nullopt;
    if (change.note != Note::None) cell.emphasis = Emphasis::Warning;
    return cell;
}

Cell deltaCell(const Settings& settings, const Change& change)
{
    if (!change.delta) return changeCell(change, std::nullopt, "");
    return changeCell(change, numberText(*change.delta, Units::Raw), numberText(*change.delta, settings.units));
}

Cell rateCell(const Settings& settings, const Change& change)
{
    if (!change.rate) return changeCell(change, std::nullopt, "");
    return changeCell(change, rateText(*change.rate, Units::Raw), rateText(*change.rate, settings.units));
}

Cell valueCell(const Settings& settings, const View& view, const Entry& entry)
{
    Cell cell;
    if (entry.record == nullptr) return cell;
    cell.text = entry.record->value;
    if (view.isSequence && entry.change.isOther) cell.emphasis = Emphasis::Changed;
    const std::optional<Number> number = settings.units != Units::Raw ? readNumber(entry.record->value) : std::nullopt;
    if (number) cell.forPeople = numberText(*number, settings.units);
    return cell;
}

Cell textCell(std::optional<std::string> text)
{
    return {std::move(text), std::nullopt, Emphasis::None};
}

Cell groupCell(const View& view, const Entry& entry)
{
    if (entry.record == nullptr) return {};
    if (view.question == Question::Groups) return textCell(entry.record->id);
    return entry.record->group.empty() ? Cell{} : textCell(entry.record->group);
}

Cell noteCell(const Entry& entry)
{
    if (entry.change.note == Note::None) return {std::nullopt, "", Emphasis::None};
    return {noteText(entry.change.note), std::nullopt, Emphasis::Warning};
}

Cell cellFor(const Settings& settings, const View& view, const Entry& entry, Column column)
{
    switch (column) {
    case Column::Time: return textCell(timeText(settings, entry.time));
    case Column::Target: return textCell(*entry.target);
    case Column::Group: return groupCell(view, entry);
    case Column::Id: return entry.record != nullptr ? textCell(entry.record->id) : Cell{};
    case Column::Value: return valueCell(settings, view, entry);
    case Column::Delta: return deltaCell(settings, entry.change);
    case Column::Rate: return rateCell(settings, entry.change);
    case Column::Note: return noteCell(entry);
    default: return {}; // those of other commands are not allowed here
    }
}

// Numbers from the largest on, then texts.
bool hasMore(const Entry& left, const Entry& right)
{
    const std::optional<Number> leftNumber = left.record ? readNumber(left.record->value) : std::nullopt;
    const std::optional<Number> rightNumber = right.record ? readNumber(right.record->value) : std::nullopt;
    if (leftNumber && rightNumber) return *leftNumber > *rightNumber;
    if (leftNumber || rightNumber) return leftNumber.has_value();
    return left.record && right.record && left.record->value < right.record->value;
}

bool isFaster(const Entry& left, const Entry& right)
{
    if (left.change.rate && right.change.rate) return *left.change.rate > *right.change.rate;
    return left.change.rate.has_value() && !right.change.rate.has_value();
}

bool isBefore(const Entry& left, const Entry& right)
{
    if (left.record == nullptr || right.record == nullptr) return left.record == nullptr && right.record != nullptr;
    return left.record->id < right.record->id;
}

} // namespace

std::string makeView(const Settings& settings, Question question, bool isSequence, View* view)
{
    *view = {question, isSequence, {}};
    const bool isFixed =
        settings.form == Form::Value || settings.form == Form::Name || settings.form == Form::Prometheus;
    if (isFixed) return fixedColumns(settings, view);
    view->columns = usualColumns(settings, *view);
    if (settings.columns.empty()) return "";
    const std::string problem = readColumns(settings.columns, allowedColumns(*view), &view->columns);
    return problem.empty() ? "" : "--columns: " + problem;
}

bool needsGroups(const View& view, const Settings& settings)
{
    const bool isShown = std::find(view.columns.begin(), view.columns.end(), Column::Group) != view.columns.end();
    return view.question == Question::Statistics && isShown && settings.form != Form::Prometheus;
}

std::vector<Entry> selectEntries(const Settings& settings, std::vector<Entry> entries)
{
    std::erase_if(entries, [&](const Entry& entry) {
        return entry.record != nullptr && !isSelected(settings.selection, entry.record->id);
    });
    const SortKey sort = settings.selection.sort;
    if (sort == SortKey::Name) std::stable_sort(entries.begin(), entries.end(), isBefore);
    if (sort == SortKey::Value) std::stable_sort(entries.begin(), entries.end(), hasMore);
    if (sort == SortKey::Rate) std::stable_sort(entries.begin(), entries.end(), isFaster);
    const std::size_t limit = settings.selection.limit;
    if (limit > 0 && entries.size() > limit) entries.resize(limit);
    return entries;
}

Sheet emptySheet(const View& view)
{
    Sheet sheet;
    sheet.kind = "statistic";
    sheet.documentKind = "statistics";
    if (view.question == Question::Groups) {
        sheet.kind = "group";
        sheet.documentKind = "groups";
    } else if (view.question == Question::Ids) {
        sheet.kind = "id";
        sheet.documentKind = "ids";
    }
    sheet.time = isoTime(std::chrono::system_clock::now(), true);
    sheet.columns = view.columns;
    return sheet;
}

void addRows(const Settings& settings, const View& view, const std::vector<Entry>& entries, Sheet* sheet)
{
    for (const Entry& entry : entries) {
        std::vector<Cell> row;
        row.reserve(view.columns.size());
        for (Column column : view.columns) row.push_back(cellFor(settings, view, entry, column));
        sheet->rows.push_back(std::move(row));
    }
}

std::string timeText(const Settings& settings, WallTime time)
{
    return settings.time == TimeForm::Unix ? unixTime(time) : isoTime(time, settings.isUtc);
}
