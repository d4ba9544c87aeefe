#include "forms.h"

#include "printable.h"

namespace {

struct FormRow {
    const char* name;
    Form form;
};

constexpr FormRow Rows[] = {{"table", Form::Table}, {"wide", Form::Wide}, {"json", Form::Json},
    {"jsonl", Form::JsonLines}, {"csv", Form::Csv}, {"tsv", Form::Tsv}, {"prom", Form::Prometheus},
    {"value", Form::Value}, {"name", Form::Name}};

std::string renderForMachines(const Sheet& sheet, const Style& style)
{
    if (style.form == Form::Csv) return renderCsv(sheet, style.hasHeader);
    if (style.form == Form::Tsv) return renderTsv(sheet, style.hasHeader);
    if (style.form == Form::Prometheus) return renderPrometheus(sheet, style.hasHeader);
    return renderPlain(sheet);
}

} // namespace

bool readForm(std::string_view name, Form* form)
{
    for (const FormRow& row : Rows) {
        if (row.name != name) continue;
        *form = row.form;
        return true;
    }
    return false;
}

std::string printableLines(std::string_view text)
{
    std::string all;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        all += printableText(text.substr(0, end));
        if (end == std::string_view::npos) break;
        all += '\n';
        text.remove_prefix(end + 1);
    }
    return all;
}

std::string render(const Sheet& sheet, const Style& style)
{
    if (style.form == Form::Table || style.form == Form::Wide) return renderTable(sheet, style);
    if (style.form == Form::Json) return renderJson(sheet, style.isTerminal);
    if (style.form == Form::JsonLines) return renderJsonLines(sheet, style.isTerminal);
    const std::string text = renderForMachines(sheet, style);
    return style.isTerminal ? printableLines(text) : text;
}
