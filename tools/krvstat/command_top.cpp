// top: the full screen. This is the loop: samples, keys, sizes and signals, each as it comes.

#include "commands.h"

#include "feed.h"
#include "output.h"
#include "recording.h"
#include "rounds.h"
#include "top_model.h"
#include "top_screen.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr const char* Hint = "q end  / filter  s sort  p pause  h help";

struct Top {
    const Settings& settings;
    Milliseconds interval;
    TopModel model;
    TopFrame frame;
    bool isPaused = false;
    bool isFiltering = false;
    bool isOver = false;
    std::vector<RecordedRound> recorded; // of --input
    std::size_t nextRecorded = 0;
};

std::string targetNames(const Top& top)
{
    if (!top.settings.input.empty()) return top.settings.input;
    std::string names;
    for (const Target& target : top.settings.targets) names += (names.empty() ? "" : " ") + targetText(target);
    return names;
}

void draw(Top* top)
{
    const std::vector<TopRow> rows = rowsOf(top->settings, top->model);
    const std::size_t shown = rowsOnScreen();
    const std::size_t last = rows.size() > shown ? rows.size() - shown : 0;
    TopFrame& frame = top->frame;
    frame.firstRow = std::min(frame.firstRow, last);
    frame.title = fmt::format("krvstat top  {}  every {}", targetNames(*top), durationText(top->interval));
    const bool hasTime = top->model.time != WallTime();
    frame.state = fmt::format("{}sort {}{}", top->isPaused ? "PAUSED  " : "", sortName(top->model.sort),
        hasTime ? "  " + isoTime(top->model.time, top->settings.isUtc).substr(11, 8) : "");
    frame.isPrompting = top->isFiltering;
    if (top->isFiltering) frame.prompt = "/" + top->model.filter;
    else if (!top->model.status.empty()) frame.prompt = top->model.status;
    else if (!hasTime) frame.prompt = "connecting";
    else if (rows.empty()) frame.prompt = "nothing to show  " + std::string(Hint);
    else if (!top->model.filter.empty()) frame.prompt = fmt::format("filter: {}  {}", top->model.filter, Hint);
    else frame.prompt = Hint;
    drawScreen(frame, rows);
}

void handleFilterKey(const KeyPress& press, Top* top)
{
    std::string& filter = top->model.filter;
    if (press.key == Key::Enter) top->isFiltering = false;
    if (press.key == Key::Character) filter += press.text;
    if (press.key == Key::Escape) {
        filter.clear();
        top->isFiltering = false;
    }
    if (press.key != Key::Backspace) return;
    // the last character: its last byte, and those of UTF-8 before it
    while (!filter.empty() && (static_cast<unsigned char>(filter.back()) & 0xC0) == 0x80) filter.pop_back();
    if (!filter.empty()) filter.pop_back();
}

void scroll(Key key, Top* top)
{
    std::size_t& first = top->frame.firstRow;
    const std::size_t page = std::max<std::size_t>(rowsOnScreen(), 1);
    if (key == Key::Up) first -= std::min<std::size_t>(first, 1);
    if (key == Key::Down) ++first; // draw does not go beyond the end
    if (key == Key::PageUp) first -= std::min(first, page);
    if (key == Key::PageDown) first += page;
    if (key == Key::Home) first = 0;
    if (key == Key::End) first = rowsOf(top->settings, top->model).size();
}

void handleKey(const KeyPress& press, Top* top)
{
    if (top->isFiltering) {
        handleFilterKey(press, top);
        return;
    }
    if (press.key != Key::Character) {
        if (press.key == Key::Escape) top->model.filter.clear();
        scroll(press.key, top);
        return;
    }
    if (press.text == "q") top->isOver = true;
    if (press.text == "/") top->isFiltering = true;
    if (press.text == "s") nextSort(&top->model);
    if (press.text == "p" || press.text == " ") top->isPaused = !top->isPaused;
    if (press.text == "h" || press.text == "?") top->frame.isHelp = !top->frame.isHelp;
}

void handleKeys(Top* top)
{
    for (KeyPress press = readKey(); press.key != Key::None && !top->isOver; press = readKey()) handleKey(press, top);
}

// The next round of a recording; the last one stays.
void takeRecorded(const Inquiry& inquiry, Top* top)
{
    if (top->nextRecorded >= top->recorded.size()) return;
    std::vector<TargetAnswer> answers;
    for (const TargetAnswer& answer : top->recorded[top->nextRecorded].answers) {
        answers.push_back(answerFromSample(answer, inquiry));
    }
    ++top->nextRecorded;
    takeRound(top->settings, std::move(answers), &top->model);
}

// A round begins every interval; it is shown when all have answered, or when it is time for the next one.
RoundsEnd runLoop(const Inquiry& inquiry, Top* top)
{
    Feed feed(top->recorded.empty() ? top->settings.targets : std::vector<Target>(), inquiry, top->settings.limits);
    SteadyTime next = std::chrono::steady_clock::now();
    bool isAsked = false;
    while (!top->isOver) {
        draw(top);
        const Event event = waitForEvent(next, true);
        if (event == Event::Interrupted) return RoundsEnd::Done; // it is a key like "q"
        if (event == Event::Terminated) return RoundsEnd::Terminated;
        if (event == Event::ReaderGone) return RoundsEnd::ReaderGone;
        if (event == Event::Resized) fitScreen();
        if (event == Event::Input) handleKeys(top);
        const bool isComplete = isAsked && feed.isAnswered();
        if (isAsked && (isComplete || event == Event::Time)) {
            takeRound(top->settings, feed.collect(), &top->model);
            isAsked = false;
        }
        if (event != Event::Time) continue;
        next = std::chrono::steady_clock::now() + top->interval;
        if (top->isPaused) continue;
        if (!top->recorded.empty()) {
            takeRecorded(inquiry, top);
        } else {
            feed.ask();
            isAsked = true;
        }
    }
    return RoundsEnd::Done;
}

} // namespace

int runTop(const Settings& settings)
{
    Top top{settings, settings.interval.value_or(Milliseconds(2000)), {}, {}, false, false, false, {}, 0};
    top.model.sort = settings.selection.sort;
    if (!settings.input.empty()) {
        const std::string problem = readRecording(settings.input, &top.recorded);
        if (!problem.empty()) return refuseUsage(problem);
    }
    startEvents(); // before ncurses, which would catch signals itself
    const std::string problem = openScreen(styleFor(settings).isColoured);
    if (!problem.empty()) return refuseUsage(problem);
    RoundsEnd end = RoundsEnd::Done;
    try {
        end = runLoop({Question::Statistics, settings.names, true}, &top);
    } catch (...) {
        closeScreen();
        throw;
    }
    closeScreen();
    return end == RoundsEnd::Terminated ? 128 + terminatingSignal() : ExitDone;
}
