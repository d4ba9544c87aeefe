// The terminal of "top": all that ncurses is used for.
#ifndef KRVSTAT_TOP_SCREEN_H
#define KRVSTAT_TOP_SCREEN_H

#include "top_model.h"

#include <string>
#include <vector>

// What stands around the statistics.
struct TopFrame {
    std::string title;        // the first line
    std::string state;        // at its right
    std::string prompt;       // the last line
    bool isPrompting = false; // the cursor stands behind the prompt
    bool isHelp = false;
    std::size_t firstRow = 0; // of the rows that is shown
};

enum class Key { None, Character, Up, Down, PageUp, PageDown, Home, End, Enter, Escape, Backspace };

struct KeyPress {
    Key key = Key::None;
    std::string text; // of Key::Character, in the user's locale
};

// Takes the terminal; returns an empty string, or why it cannot be had.
std::string openScreen(bool isColoured);

// Gives it back as it was. May be called without openScreen, and again.
void closeScreen();

// To be called when the terminal may have another size.
void fitScreen();

// Lines that rows can take.
std::size_t rowsOnScreen();

void drawScreen(const TopFrame& frame, const std::vector<TopRow>& rows);

// The next key that has been pressed; Key::None if there is no more.
KeyPress readKey();

#endif
