// Random edits in real repositories; random hunks and row ranges staged, unstaged and discarded
// through patches; the index and the working files compared with what exactly that selection
// must give. VARNEL_STAGING_SEED (first seed, 1) and VARNEL_STAGING_SEEDS (how many, 3) change
// the run; a failure prints the seed and the recipe of the file it failed on.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "git/VNRepoHandlerGit.h"
#include "handler/VNHunkActions.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "support/GitDiffSupport.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;

// A small generator of our own, so that a seed gives the same run with every library.
struct Random {
    uint64_t state;
    explicit Random(uint64_t seed) : state(seed * 0x9E3779B97F4A7C15ull + 1) {}
    uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    // From 0 to n-1.
    std::size_t below(std::size_t n) { return n == 0 ? 0 : static_cast<std::size_t>(next() % n); }
    bool chance(int percent) { return below(100) < static_cast<std::size_t>(percent); }
};

enum class Kind { LF, CRLF, Latin1, NoFinalNewline, LongLine };

struct TestFile {
    std::string name;
    Kind kind;
};

// Lines with their line ends ("\n", "\r\n", or none for a last line without one).
std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end + 1 - start));
        start = end + 1;
    }
    return lines;
}

// A line that lost its place as the last one gets a newline back; the same join a patch makes.
std::string joinLines(std::vector<std::string> lines) {
    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i + 1 < lines.size() && (lines[i].empty() || lines[i].back() != '\n')) {
            lines[i].push_back('\n');
        }
        text += lines[i];
    }
    return text;
}

std::string newLine(Random& random, Kind kind, int serial) {
    std::string text = "line " + std::to_string(serial) + " " + std::to_string(random.below(1000));
    if (kind == Kind::Latin1) {
        text += " caf\xE9 \xFC\xDF";
    }
    if (kind == Kind::LongLine && random.chance(50)) {
        text += " " + std::string(12000 + random.below(3000), 'x');
    }
    if (random.chance(10)) {
        text += "  \t trailing";
    }
    return text + (kind == Kind::CRLF ? "\r\n" : "\n");
}

std::string initialContent(Random& random, Kind kind, int& serial) {
    if (kind == Kind::LongLine) {
        return std::string(30000, 'a') + " one very long line\n";
    }
    std::string text;
    std::size_t count = 5 + random.below(40);
    for (std::size_t i = 0; i < count; ++i) {
        text += newLine(random, kind, serial++);
    }
    if (kind == Kind::NoFinalNewline) {
        text.pop_back();
    }
    return text;
}

// Additions, removals and replacements anywhere, also at the very start and end, and the final
// newline taken away or given back.
std::string edit(Random& random, Kind kind, const std::string& text, int& serial) {
    std::vector<std::string> lines = splitLines(text);
    std::size_t edits = 1 + random.below(4);
    for (std::size_t e = 0; e < edits; ++e) {
        std::size_t at = random.below(lines.size() + 1);
        switch (random.below(6)) {
            case 0:  // insert
            case 1: {
                if (random.chance(25)) {
                    at = random.chance(50) ? 0 : lines.size();
                }
                std::size_t count = 1 + random.below(4);
                for (std::size_t i = 0; i < count; ++i) {
                    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at),
                                 newLine(random, kind, serial++));
                }
                break;
            }
            case 2:  // remove
                if (!lines.empty()) {
                    at = std::min(at, lines.size() - 1);
                    std::size_t count = std::min(lines.size() - at, 1 + random.below(3));
                    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(at),
                                lines.begin() + static_cast<std::ptrdiff_t>(at + count));
                }
                break;
            case 5:  // the final newline
                if (!lines.empty() && kind != Kind::CRLF) {
                    std::string& last = lines.back();
                    if (!last.empty() && last.back() == '\n') {
                        last.pop_back();
                    } else {
                        last.push_back('\n');
                    }
                }
                break;
            default:  // replace
                if (!lines.empty()) {
                    at = std::min(at, lines.size() - 1);
                    bool last = at + 1 == lines.size() && lines[at].back() != '\n';
                    lines[at] = newLine(random, kind, serial++);
                    if (last && random.chance(50)) {
                        lines[at].pop_back();
                    }
                }
                break;
        }
    }
    return joinLines(lines);
}

