// Numbers in texts, and how they are written for people.
#ifndef KRVSTAT_NUMBER_H
#define KRVSTAT_NUMBER_H

#include <optional>
#include <string>
#include <string_view>

// Wide enough to hold each 64-bit counter exactly.
using Number = long double;

enum class Units { Raw, Si, Iec };

// The number that the whole text is, in decimal digits with an optional sign, fraction and exponent; none otherwise.
std::optional<Number> readNumber(std::string_view text);

// The text of the number as JSON has it; none unless every reader of JSON gets back the very digits that stand in the
// text: plain decimal notation, and not more of it than a double holds.
std::optional<std::string> roundTripNumber(std::string_view text);

// "1234.5"; with units "1.23k" or "1.21Ki". Without units a whole number has no fraction.
std::string numberText(Number number, Units units);

// The same for a number per second, which has three decimals at most.
std::string rateText(Number number, Units units);

#endif
