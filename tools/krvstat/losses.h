// Targets that are lost for a while: said once when they go, and once when they are back.
#ifndef KRVSTAT_LOSSES_H
#define KRVSTAT_LOSSES_H

#include "inquiry.h"
#include "settings.h"

#include <set>
#include <string>

// Those whose last sample is missing.
using Losses = std::set<std::string>;

void noteAnswer(const Settings& settings, const TargetAnswer& answer, Losses* losses);

#endif