// What applying only the rows [first, end) of the hunk does to one side: `forward` applies the
// selected changes to the old side; otherwise the selected changes are taken back from the new
// side.
std::string expectedAfter(const VNDiffHunkModel& hunk, std::size_t first, std::size_t end,
                          const std::string& oldText, const std::string& newText, bool forward) {
    std::vector<std::string> oldLines = splitLines(oldText), newLines = splitLines(newText);
    // A header without a count leaves the rows numbered from 0.
    const VNDiffHunkModel::HeaderRanges& header = hunk.headerRanges();
    int64_t shiftBefore = header.known ? header.startBefore - hunk.startLineBefore() : 0;
    int64_t shiftAfter = header.known ? header.startAfter - hunk.startLineAfter() : 0;
    auto numberOf = [&](const VNDiffHunkModel::LineView& line, bool oldSide) {
        int64_t number = oldSide ? line.beforeLineNumber : line.afterLineNumber;
        return number == VNDiffHunkModel::NoLineNumber
                   ? number
                   : number + (oldSide ? shiftBefore : shiftAfter);
    };
    const std::vector<std::string>& base = forward ? oldLines : newLines;
    std::vector<std::string> result;
    // Lines of the base before the hunk.
    int64_t before = -1;
    std::size_t baseRows = 0;
    for (std::size_t row = 0; row < hunk.lineCount(); ++row) {
        VNDiffHunkModel::LineView line = hunk.lineAt(row);
        int64_t number = numberOf(line, forward);
        if (number != VNDiffHunkModel::NoLineNumber) {
            if (before < 0) {
                before = number - 1;
            }
            ++baseRows;
        }
    }
    if (before < 0) {
        before = forward ? header.startBefore : header.startAfter;
    }
    result.assign(base.begin(), base.begin() + before);
    for (std::size_t row = 0; row < hunk.lineCount(); ++row) {
        VNDiffHunkModel::LineView line = hunk.lineAt(row);
        bool selected = row >= first && row < end;
        if (line.prefix == " ") {
            result.push_back(base.at(static_cast<std::size_t>(numberOf(line, forward) - 1)));
        } else if (line.prefix == "-") {
            if (forward ? !selected : selected) {
                result.push_back(oldLines.at(static_cast<std::size_t>(numberOf(line, true) - 1)));
            }
        } else if (line.prefix == "+") {
            if (forward ? selected : !selected) {
                result.push_back(newLines.at(static_cast<std::size_t>(numberOf(line, false) - 1)));
            }
        }
    }
    result.insert(result.end(), base.begin() + before + static_cast<std::ptrdiff_t>(baseRows),
                  base.end());
    return joinLines(result);
}

std::string escaped(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c == '\n') {
            out += "\\n\n    ";
        } else if (c < 0x20 || c >= 0x7f || c == '\\') {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\x%02X", c);
            out += buffer;
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    return out.size() > 4000
               ? out.substr(0, 4000) + "... (" + std::to_string(text.size()) + " bytes)"
               : out;
}

struct StagingRun {
    GitRepository repo;
    std::shared_ptr<VNRepoHandlerGit> git = std::make_shared<VNRepoHandlerGit>();
    uint64_t seed;
    Random random;
    std::vector<TestFile> files;
    int serial = 0;
    int cases = 0;

    explicit StagingRun(uint64_t s) : seed(s), random(s) {}

    std::shared_ptr<VNDiffModel> diff(bool staged) {
        auto task = staged ? git->fileDiffAgainstBaseTask(repo.path(), {}, "", 0, 3)
                           : git->fileDiffAgainstBaseTask(repo.path(), {}, 0, 3);
        return vn::test::runAndParse(*git, task);
    }

    VNHunkActions::Context context() {
        VNHunkActions::Context context;
        context.repositoryPath = repo.path();
        context.handler = git;
        context.confirmDiscard = false;
        return context;
    }

    std::string recipe(const std::string& step, const TestFile& file, const std::string& head,
                       const std::string& index, const std::string& work,
                       const VNDiffHunkModel& hunk, std::size_t first, std::size_t end,
                       const VNHunkActions::Outcome& outcome) {
        std::ostringstream out;
        out << "seed " << seed << ", " << step << " of " << file.name << " (rows " << first + 1
            << "-" << end << " of hunk " << hunk.index() << ")\n  HEAD:\n    " << escaped(head)
            << "\n  index:\n    " << escaped(index) << "\n  working file:\n    " << escaped(work)
            << "\n  patch:\n    " << escaped(outcome.patch) << "\n  git said: " << outcome.message;
        return out.str();
    }

