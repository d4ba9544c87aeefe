// What "top" shows, without a terminal: the statistics of all gateways in sections, their histories, and what the keys
// have set.
#ifndef KRVSTAT_TOP_MODEL_H
#define KRVSTAT_TOP_MODEL_H

#include "graph.h"
#include "inquiry.h"
#include "rates.h"
#include "settings.h"
#include "timestamps.h"

#include <map>
#include <string>
#include <vector>

struct TopStatistic {
    History rates;
    History values;
    bool hasFallen = false; // then it is no counter, and its values are more interesting than its rates
};

struct TopTarget {
    TargetAnswer last; // the last answer with a sample; its failure is that of the last round
    bool hasSample = false;
    RateBook book;
    std::map<std::string, TopStatistic> statistics; // by id
};

// One line: a section's heading, or a statistic.
struct TopRow {
    std::string heading; // empty: it is a statistic
    std::string id;
    std::string value;
    std::string rate; // or a note
    const History* history = nullptr;
    bool isChanged = false;
    bool hasNote = false;
};

struct TopModel {
    std::map<std::string, TopTarget> targets;
    std::vector<std::string> order; // of targets
    WallTime time{};                // of the last round
    std::string status;             // what went wrong last; empty: nothing
    SortKey sort = SortKey::None;
    std::string filter; // part of an id, in any case
};

void takeRound(const Settings& settings, std::vector<TargetAnswer> answers, TopModel* model);

// All lines, whether they fit or not. They borrow from the model.
std::vector<TopRow> rowsOf(const Settings& settings, const TopModel& model);

void nextSort(TopModel* model);
const char* sortName(SortKey sort);

#endif
