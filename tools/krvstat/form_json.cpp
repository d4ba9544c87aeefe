// The output forms "json" (one document) and "jsonl" (one object a line).
//
// Values stay texts. "number" stands beside a value only if the whole text is a number that survives a round trip.

#include "forms.h"

#include "json_text.h"

namespace {

void addCell(Json* record, Column column, const Cell& cell)
{
    if (!cell.text) return;
    const ColumnRow& row = rowOf(column);
    if (row.isNumeric) {
        // Written by us, so it is a number; the parser keeps a whole one whole.
        (*record)[row.key] = Json::parse(*cell.text);
        return;
    }
    addText(record, row.key, *cell.text);
    if (column != Column::Value) return;
    const std::optional<std::string> number = roundTripNumber(*cell.text);
    if (number) (*record)["number"] = Json::parse(*number);
}

Json recordOf(const Sheet& sheet, const std::vector<Cell>& row)
{
    Json record = Json::object();
    for (std::size_t i = 0; i < row.size(); ++i) addCell(&record, sheet.columns[i], row[i]);
    return record;
}

Json troubleOf(const Trouble& trouble)
{
    Json record = Json::object();
    addText(&record, "target", trouble.target);
    if (!trouble.element.empty()) addText(&record, "element", trouble.element);
    record["exit_code"] = trouble.exitCode;
    addText(&record, "message", trouble.sentence);
    return record;
}

Json lineOf(const char* kind, const Json& record)
{
    Json line = Json::object();
    line["schema_version"] = SchemaVersion;
    line["kind"] = kind;
    line.update(record);
    return line;
}

} // namespace

// Each record on a line of its own, so that documents can be compared and searched by lines.
std::string renderJson(const Sheet& sheet, bool isAscii)
{
    std::string text = "{\n  \"schema_version\": " + std::to_string(SchemaVersion) + ",\n  \"kind\": \"" +
                       sheet.documentKind + "\",\n  \"time\": \"" + sheet.time + "\",\n  \"records\": [";
    for (std::size_t i = 0; i < sheet.rows.size(); ++i) {
        text += i > 0 ? ",\n    " : "\n    ";
        text += jsonText(recordOf(sheet, sheet.rows[i]), isAscii);
    }
    text += sheet.rows.empty() ? "],\n  \"failures\": [" : "\n  ],\n  \"failures\": [";
    for (std::size_t i = 0; i < sheet.troubles.size(); ++i) {
        text += i > 0 ? ",\n    " : "\n    ";
        text += jsonText(troubleOf(sheet.troubles[i]), isAscii);
    }
    text += sheet.troubles.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return text;
}

std::string renderJsonLines(const Sheet& sheet, bool isAscii)
{
    std::string text;
    for (const std::vector<Cell>& row : sheet.rows) {
        text += jsonText(lineOf(sheet.kind.c_str(), recordOf(sheet, row)), isAscii);
        text += '\n';
    }
    for (const Trouble& trouble : sheet.troubles) {
        text += jsonText(lineOf("failure", troubleOf(trouble)), isAscii);
        text += '\n';
    }
    return text;
}
