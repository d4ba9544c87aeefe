// The output form "prom": the text format of Prometheus. Numbers are samples of krvstat_value, other texts are labels
// of krvstat_info. Ids stay labels: no metric name is made up that two of them could share. What is no UTF-8, which
// the format demands, becomes replacement characters.

#include "forms.h"

#include "json_text.h"

namespace {

std::string labelled(const Cell& cell)
{
    std::string escaped;
    for (const char c : cell.text ? toUtf8(*cell.text) : std::string()) {
        if (c == '\\') escaped += "\\\\";
        else if (c == '"') escaped += "\\\"";
        else if (c == '\n') escaped += "\\n";
        else escaped += c;
    }
    return '"' + escaped + '"';
}

std::string labelsOf(const std::vector<Cell>& row)
{
    std::string labels = "target=" + labelled(row[0]);
    if (row[1].text) labels += ",group=" + labelled(row[1]);
    return labels + ",id=" + labelled(row[2]);
}

} // namespace

std::string renderPrometheus(const Sheet& sheet, bool hasHeader)
{
    std::string numbers;
    std::string texts;
    for (const std::vector<Cell>& row : sheet.rows) {
        const Cell& value = row[3];
        if (!value.text || !row[2].text) continue;
        if (readNumber(*value.text)) numbers += "krvstat_value{" + labelsOf(row) + "} " + *value.text + '\n';
        else texts += "krvstat_info{" + labelsOf(row) + ",value=" + labelled(value) + "} 1\n";
    }
    if (hasHeader && !numbers.empty()) {
        numbers = "# HELP krvstat_value Statistics of a gateway whose values are numbers.\n"
                  "# TYPE krvstat_value untyped\n" +
                  numbers;
    }
    if (hasHeader && !texts.empty()) {
        texts = "# HELP krvstat_info Statistics of a gateway whose values are texts.\n"
                "# TYPE krvstat_info gauge\n" +
                texts;
    }
    return numbers + texts;
}