    // Picks a hunk and rows of it: a whole hunk now and then, a single row often.
    bool pick(const VNDiffFileModel& model, const VNDiffHunkModel*& hunk, std::size_t& first,
              std::size_t& end, bool& whole) {
        if (model.hunks().empty()) {
            return false;
        }
        hunk = model.hunks()[random.below(model.hunks().size())].get();
        std::size_t rows = hunk->lineCount();
        whole = random.chance(15);
        if (whole) {
            first = 0;
            end = rows;
            return true;
        }
        first = random.below(rows);
        end = first + 1 + (random.chance(40) ? 0 : random.below(rows - first));
        return true;
    }
};

TEST(HunkStagingProperty, SelectedChangesAreStagedUnstagedAndDiscardedExactly) {
    const char* seedText = std::getenv("VARNEL_STAGING_SEED");
    const char* countText = std::getenv("VARNEL_STAGING_SEEDS");
    uint64_t firstSeed = seedText ? std::strtoull(seedText, nullptr, 10) : 1;
    uint64_t seeds = countText ? std::strtoull(countText, nullptr, 10) : 3;
    int totalCases = 0;
    for (uint64_t seed = firstSeed; seed < firstSeed + seeds; ++seed) {
        StagingRun run(seed);
        const std::vector<std::pair<std::string, Kind>> kinds = {
            {"plain.txt", Kind::LF},
            {"second plain.txt", Kind::LF},
            {"windows.txt", Kind::CRLF},
            {"latin1.txt", Kind::Latin1},
            {"no-newline.txt", Kind::NoFinalNewline},
            {"long.txt", Kind::LongLine},
        };
        for (const auto& [name, kind] : kinds) {
            run.files.push_back({name, kind});
            run.repo.write(name, initialContent(run.random, kind, run.serial));
        }
        run.repo.git({"add", "-A"});
        run.repo.git({"commit", "-q", "-m", "base"});

        for (int round = 0; round < 8 && !HasFailure(); ++round) {
            for (const TestFile& file : run.files) {
                std::string text = vn::test::readFile(run.repo.file(file.name));
                run.repo.write(file.name, edit(run.random, file.kind, text, run.serial));
            }
            // Stage a selection of each file.
            std::vector<const TestFile*> staged;
            {
                auto model = run.diff(false);
                for (const TestFile& file : run.files) {
                    auto entry = vn::test::fileNamed(*model, file.name);
                    const VNDiffHunkModel* hunk = nullptr;
                    std::size_t first = 0, end = 0;
                    bool whole = false;
                    if (!entry || !run.pick(*entry, hunk, first, end, whole)) {
                        continue;
                    }
                    std::string head = vn::test::contentAt(run.repo, "HEAD", file.name);
                    std::string index = vn::test::contentAt(run.repo, "", file.name);
                    std::string work = vn::test::readFile(run.repo.file(file.name));
                    std::string expected = expectedAfter(*hunk, first, end, index, work, true);
                    auto outcome =
                        VNHunkActions::perform(whole ? VNHunkActions::Action::StageHunk
                                                     : VNHunkActions::Action::StageLines,
                                               run.context(), *entry, *hunk, {first, end - first});
                    ++run.cases;
                    std::string recipe =
                        run.recipe("staging", file, head, index, work, *hunk, first, end, outcome);
                    if (outcome.state == VNHunkActions::State::NothingSelected) {
                        EXPECT_EQ(expected, index) << recipe;
                        continue;
                    }
                    ASSERT_EQ(outcome.state, VNHunkActions::State::Applied) << recipe;
                    ASSERT_EQ(vn::test::contentAt(run.repo, "", file.name), expected) << recipe;
                    ASSERT_EQ(vn::test::readFile(run.repo.file(file.name)), work) << recipe;
                    staged.push_back(&file);
                }
            }
            // Unstage a selection of what is staged, then the rest: the index is back at HEAD.
            {
                auto model = run.diff(true);
                for (const TestFile* file : staged) {
                    auto entry = vn::test::fileNamed(*model, file->name);
                    ASSERT_TRUE(entry) << "seed " << seed << ": nothing staged in " << file->name;
                    const VNDiffHunkModel* hunk = nullptr;
                    std::size_t first = 0, end = 0;
                    bool whole = false;
                    ASSERT_TRUE(run.pick(*entry, hunk, first, end, whole));
                    std::string head = vn::test::contentAt(run.repo, "HEAD", file->name);
                    std::string index = vn::test::contentAt(run.repo, "", file->name);
                    std::string work = vn::test::readFile(run.repo.file(file->name));
                    std::string expected = expectedAfter(*hunk, first, end, head, index, false);
                    auto outcome =
                        VNHunkActions::perform(whole ? VNHunkActions::Action::UnstageHunk
                                                     : VNHunkActions::Action::UnstageLines,
                                               run.context(), *entry, *hunk, {first, end - first});
                    ++run.cases;
                    std::string recipe = run.recipe("unstaging", *file, head, index, work, *hunk,
                                                    first, end, outcome);
                    if (outcome.state == VNHunkActions::State::NothingSelected) {
                        EXPECT_EQ(expected, index) << recipe;
                        continue;
                    }
                    ASSERT_EQ(outcome.state, VNHunkActions::State::Applied) << recipe;
                    ASSERT_EQ(vn::test::contentAt(run.repo, "", file->name), expected) << recipe;
                }
                model = run.diff(true);
                for (const auto& entry : model->fileEntries()) {
                    // Last hunk first, so that the numbers of those before stay right.
                    for (auto it = entry->hunks().rbegin(); it != entry->hunks().rend(); ++it) {
                        auto outcome = VNHunkActions::perform(VNHunkActions::Action::UnstageLines,
                                                              run.context(), *entry, **it,
                                                              {0, (*it)->lineCount()});
                        ++run.cases;
                        ASSERT_EQ(outcome.state, VNHunkActions::State::Applied)
                            << "seed " << seed << " unstaging all of " << entry->filename() << "\n"
                            << escaped(outcome.patch) << outcome.message;
                    }
                }
                for (const TestFile& file : run.files) {
                    ASSERT_EQ(vn::test::contentAt(run.repo, "", file.name),
                              vn::test::contentAt(run.repo, "HEAD", file.name))
                        << "seed " << seed << ": the index of " << file.name
                        << " is not back at HEAD";
                }
            }
            // Discard a selection from each working file.
            {
                auto model = run.diff(false);
                for (const TestFile& file : run.files) {
                    auto entry = vn::test::fileNamed(*model, file.name);
                    const VNDiffHunkModel* hunk = nullptr;
                    std::size_t first = 0, end = 0;
                    bool whole = false;
                    if (!entry || !run.pick(*entry, hunk, first, end, whole)) {
                        continue;
                    }
                    std::string head = vn::test::contentAt(run.repo, "HEAD", file.name);
                    std::string index = vn::test::contentAt(run.repo, "", file.name);
                    std::string work = vn::test::readFile(run.repo.file(file.name));
                    std::string expected = expectedAfter(*hunk, first, end, index, work, false);
                    auto outcome =
                        VNHunkActions::perform(whole ? VNHunkActions::Action::DiscardHunk
                                                     : VNHunkActions::Action::DiscardLines,
                                               run.context(), *entry, *hunk, {first, end - first});
                    ++run.cases;
                    std::string recipe = run.recipe("discarding", file, head, index, work, *hunk,
                                                    first, end, outcome);
                    if (outcome.state == VNHunkActions::State::NothingSelected) {
                        EXPECT_EQ(expected, work) << recipe;
                        continue;
                    }
                    ASSERT_EQ(outcome.state, VNHunkActions::State::Applied) << recipe;
                    ASSERT_EQ(vn::test::readFile(run.repo.file(file.name)), expected) << recipe;
                    ASSERT_EQ(vn::test::contentAt(run.repo, "", file.name), index) << recipe;
                }
            }
        }
        totalCases += run.cases;
    }
    RecordProperty("cases", totalCases);
    EXPECT_GT(totalCases, 100 * static_cast<int>(seeds));
}

}  // namespace
