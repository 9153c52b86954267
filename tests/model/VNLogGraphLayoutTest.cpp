#include <gtest/gtest.h>

#include <sstream>

#include "base/Json.h"
#include "model/VNLogGraphEntry.h"

namespace {

using vn::Record;
using vn::Value;

// A row of a history in display order: its id and its parents, first parent first.
struct Commit {
    std::string rev;
    std::vector<std::string> parents;
};

std::vector<Record> rowsFor(const std::vector<Commit>& commits) {
    std::vector<Record> rows;
    for (const Commit& c : commits) {
        Record row{{"rev", c.rev}, {"parentid1", c.parents.empty() ? "" : c.parents[0]}};
        if (c.parents.size() > 1) {
            row.set("parentid2", c.parents[1]);
        }
        if (c.parents.size() > 2) {
            Value::Array others(c.parents.begin() + 2, c.parents.end());
            row.set("otherparentids", std::move(others));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::shared_ptr<const VNLogGraphEntry> graphOf(const Record& row) {
    return row["graph"].objectAs<VNLogGraphEntry>();
}

// "rev c: end>start[flags] ..." per row; T terminates, O originates, S shared start.
std::vector<std::string> drawn(const std::vector<Record>& rows) {
    std::vector<std::string> lines;
    for (const Record& row : rows) {
        auto graph = graphOf(row);
        std::ostringstream out;
        out << row.string("rev") << " " << graph->commitColumn << ":";
        for (const auto& line : graph->lineColumns) {
            out << " " << line.endCol << ">" << line.startCol;
            std::string flags = std::string(line.terminates ? "T" : "") +
                                (line.originates ? "O" : "") + (line.sharedStart ? "S" : "");
            if (!flags.empty()) {
                out << " " << flags;
            }
            out << ",";
        }
        std::string text = out.str();
        if (text.back() == ',') {
            text.pop_back();
        }
        lines.push_back(text);
    }
    return lines;
}

std::vector<std::string> layout(const std::vector<Commit>& commits, bool firstParent = false) {
    auto rows = rowsFor(commits);
    vn::graph::addGraphInfoToLogRevisions(rows, nullptr, firstParent);
    return drawn(rows);
}

TEST(LogGraphLayout, LanesAndFlagsRowByRow) {
    struct Case {
        const char* name;
        std::vector<Commit> commits;
        std::vector<std::string> expected;
        bool firstParent = false;
    };
    const std::vector<Case> cases = {
        {"straight line down to a root",
         {{"C", {"B"}}, {"B", {"A"}}, {"A", {}}},
         {"C 0: 0>0 T", "B 0: 0>0", "A 0: 0>0 O"}},
        {"a second branch tip takes the first free lane; both lines converge on their base",
         {{"D", {"B"}}, {"C", {"B"}}, {"B", {"A"}}, {"A", {}}},
         {"D 0: 0>0 T", "C 1: 0>0, 1>1 T", "B 0: 0>0, 1>0 O", "A 0: 0>0 O"}},
        {"merge tip whose second parent already has a line joins it at its previous lane",
         {{"T", {"B1"}}, {"M", {"A1", "B1"}}, {"A1", {"R"}}, {"B1", {"R"}}, {"R", {}}},
         {"T 0: 0>0 T", "M 1: 0>0, 1>1 T, 1>0 TS", "A1 1: 0>0, 1>1", "B1 0: 0>0, 1>1",
          "R 0: 0>0 O, 1>0 O"}},
        {"arriving merge whose second parent has a line gets its lane in this row",
         {{"T", {"B1"}},
          {"C", {"M"}},
          {"M", {"A1", "B1"}},
          {"A1", {"R"}},
          {"B1", {"R"}},
          {"R", {}}},
         {"T 0: 0>0 T", "C 1: 0>0, 1>1 T", "M 1: 0>0, 1>1, 1>0 TS", "A1 1: 0>0, 1>1",
          "B1 0: 0>0, 1>1", "R 0: 0>0 O, 1>0 O"}},
        {"merge whose second parent has no line opens a lane at the right",
         {{"M", {"A1", "B1"}}, {"A1", {"R"}}, {"B1", {"R"}}, {"R", {}}},
         {"M 0: 0>0 T, 0>1 T", "A1 0: 0>0, 1>1", "B1 1: 0>0, 1>1", "R 0: 0>0 O, 1>0 O"}},
        {"octopus merge with three parents",
         {{"M", {"A", "B", "C"}}, {"A", {"R"}}, {"B", {"R"}}, {"C", {"R"}}, {"R", {}}},
         {"M 0: 0>0 T, 0>1 T, 0>2 T", "A 0: 0>0, 1>1, 2>2", "B 1: 0>0, 1>1, 2>2",
          "C 2: 0>0, 1>1, 2>2", "R 0: 0>0 O, 1>0 O, 2>0 O"}},
        {"a freed lane is reused at once by the lines to its right",
         {{"X", {"B"}}, {"Y", {"A"}}, {"Z", {"B"}}, {"B", {"A"}}, {"A", {}}},
         {"X 0: 0>0 T", "Y 1: 0>0, 1>1 T", "Z 2: 0>0, 1>1, 2>2 T", "B 0: 0>0, 1>1, 2>0 O",
          "A 0: 0>0 O, 1>0 O"}},
        {"first-parent mode draws no merge lines",
         {{"M", {"A1", "B1"}}, {"A1", {"R"}}, {"R", {}}},
         {"M 0: 0>0 T", "A1 0: 0>0", "R 0: 0>0 O"},
         true},
        {"two roots side by side", {{"B", {}}, {"A", {}}}, {"B 0: 0>0 TO", "A 0: 0>0 TO"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(layout(c.commits, c.firstParent), c.expected);
    }
}

TEST(LogGraphLayout, EmptyListDoesNothing) {
    std::vector<Record> rows;
    vn::graph::addGraphInfoToLogRevisions(rows, nullptr, false);
    EXPECT_TRUE(rows.empty());
}

TEST(LogGraphLayout, ColourSequenceIsDeterministicAndKeptAlongFirstParents) {
    auto rows = rowsFor({{"T1", {"B"}}, {"T2", {"B"}}, {"T3", {"B"}}, {"B", {"A"}}, {"A", {}}});
    vn::graph::addGraphInfoToLogRevisions(rows, nullptr, false);
    auto colour = [&](std::size_t i) { return graphOf(rows[i])->commitColour; };
    EXPECT_EQ(colour(0), VNLogGraphColour::hsb(0.555, 0.6, 0.7));
    // Each new tip steps the hue by 0.29 past the colours in sight.
    EXPECT_NEAR(colour(1).hue, 0.845, 1e-9);
    EXPECT_NEAR(colour(2).hue, 0.135, 1e-9);
    EXPECT_DOUBLE_EQ(colour(2).brightness, 0.7);
    // The leftmost arriving line carries the revision and keeps its colour.
    EXPECT_EQ(colour(3), colour(0));
    EXPECT_EQ(colour(4), colour(0));
    for (const auto& line : graphOf(rows[3])->lineColumns) {
        if (line.originates) {
            EXPECT_NE(line.lineColour, colour(3)) << "converging lines keep their own colour";
        }
    }
}

TEST(LogGraphLayout, SimilarityWrapsHuesAndIgnoresGreyAndSaturation) {
    auto c = VNLogGraphColour::hsb(0.05, 0.2, 0.7);
    EXPECT_TRUE(c.hueBrightnessSimilarTo(0.1, 0.75));
    EXPECT_TRUE(c.hueBrightnessSimilarTo(0.97, 0.7)) << "0.05 and 0.97 are close around 1.0";
    EXPECT_FALSE(c.hueBrightnessSimilarTo(0.2, 0.7));
    EXPECT_FALSE(c.hueBrightnessSimilarTo(0.05, 0.8)) << "brightness differs by 0.1";
    EXPECT_TRUE(VNLogGraphColour::hsb(0.98, 0.6, 0.7).hueBrightnessSimilarTo(0.02, 0.7));
    EXPECT_FALSE(VNLogGraphColour::grey().hueBrightnessSimilarTo(0, 0.5));
    EXPECT_FALSE(VNLogGraphColour().hueBrightnessSimilarTo(0, 0));
}

TEST(LogGraphLayout, CrowdedGraphFallsBackToARandomHueAtFullBrightness) {
    // Lines in every hue at each brightness the generator tries.
    VNLogGraphEntry crowded;
    for (double b : {0.7, 0.8, 0.9, 1.0}) {
        for (int i = 0; i < 10; ++i) {
            crowded.lineColumns.emplace_back(0, VNLogGraphColour::hsb(i / 10.0, 0.6, b),
                                             std::string("x"));
        }
    }
    auto colour = vn::graph::newLogGraphColourNotIn(crowded, nullptr, {});
    EXPECT_TRUE(colour.isHSB());
    EXPECT_NEAR(colour.brightness, 1.0, 1e-9);
    EXPECT_GE(colour.hue, 0.0);
    EXPECT_LT(colour.hue, 1.0);
}

TEST(LogGraphLayout, WorkingCopyRowIsGreyAndItsCommitGetsAFreshColour) {
    auto rows = rowsFor({{"-1", {"C", "X"}}, {"C", {"B"}}, {"X", {"B"}}, {"B", {}}});
    vn::graph::addGraphInfoToLogRevisions(rows, nullptr, false);
    auto wc = graphOf(rows[0]);
    EXPECT_TRUE(wc->commitColour.isGrey());
    for (const auto& line : wc->lineColumns) {
        EXPECT_TRUE(line.lineColour.isGrey()) << line.description();
    }
    auto c = graphOf(rows[1]);
    EXPECT_EQ(c->commitColour, VNLogGraphColour::hsb(0.555, 0.6, 0.7));
    EXPECT_EQ(c->lineColumns[0].lineColour, c->commitColour);
}

TEST(LogGraphLayout, PagesLaidOutSeparatelyEqualOnePass) {
    // A history with branches, merges (an octopus among them) and a second root.
    const std::vector<Commit> history = {
        {"-1", {"m3"}}, {"f2", {"f1"}}, {"m3", {"m2", "h1", "g1"}},
        {"h1", {"m1"}}, {"g1", {"m2"}}, {"m2", {"c3", "f1"}},
        {"f1", {"c2"}}, {"c3", {"c2"}}, {"c2", {"c1", "o1"}},
        {"o1", {}},     {"m1", {"c1"}}, {"c1", {"c0"}},
        {"c0", {}},
    };
    for (bool firstParent : {false, true}) {
        auto whole = rowsFor(history);
        vn::graph::addGraphInfoToLogRevisions(whole, nullptr, firstParent);
        for (std::size_t split = 1; split < history.size(); ++split) {
            SCOPED_TRACE("split after row " + std::to_string(split) +
                         (firstParent ? " first-parent" : ""));
            auto first = rowsFor({history.begin(), history.begin() + split});
            auto second = rowsFor({history.begin() + split, history.end()});
            vn::graph::addGraphInfoToLogRevisions(first, nullptr, firstParent);
            vn::graph::addGraphInfoToLogRevisions(second, graphOf(first.back()), firstParent);
            first.insert(first.end(), second.begin(), second.end());
            ASSERT_EQ(drawn(first), drawn(whole));
            for (std::size_t i = 0; i < whole.size(); ++i) {
                EXPECT_EQ(vn::toJson(whole[i]["graph"]), vn::toJson(first[i]["graph"]));
            }
        }
    }
}

TEST(LogGraphLayout, JsonCarriesTheFieldNames) {
    auto rows = rowsFor({{"-1", {"A"}}, {"A", {}}});
    vn::graph::addGraphInfoToLogRevisions(rows, nullptr, false);
    EXPECT_EQ(
        vn::toJson(rows[0]["graph"]),
        "{\"commitColumn\":0,\"commitColour\":{\"grey\":true},\"lineColumns\":[{\"endCol\":"
        "0,\"startCol\":0,\"lineColour\":{\"grey\":true},\"lineContext\":\"A\","
        "\"terminates\":true,\"originates\":false,\"sharedStart\":false,\"isBlank\":false}]}");
}

}  // namespace

#include "handler/VNRepoHandlerBase.h"

namespace {

TEST(LogGraphLayout, HandlerBaseOperationsGiveTheSameLayout) {
    auto viaHandler = rowsFor({{"M", {"A", "B"}}, {"A", {"R"}}, {"B", {"R"}}, {"R", {}}});
    VNRepoHandlerBase::addGraphInfoToLogRevisions(viaHandler);
    EXPECT_EQ(drawn(viaHandler),
              layout({{"M", {"A", "B"}}, {"A", {"R"}}, {"B", {"R"}}, {"R", {}}}));
    EXPECT_TRUE(VNRepoHandlerBase::hueBrightnessSimilarToColour(
        VNLogGraphColour::hsb(0.555, 0.6, 0.7), 0.6, 0.75));
    auto first = graphOf(viaHandler[0]);
    EXPECT_TRUE(VNRepoHandlerBase::isColourInLogGraphEntry(first->commitColour, first.get()));
    EXPECT_EQ(VNRepoHandlerBase::findCommonContextLine("B", first->lineColumns)->startCol, 1u);
}

}  // namespace
