#include "show.h"

#include "output.h"

int showOnce(
    const Settings& settings, const View& view, const std::vector<Entry>& entries, const Outcome& outcome, Sheet* sheet)
{
    addRows(settings, view, entries, sheet);
    return showSheet(settings, *sheet, exitCodeOf(outcome));
}

int showSheet(const Settings& settings, const Sheet& sheet, ExitCode code)
{
    const bool isTable = settings.form == Form::Table || settings.form == Form::Wide;
    if (sheet.rows.empty() && isTable) return code;
    const Written written = writeData(render(sheet, styleFor(settings)));
    return written == Written::No ? ExitOutput : code;
}
