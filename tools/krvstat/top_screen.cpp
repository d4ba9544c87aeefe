// Whatever the size of the window is, nothing is drawn beyond it, and texts of a gateway go through printable.

#include "top_screen.h"

#include "printable.h"

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#define NCURSES_NOMACROS // they have names as common as "move" and "erase"
#include <ncurses.h>

namespace {

constexpr std::size_t ValueColumns = 16;
constexpr std::size_t RateColumns = 12;
constexpr std::size_t LeastIdColumns = 8;
constexpr std::size_t MostGraphColumns = 40;
constexpr std::size_t LeastGraphColumns = 6; // fewer show nothing

// In windows of one column ncurses reads beside its lines.
constexpr int LeastColumns = 2;

constexpr const char* Help[] = {
    "  q        end",
    "  /        filter: part of an id; Enter keeps it, Esc takes it away",
    "  s        sort: none, name, value, rate",
    "  p        pause and go on",
    "  arrows   up and down; also page up, page down, home, end",
    "  h        this help, and back",
    "",
    "  RATE/S is the change a second: \"reset\" where the number has fallen,",
    "  \"gap\" where the sample before is missing. The graph shows rates, or",
    "  values of what is no counter; the newest is at the right.",
};

SCREEN* terminal = nullptr; // of the process, as its terminal is
bool hasBlocks = false;

enum ColourPair : short { HeadingPair = 1, ChangedPair, NotePair };

attr_t coloured(ColourPair pair)
{
    return has_colors() ? static_cast<attr_t>(COLOR_PAIR(pair)) : A_NORMAL;
}

std::size_t columnsOnScreen()
{
    return static_cast<std::size_t>(std::max(COLS, 0));
}

// The text from a column on, cut to so many columns, on the left or the right of them.
void put(
    int line, std::size_t column, std::size_t columns, const std::string& text, attr_t attributes, bool isRight = false)
{
    if (columns == 0 || column >= columnsOnScreen()) return;
    const Printable shown = printableWithin(text, std::min(columns, columnsOnScreen() - column));
    const std::size_t blanks = isRight && shown.columns < columns ? columns - shown.columns : 0;
    attrset(static_cast<int>(attributes)); // so it wants them
    mvaddstr(line, static_cast<int>(column + blanks), shown.text.c_str());
    attrset(A_NORMAL);
}

struct Widths {
    std::size_t id = 0;
    std::size_t value = 0;
    std::size_t rate = 0;
    std::size_t graph = 0;
};

// Ids and values first; rates and graphs as far as there is room.
Widths widthsFor(const std::vector<TopRow>& rows)
{
    std::size_t longest = LeastIdColumns;
    for (const TopRow& row : rows) longest = std::max(longest, printable(row.id).columns);
    const std::size_t all = columnsOnScreen();
    Widths widths;
    std::size_t left = all > 2 ? all - 2 : 0; // the rows of a section are moved in
    widths.value = std::min(ValueColumns, left / 3);
    left -= widths.value;
    widths.rate = left >= RateColumns + 1 + LeastIdColumns ? RateColumns : 0;
    left -= widths.rate;
    widths.id = std::min(longest, left > 1 ? left - 1 : left);
    left -= widths.id;
    widths.graph = left >= LeastGraphColumns + 2 ? std::min(MostGraphColumns, left - 2) : 0;
    return widths;
}

void drawRow(int line, const TopRow& row, const Widths& widths)
{
    if (!row.heading.empty()) {
        put(line, 0, columnsOnScreen(), row.heading, A_BOLD | coloured(HeadingPair));
        return;
    }
    std::size_t column = 2;
    put(line, column, widths.id, row.id, A_NORMAL);
    column += widths.id;
    put(line, column + 1, widths.value - std::min<std::size_t>(widths.value, 1), row.value,
        row.isChanged ? A_BOLD | coloured(ChangedPair) : A_NORMAL, true);
    column += widths.value;
    put(line, column + 1, widths.rate - std::min<std::size_t>(widths.rate, 1), row.rate,
        row.hasNote ? coloured(NotePair) : A_NORMAL, true);
    column += widths.rate;
    if (widths.graph > 0) {
        mvaddstr(line, static_cast<int>(column + 2), graphOf(*row.history, widths.graph, hasBlocks).c_str());
    }
}

void drawHeadings(const Widths& widths)
{
    put(1, 2, widths.id, "STATISTIC", A_UNDERLINE);
    std::size_t column = 2 + widths.id;
    put(1, column + 1, widths.value - std::min<std::size_t>(widths.value, 1), "VALUE", A_UNDERLINE, true);
    column += widths.value;
    put(1, column + 1, widths.rate - std::min<std::size_t>(widths.rate, 1), "RATE/S", A_UNDERLINE, true);
    column += widths.rate;
    if (widths.graph > 0) put(1, column + 2, widths.graph, "HISTORY", A_UNDERLINE);
}

void drawRows(const TopFrame& frame, const std::vector<TopRow>& rows)
{
    const Widths widths = widthsFor(rows);
    if (LINES > 2) drawHeadings(widths);
    const std::size_t count = rowsOnScreen();
    for (std::size_t i = 0; i < count && frame.firstRow + i < rows.size(); ++i) {
        drawRow(static_cast<int>(i) + 2, rows[frame.firstRow + i], widths);
    }
}

void drawHelp()
{
    int line = 2;
    for (const char* text : Help) {
        if (line + 1 >= LINES) break;
        put(line++, 0, columnsOnScreen(), text, A_NORMAL);
    }
}

void drawFrame(const TopFrame& frame)
{
    put(0, 0, columnsOnScreen(), frame.title, A_REVERSE);
    const std::size_t state = printable(frame.state).columns;
    const std::size_t title = printable(frame.title).columns;
    if (title + 2 + state <= columnsOnScreen()) put(0, columnsOnScreen() - state, state, frame.state, A_BOLD);
    if (LINES > 1) put(LINES - 1, 0, columnsOnScreen(), frame.prompt, frame.isPrompting ? A_BOLD : A_DIM);
}

KeyPress pressOf(Key key)
{
    return {key, ""};
}

KeyPress functionKey(wint_t code)
{
    switch (code) {
    case KEY_UP: return pressOf(Key::Up);
    case KEY_DOWN: return pressOf(Key::Down);
    case KEY_PPAGE: return pressOf(Key::PageUp);
    case KEY_NPAGE: return pressOf(Key::PageDown);
    case KEY_HOME: return pressOf(Key::Home);
    case KEY_END: return pressOf(Key::End);
    case KEY_ENTER: return pressOf(Key::Enter);
    case KEY_BACKSPACE: return pressOf(Key::Backspace);
    default: return {Key::Character, ""}; // one that means nothing here
    }
}

} // namespace

