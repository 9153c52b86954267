// The held layout (shared runs of segments, masks for the colour generator, resumable state)
// against a plain layout written the long way: every row of several histories, whole and paged.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include "base/Json.h"
#include "model/VNLogGraphLayout.h"
#include "model/VNLogGraphStateCache.h"

namespace {

using vn::Record;
using vn::Value;

struct Commit {
    std::string rev;
    std::vector<std::string> parents;
};

// ---- The plain layout: each row a full list of segments, every colour test done in full ----

struct PlainLine {
    uint32_t endCol = 0;
    uint32_t startCol = 0;
    VNLogGraphColour colour;
    std::string context;
    bool terminates = false;
    bool originates = false;
    bool sharedStart = false;
};

struct PlainRow {
    uint32_t commitColumn = 0;
    VNLogGraphColour commitColour;
    std::vector<PlainLine> lines;
};

bool similarToAny(const VNLogGraphColour& candidate, const std::vector<PlainLine>& lines) {
    for (const PlainLine& line : lines) {
        if (line.colour.hueBrightnessSimilarTo(candidate.hue, candidate.brightness)) {
            return true;
        }
    }
    return false;
}

bool similarToRow(const VNLogGraphColour& candidate, const PlainRow* row) {
    return row && (row->commitColour.hueBrightnessSimilarTo(candidate.hue, candidate.brightness) ||
                   similarToAny(candidate, row->lines));
}

VNLogGraphColour plainNewColour(const PlainRow& row, const PlainRow* previous,
                                const std::vector<PlainLine>& pending, uint64_t& random) {
    double hue = 0.555;
    double brightness = 0.7;
    for (int series = 0; series < 3; ++series) {
        for (int candidate = 0; candidate < 10; ++candidate) {
            VNLogGraphColour colour = VNLogGraphColour::hsb(hue, 0.6, brightness);
            if (!similarToRow(colour, &row) && !similarToRow(colour, previous) &&
                !similarToAny(colour, pending)) {
                return colour;
            }
            hue = std::fmod(hue + 0.29, 1.0);
        }
        brightness += 0.1;
    }
    return VNLogGraphColour::hsb(vn::graph::nextRandomHue(random), 0.6, brightness);
}

const PlainLine* findLine(const std::string& context, const std::vector<PlainLine>& lines) {
    for (const PlainLine& line : lines) {
        if (line.context == context) {
            return &line;
        }
    }
    return nullptr;
}

std::vector<PlainRow> plainLayout(const std::vector<Commit>& commits, bool firstParent) {
    const VNLogGraphColour grey = VNLogGraphColour::grey();
    uint64_t random = VNLogGraphEntry::InitialRandomState;
    std::vector<PlainRow> rows;
    for (const Commit& commit : commits) {
        const PlainRow* prev = rows.empty() ? nullptr : &rows.back();
        PlainRow row;
        std::string parent1 = commit.parents.empty() ? "" : commit.parents[0];
        std::vector<std::string> merges;
        if (!firstParent && commit.parents.size() > 1) {
            merges.assign(commit.parents.begin() + 1, commit.parents.end());
        }
        std::vector<PlainLine> pending;
        uint32_t lane = 0;
        bool arrived = false;
        bool workingCopy = commit.rev == "-1";
        auto newColour = [&] { return plainNewColour(row, prev, pending, random); };
        auto mergeColour = [&] { return workingCopy ? grey : newColour(); };
        if (prev) {
            for (const PlainLine& old : prev->lines) {
                if (old.originates || old.sharedStart) {
                    continue;
                }
                PlainLine line{old.startCol, old.startCol,        old.colour, old.context,
                               false,        old.context.empty(), false};
                row.lines.push_back(line);
                PlainLine& added = row.lines.back();
                if (old.context != commit.rev) {
                    added.startCol = lane++;
                } else if (arrived) {
                    added.originates = true;
                    added.startCol = row.commitColumn;
                } else {
                    row.commitColumn = lane;
                    row.commitColour = old.colour.isGrey() ? newColour() : old.colour;
                    PlainLine& carried = row.lines.back();
                    carried.colour = row.commitColour;
                    carried.startCol = row.commitColumn;
                    carried.context = parent1;
                    if (parent1.empty()) {
                        carried.originates = true;
                    }
                    for (const std::string& parent : merges) {
                        const PlainLine* found = findLine(parent, prev->lines);
                        VNLogGraphColour colour =
                            found ? (workingCopy ? grey : found->colour) : mergeColour();
                        pending.push_back({row.commitColumn, row.commitColumn, colour, parent, true,
                                           parent.empty(), found != nullptr});
                    }
                    ++lane;
                    arrived = true;
                }
            }
        }
        if (!arrived) {
            row.commitColumn = lane;
            row.commitColour = workingCopy ? grey : newColour();
            row.lines.push_back(
                {lane, lane, row.commitColour, parent1, true, parent1.empty(), false});
            for (const std::string& parent : merges) {
                const PlainLine* found = prev ? findLine(parent, prev->lines) : nullptr;
                if (found) {
                    row.lines.push_back({row.commitColumn, found->startCol,
                                         workingCopy ? grey : found->colour, parent, true,
                                         parent.empty(), true});
                } else {
                    pending.push_back({row.commitColumn, row.commitColumn, mergeColour(), parent,
                                       true, parent.empty(), false});
                }
            }
            ++lane;
        }
        for (PlainLine& line : pending) {
            if (line.sharedStart) {
                const PlainLine* target = findLine(line.context, row.lines);
                line.startCol = target ? target->startCol : 0;
            } else {
                line.startCol = lane++;
            }
            row.lines.push_back(line);
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

// ---- Histories ----

std::vector<Record> rowsFor(const std::vector<Commit>& commits) {
    std::vector<Record> rows;
    for (const Commit& c : commits) {
        Record row{{"rev", c.rev}, {"parentid1", c.parents.empty() ? "" : c.parents[0]}};
        row.set("parentid2", c.parents.size() > 1 ? c.parents[1] : "");
        Value::Array others;
        for (std::size_t i = 2; i < c.parents.size(); ++i) {
            others.emplace_back(c.parents[i]);
        }
        row.set("otherparentids", std::move(others));
        rows.push_back(std::move(row));
    }
    return rows;
}

// A history in display order (children before parents) grown like a real one: a main line with
// topic branches forking off and merging back, octopus merges, criss-cross merges between two
// long-lived branches, second roots, and `width` branches alive at once.
std::vector<Commit> grownHistory(unsigned seed, std::size_t commits, std::size_t width,
                                 bool workingCopy) {
    std::mt19937 random(seed);
    auto chance = [&](double p) { return std::uniform_real_distribution<>(0, 1)(random) < p; };
    // Built oldest first, then reversed.
    std::vector<Commit> oldestFirst;
    std::vector<std::string> tips;  // heads of the live branches
    int counter = 0;
    auto make = [&](std::vector<std::string> parents) {
        std::string id = "c" + std::to_string(counter++);
        oldestFirst.push_back({id, std::move(parents)});
        return id;
    };
    tips.push_back(make({}));
    while (oldestFirst.size() < commits) {
        std::size_t pick = std::uniform_int_distribution<std::size_t>(0, tips.size() - 1)(random);
        if (tips.size() < width && chance(0.3)) {
            tips.push_back(make({tips[pick]}));  // a new branch
        } else if (tips.size() > 2 && chance(0.15)) {
            // An octopus now and then, else a plain merge of another branch into this one.
            std::size_t others = chance(0.2) ? 3 : 1;
            std::vector<std::string> parents{tips[pick]};
            std::set<std::size_t> merged;
            for (std::size_t i = 0; i < others; ++i) {
                std::size_t other =
                    std::uniform_int_distribution<std::size_t>(0, tips.size() - 1)(random);
                if (other != pick && merged.insert(other).second) {
                    parents.push_back(tips[other]);
                }
            }
            tips[pick] = make(parents);
            if (chance(0.5)) {
                // The merged branches end (their tips stay reachable through the merge).
                for (auto it = merged.rbegin(); it != merged.rend(); ++it) {
                    tips.erase(tips.begin() + static_cast<std::ptrdiff_t>(*it));
                    if (*it < pick) {
                        --pick;
                    }
                }
            }
        } else if (tips.size() > 1 && chance(0.05)) {
            // A criss-cross: two branches merge each other at once.
            std::size_t other = (pick + 1) % tips.size();
            std::string a = make({tips[pick], tips[other]});
            std::string b = make({tips[other], tips[pick]});
            tips[pick] = a;
            tips[other] = b;
        } else if (chance(0.01)) {
            tips.push_back(make({}));  // a second root
        } else {
            tips[pick] = make({tips[pick]});
        }
    }
    std::vector<Commit> history(oldestFirst.rbegin(), oldestFirst.rend());
    if (workingCopy) {
        history.insert(history.begin(), Commit{"-1", {history.front().rev}});
    }
    return history;
}

struct History {
    std::string name;
    std::vector<Commit> commits;
};

std::vector<History> histories(std::size_t commits) {
    return {
        {"narrow with a working copy", grownHistory(1, commits, 4, true)},
        {"many branches", grownHistory(2, commits, 12, false)},
        {"wide enough for random hues", grownHistory(3, commits, 60, false)},
        {"octopus and criss-cross heavy", grownHistory(4, commits, 8, true)},
    };
}

// Compares every row: commit column, colour, every segment with its colour and flags.
void expectSameRows(const std::vector<Record>& rows, const std::vector<PlainRow>& plain) {
    ASSERT_EQ(rows.size(), plain.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i) + " " + rows[i].string("rev"));
        auto entry = rows[i]["graph"].objectAs<VNLogGraphEntry>();
        ASSERT_TRUE(entry);
        ASSERT_EQ(entry->commitColumn, plain[i].commitColumn);
        ASSERT_EQ(entry->commitColour, plain[i].commitColour);
        ASSERT_EQ(entry->lineColumns.size(), plain[i].lines.size());
        std::size_t j = 0;
        for (const auto& line : entry->lineColumns) {
            const PlainLine& expected = plain[i].lines[j++];
            ASSERT_EQ(line.endCol, expected.endCol) << j;
            ASSERT_EQ(line.startCol, expected.startCol) << j;
            ASSERT_EQ(line.lineColour, expected.colour) << j;
            ASSERT_EQ(line.lineContext(), expected.context) << j;
            ASSERT_EQ(line.terminates, expected.terminates) << j;
            ASSERT_EQ(line.originates, expected.originates) << j;
            ASSERT_EQ(line.sharedStart, expected.sharedStart) << j;
            ASSERT_FALSE(line.isBlank);
        }
        // Indexed access reads the same segments as the walk.
        for (std::size_t k = 0; k < entry->lineColumns.size(); ++k) {
            ASSERT_EQ(entry->lineColumns[k].startCol, plain[i].lines[k].startCol);
        }
    }
}

TEST(LogGraphHeldRows, EqualAPlainLayoutOfEveryRow) {
    for (const History& history : histories(600)) {
        for (bool firstParent : {false, true}) {
            SCOPED_TRACE(history.name + (firstParent ? ", first parents" : ""));
            auto rows = rowsFor(history.commits);
            VNLogGraphLayout(nullptr, firstParent).addRows(rows);
            expectSameRows(rows, plainLayout(history.commits, firstParent));
        }
    }
}

TEST(LogGraphHeldRows, TheWideHistoryNeedsRandomHuesAndRowsShareRuns) {
    auto history = histories(600)[2].commits;
    auto rows = rowsFor(history);
    VNLogGraphLayout().addRows(rows);
    std::size_t random = 0, widest = 0, runs = 0, shared = 0;
    std::set<const void*> seen;
    for (const Record& row : rows) {
        auto entry = row["graph"].objectAs<VNLogGraphEntry>();
        const auto& c = entry->commitColour;
        if (c.isHSB() && std::fabs(c.brightness - 1.0) < 1e-9) {
            ++random;
        }
        widest = std::max(widest, entry->lineColumns.size());
        for (const auto& run : entry->lineColumns.runs()) {
            ++runs;
            shared += !seen.insert(run.get()).second;
        }
    }
    EXPECT_GT(random, 5u) << "the history is not wide enough to test the last-resort hues";
    EXPECT_GT(widest, 40u);
    EXPECT_GT(shared * 2, runs) << "most runs are shared with the row above";
}

TEST(LogGraphHeldRows, PagesJoinAtEveryBreakWithTheSameColours) {
    // Every page size and every first break, on short histories (the whole sweep is cubic).
    for (const History& history : histories(48)) {
        SCOPED_TRACE(history.name);
        const auto plain = plainLayout(history.commits, false);
        const std::size_t n = history.commits.size();
        for (std::size_t pageSize = 1; pageSize <= n; ++pageSize) {
            for (std::size_t first = 0; first < std::min(n, pageSize + 1); ++first) {
                SCOPED_TRACE("page size " + std::to_string(pageSize) + ", first break " +
                             std::to_string(first));
                std::vector<Record> all;
                std::shared_ptr<const VNLogGraphEntry> state;
                for (std::size_t start = 0; start < n;) {
                    std::size_t end =
                        std::min(n, start == 0 && first > 0 ? first : start + pageSize);
                    auto page = rowsFor({history.commits.begin() + std::ptrdiff_t(start),
                                         history.commits.begin() + std::ptrdiff_t(end)});
                    // Each page a fresh layout from the state alone, as another process would.
                    VNLogGraphLayout layout(state, false);
                    layout.addRows(page);
                    state = layout.state();
                    all.insert(all.end(), page.begin(), page.end());
                    start = end;
                }
                expectSameRows(all, plain);
                if (HasFatalFailure()) {
                    return;
                }
            }
        }
    }
}

TEST(LogGraphHeldRows, LongHistoriesJoinAtEveryPageSizeAndThroughTheTextForm) {
    for (const History& history : histories(400)) {
        SCOPED_TRACE(history.name);
        const auto plain = plainLayout(history.commits, false);
        for (std::size_t pageSize : {1u, 2u, 3u, 7u, 31u, 64u, 100u, 399u}) {
            SCOPED_TRACE("page size " + std::to_string(pageSize));
            std::vector<Record> all;
            std::shared_ptr<const VNLogGraphEntry> state;
            for (std::size_t start = 0; start < history.commits.size(); start += pageSize) {
                std::size_t end = std::min(history.commits.size(), start + pageSize);
                auto page = rowsFor({history.commits.begin() + std::ptrdiff_t(start),
                                     history.commits.begin() + std::ptrdiff_t(end)});
                // The state goes through the cache's text form between pages.
                if (state) {
                    state = VNLogGraphStateCache::decode(VNLogGraphStateCache::encode(*state));
                    ASSERT_TRUE(state);
                }
                VNLogGraphLayout layout(state, false);
                layout.addRows(page);
                state = layout.state();
                all.insert(all.end(), page.begin(), page.end());
            }
            expectSameRows(all, plain);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST(LogGraphHeldRows, RevisionsWithoutRowsLayOutTheSame) {
    auto history = histories(300)[3].commits;
    auto rows = rowsFor(history);
    VNLogGraphLayout viaRows;
    viaRows.addRows(rows);
    VNLogGraphLayout viaRevisions;
    for (const Commit& commit : history) {
        std::vector<std::string_view> parents(commit.parents.begin(), commit.parents.end());
        viaRevisions.addRevision(commit.rev, parents);
    }
    EXPECT_EQ(VNLogGraphStateCache::encode(*viaRows.state()),
              VNLogGraphStateCache::encode(*viaRevisions.state()));
    EXPECT_EQ(viaRows.rowCount(), history.size());
}

TEST(LogGraphHeldRows, WritingASharedRowCopiesOnlyThatRow) {
    auto rows = rowsFor({{"A", {"B"}}, {"B", {"C"}}, {"C", {}}});
    VNLogGraphLayout().addRows(rows);
    auto second = rows[1]["graph"].objectAs<VNLogGraphEntry>();
    VNLogGraphEntry copy = *second;
    copy.lineColumns[0].startCol = 7;
    copy.lineColumns.emplace_back(3, VNLogGraphColour::grey(), std::string("Z"));
    EXPECT_EQ(second->lineColumns[0].startCol, 0u);
    EXPECT_EQ(second->lineColumns.size(), 1u);
    EXPECT_EQ(copy.lineColumns.size(), 2u);
    EXPECT_EQ(copy.lineColumns.back().lineContext(), "Z");
    EXPECT_FALSE(copy.lineColumns == second->lineColumns);
}

// The compact JSON of a row, written segment by segment: the indented form without its blanks
// (the contexts of these histories have none).
std::string segmentBySegment(const VNLogGraphEntry& entry) {
    vn::JsonWriter writer(true);
    entry.writeJson(writer);
    std::string text = writer.text();
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    return text;
}

std::string compact(const VNLogGraphEntry& entry) {
    vn::JsonWriter writer;
    entry.writeJson(writer);
    return writer.text();
}

TEST(LogGraphHeldRows, CompactJsonReusingRunsOfTheRowBeforeEqualsEverySegmentWritten) {
    for (const History& history : histories(300)) {
        SCOPED_TRACE(history.name);
        auto rows = rowsFor(history.commits);
        VNLogGraphLayout().addRows(rows);
        // In order (runs shared with the row written before), backwards, and skipping rows.
        std::vector<std::size_t> order;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            order.push_back(i);
        }
        for (std::size_t i = rows.size(); i-- > 0;) {
            order.push_back(i);
        }
        for (std::size_t i = 0; i < rows.size(); i += 7) {
            order.push_back(i);
        }
        for (std::size_t i : order) {
            SCOPED_TRACE("row " + std::to_string(i));
            auto entry = rows[i]["graph"].objectAs<VNLogGraphEntry>();
            ASSERT_EQ(compact(*entry), segmentBySegment(*entry));
        }
    }
    // A row changed after it was written is written as it is now.
    auto rows = rowsFor(histories(100)[1].commits);
    VNLogGraphLayout().addRows(rows);
    VNLogGraphEntry copy = *rows[50]["graph"].objectAs<VNLogGraphEntry>();
    ASSERT_GT(copy.lineColumns.size(), 2u);
    compact(copy);
    copy.lineColumns[1].startCol = 99;
    copy.lineColumns[0].lineColour = VNLogGraphColour::grey();
    std::string written = compact(copy);
    EXPECT_EQ(written, segmentBySegment(copy));
    EXPECT_NE(written.find("\"startCol\":99"), std::string::npos) << written;
}

TEST(LogGraphHeldRows, SegmentFragmentsAreWhatTheWriterWrites) {
    // Every colour kind (a hue that is not a number too), awkward contexts, every flag.
    std::vector<VNLogGraphEntryLine> lines;
    const VNLogGraphColour colours[] = {
        VNLogGraphColour{},
        VNLogGraphColour::grey(),
        VNLogGraphColour::hsb(0.6449999999999995, 0.6, 0.8999999999999999),
        VNLogGraphColour::hsb(1e-300, 0, 1),
        VNLogGraphColour::hsb(std::nan(""), 0.5, 0.5),
    };
    const std::string contexts[] = {"", "0123456789abcdef0123456789abcdef01234567",
                                    "quote \" back\\slash\ttab", "bad \xff\xfe utf-8 é"};
    uint32_t col = 0;
    for (const auto& colour : colours) {
        for (const auto& context : contexts) {
            VNLogGraphEntryLine line(col++, colour, context);
            line.startCol = col * 3;
            line.terminates = col % 2;
            line.originates = col % 3 == 0;
            line.sharedStart = col % 5 == 0;
            line.isBlank = col % 7 == 0;
            lines.push_back(line);
        }
    }
    for (const auto& line : lines) {
        SCOPED_TRACE(line.description());
        vn::JsonWriter generic;
        line.writeJson(generic);
        vn::JsonWriter fragment;
        line.writeCompactFragment(fragment);
        EXPECT_EQ(fragment.text(), generic.text());
        // The kept text of a colour is the one written, whichever is asked for first.
        vn::JsonWriter colour;
        colour.beginArray();
        line.lineColour.writeJson(colour);
        colour.endArray();
        vn::JsonWriter pretty(true);
        line.lineColour.writeJson(pretty);
        std::string expected = pretty.text();
        std::erase_if(expected, [](char c) { return c == ' ' || c == '\n'; });
        EXPECT_EQ(colour.text(), "[" + expected + "]");
    }
}

// ---- The cache of states ----

class StateCacheTest : public ::testing::Test {
  protected:
    void SetUp() override {
        folder_ = std::filesystem::temp_directory_path() /
                  ("vn-state-cache-" + std::to_string(::getpid()) + "-" +
                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(folder_);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::shared_ptr<const VNLogGraphEntry> stateAfter(std::size_t rows) {
        auto history = histories(200)[2].commits;
        history.resize(rows);
        auto records = rowsFor(history);
        VNLogGraphLayout layout;
        layout.addRows(records);
        return layout.state();
    }

    std::filesystem::path folder_;
};

TEST_F(StateCacheTest, StatesRoundTripThroughTheFile) {
    auto at50 = stateAfter(50), at120 = stateAfter(120);
    {
        VNLogGraphStateCache cache(folder_.string(), "repo refs A");
        EXPECT_FALSE(cache.nearest(100));
        cache.remember(50, at50);
        cache.remember(120, at120);
        ASSERT_TRUE(cache.save());
    }
    VNLogGraphStateCache again(folder_.string(), "repo refs A");
    EXPECT_FALSE(again.nearest(49));
    auto found = again.nearest(119);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->first, 50u);
    EXPECT_EQ(VNLogGraphStateCache::encode(*found->second), VNLogGraphStateCache::encode(*at50));
    EXPECT_EQ(found->second->randomState, at50->randomState);
    EXPECT_EQ(again.nearest(5000)->first, 120u);
    EXPECT_TRUE(found->second->lineColumns == at50->lineColumns);
}

TEST_F(StateCacheTest, AnotherIdentityOrADamagedFileCountsAsEmpty) {
    {
        VNLogGraphStateCache cache(folder_.string(), "repo refs A");
        cache.remember(50, stateAfter(50));
        ASSERT_TRUE(cache.save());
    }
    EXPECT_FALSE(VNLogGraphStateCache(folder_.string(), "repo refs B").nearest(100))
        << "changed refs give another listing";

    const std::string file = VNLogGraphStateCache(folder_.string(), "repo refs A").filePath();
    std::string good;
    {
        std::ifstream in(file, std::ios::binary);
        good.assign(std::istreambuf_iterator<char>(in), {});
    }
    ASSERT_GT(good.size(), 100u);
    struct Damage {
        const char* name;
        std::string text;
    };
    std::string flipped = good;
    flipped[flipped.size() / 2] ^= 0x20;
    std::string otherFormat = good;
    otherFormat.replace(0, 6, "banana");
    const std::vector<Damage> damages = {
        {"cut short", good.substr(0, good.size() / 2)},
        {"a byte changed", flipped},
        {"empty", ""},
        {"another format", otherFormat},
        {"binary noise", std::string("\x00\xff\x13garbage\n", 12)},
    };
    for (const Damage& damage : damages) {
        SCOPED_TRACE(damage.name);
        {
            std::ofstream out(file, std::ios::binary | std::ios::trunc);
            out << damage.text;
        }
        VNLogGraphStateCache cache(folder_.string(), "repo refs A");
        EXPECT_FALSE(cache.nearest(1000));
        // A damaged file is replaced by the next save.
        cache.remember(60, stateAfter(60));
        ASSERT_TRUE(cache.save());
        EXPECT_EQ(VNLogGraphStateCache(folder_.string(), "repo refs A").nearest(1000)->first, 60u);
    }
}

TEST_F(StateCacheTest, DecodeRefusesTextThatIsNotAState) {
    std::string good = VNLogGraphStateCache::encode(*stateAfter(30));
    EXPECT_TRUE(VNLogGraphStateCache::decode(good));
    for (const std::string& bad : {std::string(), good.substr(0, good.size() - 1), good + "extra\n",
                                   std::string("0 x 0 0\n"), std::string("1 ") + good,
                                   good.substr(0, good.find('\n')) + "\n"}) {
        EXPECT_FALSE(VNLogGraphStateCache::decode(bad)) << bad.substr(0, 80);
    }
}

TEST_F(StateCacheTest, FilesAndStatesStayBounded) {
    auto state = stateAfter(20);
    VNLogGraphStateCache cache(folder_.string(), "one listing");
    for (uint64_t rows = 1; rows <= 200; ++rows) {
        cache.remember(rows * 100, state);
    }
    ASSERT_TRUE(cache.save());
    VNLogGraphStateCache reread(folder_.string(), "one listing");
    std::size_t kept = 0;
    for (uint64_t rows = 100; rows <= 20000; rows += 100) {
        kept += reread.nearest(rows)->first == rows;
    }
    EXPECT_EQ(kept, VNLogGraphStateCache::MaxStatesPerFile);
    EXPECT_EQ(reread.nearest(20000)->first, 20000u) << "the deepest state stays";

    for (int i = 0; i < 40; ++i) {
        VNLogGraphStateCache other(folder_.string(), "listing " + std::to_string(i));
        other.remember(10, state);
        ASSERT_TRUE(other.save());
    }
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& item : std::filesystem::directory_iterator(folder_)) {
        ++files;
    }
    EXPECT_LE(files, VNLogGraphStateCache::MaxFiles);
}

}  // namespace
