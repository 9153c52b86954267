#include "cli/GraphRenderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

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
        if (parents.size() > 2) {
            row.set("otherparentids", vn::Value::Array(parents.begin() + 2, parents.end()));
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

namespace {

// Removes the SGR escapes ("\x1b[...m") of coloured output.
std::string withoutEscapes(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\x1b') {
            i = text.find('m', i);
            if (i == std::string::npos) {
                break;
            }
            continue;
        }
        out.push_back(text[i]);
    }
    return out;
}

// A history many lanes wide: branches open and merge at random (octopus merges among them), in
// display order, newest first; the same seed gives the same history.
std::vector<std::pair<std::string, std::vector<std::string>>> wideHistory(unsigned seed,
                                                                          int commits) {
    std::mt19937 random(seed);
    std::vector<std::pair<std::string, std::vector<std::string>>> rows;
    rows.push_back({"-1", {"c0"}});
    for (int i = 0; i < commits; ++i) {
        std::vector<std::string> parents;
        auto later = [&](int reach) {
            return "c" + std::to_string(std::min(commits - 1, i + 1 + int(random() % reach)));
        };
        if (i + 1 < commits) {
            parents.push_back(later(random() % 4 == 0 ? 60 : 2));
            int merges = random() % 5 == 0 ? 1 + int(random() % 3) : 0;
            for (int m = 0; m < merges; ++m) {
                std::string parent = later(80);
                if (std::find(parents.begin(), parents.end(), parent) == parents.end()) {
                    parents.push_back(parent);
                }
            }
        }
        rows.push_back({"c" + std::to_string(i), parents});
    }
    return rows;
}

TEST(GraphRenderer, PlainTextIsTheColouredTextWithoutItsEscapes) {
    for (unsigned seed : {1u, 2u, 3u, 4u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        auto rows = laidOut(wideHistory(seed, 400));
        std::size_t widest = 0;
        for (const auto& row : rows) {
            widest = std::max<std::size_t>(widest, row.graph->lineColumns.size());
        }
        EXPECT_GT(widest, 12u) << "the history is wide enough to hold runs of lanes";
        for (bool trueColour : {false, true}) {
            auto plain = vn::cli::drawGraphText(rows, false, false);
            auto coloured = vn::cli::drawGraphText(rows, true, trueColour);
            ASSERT_EQ(plain.size(), coloured.size());
            for (std::size_t i = 0; i < rows.size(); ++i) {
                SCOPED_TRACE("row " + std::to_string(i));
                ASSERT_EQ(plain[i], withoutEscapes(coloured[i]));
                // A row printed as it comes is its own width: the padded row without the
                // trailing blanks of the lanes it does not reach.
                std::string alone, aloneColoured;
                vn::cli::appendGraphText(alone, *rows[i].graph, rows[i].workingCopy, false, false);
                vn::cli::appendGraphText(aloneColoured, *rows[i].graph, rows[i].workingCopy, true,
                                         trueColour);
                ASSERT_EQ(alone, withoutEscapes(aloneColoured));
                ASSERT_EQ(plain[i].compare(0, alone.size(), alone), 0);
                ASSERT_EQ(plain[i].find_first_not_of(' ', alone.size()), std::string::npos);
            }
        }
    }
}

}  // namespace
