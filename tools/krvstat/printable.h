// Texts from a gateway or a command line, made fit to be looked at.
#ifndef KRVSTAT_PRINTABLE_H
#define KRVSTAT_PRINTABLE_H

#include <cstddef>
#include <string>
#include <string_view>

struct Printable {
    std::string text;
    std::size_t columns = 0; // on a terminal; not the number of bytes
};

// Every character that the user's locale can print stays; '\' becomes "\\" and each other byte "\xNN", so that no
// control character reaches a terminal and two different texts never look the same.
Printable printable(std::string_view raw);

// As printable, cut to at most so many columns, and then ending in "...".
Printable printableWithin(std::string_view raw, std::size_t columns);

// As printable, but '\' stays: for text that has a syntax of its own, which the escapes would break.
std::string printableText(std::string_view raw);

// 'text', for messages.
std::string inQuotes(std::string_view raw);

#endif
