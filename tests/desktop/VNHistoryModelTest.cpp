#include <QAbstractItemModelTester>

#include <gtest/gtest.h>

#include <set>

#include "DesktopSupport.h"
#include "desktop/VNHistoryModel.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogGraphLayout.h"
#include "support/GitRunCounter.h"
#include "support/HistoryFixtures.h"
#include "support/ShapedHistory.h"

namespace {

using vn::desktop::VNHistoryModel;
using namespace vn::test::desktop;

std::vector<std::string> revisionsOf(const VNHistoryModel& model) {
    std::vector<std::string> revs;
    for (int i = 0; i < model.rowCount(); ++i) {
        revs.push_back(model.row(i).rev);
    }
    return revs;
}

// The whole history comes from one git log run, in batches, and equals the paged listing of the
// engine row for row, graph included; the model tester sees every insertion.
TEST(VNHistoryModel, StreamsOneLogRunThatMatchesThePagedListing) {
    vn::test::GitRepository repo;
    auto written = vn::test::writeShapedHistory(repo, 2500);
    ASSERT_GT(written.size(), 2500u);
    repo.write("main.txt", "uncommitted\n");
    auto handler = std::make_shared<VNRepoHandlerGit>();

    WarningsFail warnings;
    VNHistoryModel model;
    QAbstractItemModelTester tester(&model,
                                    QAbstractItemModelTester::FailureReportingMode::Warning);
    std::vector<int> batches;
    QObject::connect(&model, &VNHistoryModel::rowsArrived,
                     [&](int total) { batches.push_back(total); });
    bool finishedOk = false;
    QObject::connect(&model, &VNHistoryModel::loadingFinished, [&](bool ok) { finishedOk = ok; });
    vn::test::GitRunCounter counter;
    model.load(handler, repo.path());
    ASSERT_TRUE(waitInLoop([&] { return !model.isLoading(); }));
    EXPECT_TRUE(finishedOk);
    EXPECT_EQ(counter.runsWith(" log --branches"), 1) << counter.runs();
    EXPECT_EQ(counter.runsWith("--skip"), 0) << counter.runs();
    ASSERT_FALSE(batches.empty());
    EXPECT_LT(batches.front(), model.rowCount()) << "the first batch waits for the whole run";

    // The working copy leads; every commit follows once.
    ASSERT_EQ(model.rowCount(), static_cast<int>(written.size()) + 1);
    EXPECT_TRUE(model.row(0).isWorkingCopy());
    auto revs = revisionsOf(model);
    std::set<std::string> unique(revs.begin() + 1, revs.end());
    EXPECT_EQ(unique, std::set<std::string>(written.begin(), written.end()));

    // Row for row what the engine's page answers, laid out the same way.
    auto page = handler->logRevisions(repo.path(), "", 0, 0, std::nullopt,
                                      VNRepoHandlerGit::LogIncludeRemotes);
    auto workingCopy = handler->workingCopyRow(repo.path());
    ASSERT_TRUE(workingCopy);
    page.insert(page.begin(), *workingCopy);
    VNLogGraphLayout layout;
    layout.addRows(page);
    ASSERT_EQ(page.size(), revs.size());
    for (std::size_t i = 0; i < page.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i));
        ASSERT_EQ(revs[i], page[i].string("rev"));
        auto expected = page[i]["graph"].objectAs<VNLogGraphEntry>();
        const auto& got = model.row(static_cast<int>(i)).graph;
        ASSERT_TRUE(expected && got);
        EXPECT_EQ(got->commitColumn, expected->commitColumn);
        EXPECT_EQ(got->lineColumns.size(), expected->lineColumns.size());
        EXPECT_EQ(got->commitColour, expected->commitColour);
    }
    EXPECT_GE(model.laneCount(), 3u);  // the octopus merge needs three lanes
    EXPECT_EQ(model.rowOfRevision(written.front()), model.rowCount() - 1);
}

// A reload while rows are still arriving drops the old run's rows; a folder that is not a
// repository ends with a failure and no rows.
TEST(VNHistoryModel, ReloadsAndFailuresKeepTheModelConsistent) {
    vn::test::GitRepository repo;
    auto written = vn::test::writeShapedHistory(repo, 1500);
    auto handler = std::make_shared<VNRepoHandlerGit>();
    WarningsFail warnings;
    VNHistoryModel model;
    QAbstractItemModelTester tester(&model,
                                    QAbstractItemModelTester::FailureReportingMode::Warning);
    int finished = 0;
    QObject::connect(&model, &VNHistoryModel::loadingFinished, [&](bool) { ++finished; });

    model.load(handler, repo.path());
    waitInLoop([&] { return model.rowCount() > 0; });
    model.load(handler, repo.path());
    model.load(handler, repo.path(), {.firstParent = true});
    ASSERT_TRUE(waitInLoop([&] { return !model.isLoading(); }));
    EXPECT_EQ(finished, 1) << "only the last load reports";
    // First parents only: no side-branch commit appears and nothing is duplicated.
    auto revs = revisionsOf(model);
    EXPECT_EQ(std::set<std::string>(revs.begin(), revs.end()).size(), revs.size());
    auto mainLine = vn::test::chomp(repo.git({"rev-list", "--first-parent", "--count", "main"}));
    EXPECT_LT(model.rowCount(), static_cast<int>(written.size()));
    EXPECT_GE(model.rowCount(), std::stoi(mainLine));
    for (int i = 0; i < model.rowCount(); ++i) {
        for (const auto& line : model.row(i).graph->lineColumns) {
            EXPECT_FALSE(line.sharedStart) << "row " << i;
        }
    }

    vn::test::TempDir notARepository;
    bool ok = true;
    QObject::connect(&model, &VNHistoryModel::loadingFinished, [&](bool result) { ok = result; });
    model.load(handler, notARepository.path());
    ASSERT_TRUE(waitInLoop([&] { return !model.isLoading(); }));
    EXPECT_FALSE(ok);
    EXPECT_EQ(model.rowCount(), 0);
}

}  // namespace
