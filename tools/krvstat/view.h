// From samples to a sheet: which rows, in which order, with which columns.
#ifndef KRVSTAT_VIEW_H
#define KRVSTAT_VIEW_H

#include "inquiry.h"
#include "rates.h"
#include "settings.h"
#include "sheet.h"
#include "timestamps.h"

#include <string>
#include <vector>

struct View {
    Question question = Question::Statistics;
    bool isSequence = false; // of samples: there may be rates, and each sample has its time
    std::vector<Column> columns;
};

// Returns an empty string, or what is wrong with --columns and --output for such a view.
std::string makeView(const Settings& settings, Question question, bool isSequence, View* view);

// Whether the records need their groups for this.
bool needsGroups(const View& view, const Settings& settings);

// One row to be. Borrows from the answers that it was made of.
struct Entry {
    const std::string* target;
    const Record* record; // NULL: the sample is missing
    Change change;
    WallTime time;
};

// Filters, sorts, cuts.
std::vector<Entry> selectEntries(const Settings& settings, std::vector<Entry> entries);

// A sheet without rows and troubles.
Sheet emptySheet(const View& view);
void addRows(const Settings& settings, const View& view, const std::vector<Entry>& entries, Sheet* sheet);

std::string timeText(const Settings& settings, WallTime time);

#endif
