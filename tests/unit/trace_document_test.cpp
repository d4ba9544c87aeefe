// docs/trace.md lists every trace point: this keeps the list and the catalogue in step.
//
// When they differ, the list as it should be is written beside the test program, ready to be put between the markers.
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "trace_catalogue.h"

using namespace krvtest;

namespace {

const std::string begin = "<!-- trace points: begin -->\n";
const std::string end = "<!-- trace points: end -->\n";

std::string contentOf(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Blanks that end a line are part of it: shown as they are inside the code span.
std::string asTable(const ModuleBlock& module)
{
    std::ostringstream table;
    table << "\n### " << module.module << " (" << module.first << " to " << module.last << ")\n\n"
          << "| number | kind | level | line |\n|---|---|---|---|\n";
    for (const TracePoint& point : traceCatalogue()) {
        if (point.number < module.first || point.number > module.last) continue;
        table << "| " << point.number << " | " << point.kind << " | " << point.level << " | `` " << point.message
              << " `` |\n";
    }
    return table.str();
}

std::string expectedList()
{
    std::string list;
    for (const ModuleBlock& module : moduleBlocks()) list += asTable(module);
    return list + "\n";
}

} // namespace

TEST(TraceDocument, ListsEveryTracePoint)
{
    const std::string document = contentOf(KRVSTATS_DOCS "/trace.md");
    const std::size_t from = document.find(begin);
    const std::size_t to = document.find(end);
    ASSERT_NE(std::string::npos, from);
    ASSERT_NE(std::string::npos, to);
    const std::string listed = document.substr(from + begin.size(), to - from - begin.size());
    const std::string expected = expectedList();
    if (listed != expected) std::ofstream("trace-points.md") << expected;
    EXPECT_TRUE(listed == expected) << "docs/trace.md is out of step; the list as it should be is in trace-points.md";
}
