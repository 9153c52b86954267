#include "cli/GraphRenderer.h"

#include <gtest/gtest.h>

namespace {

using vn::Record;

std::vector<vn::cli::GraphRow> laidOut(
    const std::vector<std::pair<std::string, std::vector<std::string>>>& commits) {
    std::vector<Record> rows;
    for (const auto& [rev, parents] : commits) {
        Record row{{"rev", rev}, {"parentid1", parents.empty() ? "" : parents[0]}};
        if (parents.size() > 1) {
            row.set("parentid2", parents[1]);
        }
        rows.push_back(std::move(row));
    }
    vn::graph::addGraphInfoToLogRevisions(rows, nullptr, false);
    std::vector<vn::cli::GraphRow> graphRows;
    for (const Record& row : rows) {
        graphRows.push_back({row["graph"].objectAs<VNLogGraphEntry>(), row.string("rev") == "-1",
                             row.string("rev"), ""});
    }
    return graphRows;
}

TEST(GraphRenderer, TextShowsDotsLanesAndBends) {
    auto rows = laidOut({{"-1", {"M"}},
                         {"T", {"B1"}},
                         {"M", {"A1", "B1"}},
                         {"A1", {"R"}},
                         {"B1", {"R"}},
                         {"R", {}}});
    auto text = vn::cli::drawGraphText(rows, false, false);
    ASSERT_EQ(text.size(), rows.size());
    for (const std::string& line : text) {
        EXPECT_EQ(line.find("\x1b"), std::string::npos) << "no colour asked for";
    }
    const std::vector<std::string> expected = {
        "◌   ",  // the working copy's line runs down from its dot
        "│ ● ",  // a second branch tip in lane 1
        "●─┤ ",  // the merge line joins the tip's line in lane 1
        "● │ ", "│ ● ",
        "●─╯ ",  // both lines end at the root
    };
    EXPECT_EQ(text, expected);

    auto coloured = vn::cli::drawGraphText(rows, true, true);
    EXPECT_NE(coloured[1].find("\x1b[38;2;"), std::string::npos);
    EXPECT_NE(coloured[1].find("\x1b[0m"), std::string::npos);
    auto palette = vn::cli::drawGraphText(rows, true, false);
    EXPECT_NE(palette[1].find("\x1b[38;5;"), std::string::npos);
}

TEST(GraphRenderer, SvgUsesTheCellGeometry) {
    auto rows = laidOut({{"-1", {"A"}}, {"A", {}}});
    rows[1].text = "Fix <angle> & \"quotes\"";
    rows[1].labels = "main";
    std::string svg = vn::cli::drawGraphSvg(rows);
    EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
    EXPECT_NE(svg.find("stroke=\"white\" stroke-width=\"4\""), std::string::npos);
    EXPECT_NE(svg.find("stroke-width=\"2\""), std::string::npos);
    EXPECT_NE(svg.find("cx=\"5.5\" cy=\"11\" r=\"5.25\""), std::string::npos)
        << "the working-copy dot is 10.5 across, in lane 0 at 5.5";
    EXPECT_NE(svg.find("cx=\"5.5\" cy=\"33\" r=\"3.5\""), std::string::npos);
    EXPECT_NE(svg.find("r=\"2\" fill=\"white\""), std::string::npos);
    EXPECT_NE(svg.find("Fix &lt;angle&gt; &amp; &quot;quotes&quot;"), std::string::npos);
    EXPECT_NE(svg.find(">main</tspan>"), std::string::npos);
}

}  // namespace