std::string openScreen(bool isColoured)
{
    if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) return "the command top needs a terminal";
    terminal = newterm(nullptr, stdout, stdin);
    if (terminal == nullptr) return "the command top does not know this kind of terminal (TERM)";
    set_escdelay(50); // milliseconds in which the rest of a key's sequence has to come
    cbreak();
    noecho();
    nonl();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    hasBlocks = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    if (isColoured && has_colors()) {
        start_color();
        use_default_colors();
        init_pair(HeadingPair, COLOR_CYAN, -1);
        init_pair(ChangedPair, COLOR_GREEN, -1);
        init_pair(NotePair, COLOR_YELLOW, -1);
    }
    fitScreen();
    return "";
}

void closeScreen()
{
    if (terminal == nullptr) return;
    endwin();
    delscreen(terminal);
    terminal = nullptr;
}

void fitScreen()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) return;
    resizeterm(size.ws_row, std::max<int>(size.ws_col, LeastColumns));
    clearok(curscr, TRUE); // what the terminal made of the old picture is not known
}

std::size_t rowsOnScreen()
{
    return LINES > 3 ? static_cast<std::size_t>(LINES) - 3 : 0;
}

void drawScreen(const TopFrame& frame, const std::vector<TopRow>& rows)
{
    erase();
    drawFrame(frame);
    if (frame.isHelp) drawHelp();
    else drawRows(frame, rows);
    curs_set(frame.isPrompting ? 1 : 0);
    const std::size_t prompt = printable(frame.prompt).columns;
    move(std::max(LINES - 1, 0), frame.isPrompting ? std::min(static_cast<int>(prompt), COLS - 1) : 0);
    refresh();
}

KeyPress readKey()
{
    wint_t code = 0;
    const int kind = get_wch(&code);
    if (kind == ERR) return {};
    if (kind == KEY_CODE_YES) return functionKey(code);
    if (code == '\r' || code == '\n') return pressOf(Key::Enter);
    if (code == 27) return pressOf(Key::Escape);
    if (code == 127 || code == '\b') return pressOf(Key::Backspace);
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    const std::size_t count = std::wcrtomb(bytes, static_cast<wchar_t>(code), &state);
    if (count == static_cast<std::size_t>(-1)) return {Key::Character, ""};
    return {Key::Character, std::string(bytes, count)};
}
