#include <QSignalSpy>
#include <QTest>
#include <QTreeView>

#include <gtest/gtest.h>

#include "PaneTestSupport.h"
#include "desktop/VNRefsModel.h"
#include "desktop/VNSidebar.h"
#include "git/VNRepoHandlerGit.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::waitUntil;

// What one section lists, as the user reads it.
std::vector<std::string> shown(const VNRefsModel& model, VNRefsModel::Section section) {
    std::vector<std::string> rows;
    QModelIndex parent = model.index(section, 0);
    for (int row = 0; row < model.rowCount(parent); ++row) {
        QModelIndex index = model.index(row, 0, parent);
        QString text = index.data().toString();
        QString detail = index.data(VNRefsModel::DetailRole).toString();
        if (!detail.isEmpty()) {
            text += QStringLiteral(" | ") + detail;
        }
        rows.push_back(text.toStdString());
    }
    return rows;
}

// main one commit ahead of origin/main, feature two behind it, two tags, a stash and a
// submodule.
struct RefsFixture {
    GitRepository repo;
    GitRepository library;
    vn::test::TempDir remote;
    RefsFixture() {
        library.commitFile("lib.c", "int x;\n", "library");
        repo.commitFile("a.txt", "1\n", "one");
        repo.git({"branch", "feature"});
        repo.git({"tag", "light"});
        repo.commitFile("a.txt", "2\n", "two");
        repo.git({"tag", "-a", "v1.0", "-m", "release"});
        repo.git({"-c", "protocol.file.allow=always", "submodule", "add", "-q", library.path(),
                  "libs/the lib"});
        repo.git({"commit", "-q", "-m", "submodule"});
        repo.git({"clone", "-q", "--bare", repo.path(), remote.path() + "/origin.git"});
        repo.git({"remote", "add", "origin", remote.path() + "/origin.git"});
        repo.git({"fetch", "-q", "origin"});
        repo.git({"branch", "-q", "-u", "origin/main", "main"});
        repo.git({"branch", "-q", "-u", "origin/main", "feature"});
        repo.commitFile("a.txt", "3\n", "three");
        repo.write("a.txt", "wip\n");
        repo.git({"stash", "push", "-q", "-m", "half done"});
    }
};

TEST(VNSidebar, ListsARealRepositorysReferencesAndActivatesRevisions) {
    RefsFixture f;
    VNSidebar sidebar(std::make_shared<VNRepoHandlerGit>(), f.repo.path());
    VNRefsModel* model = sidebar.model();
    vn::test::CheckedModel checked(model);
    sidebar.resize(300, 500);
    sidebar.show();
    QSignalSpy refreshed(&sidebar, &VNSidebar::refreshed);
    sidebar.refresh();
    ASSERT_TRUE(waitUntil([&] { return refreshed.count() > 0; }));

    EXPECT_EQ(shown(*model, VNRefsModel::Branches),
              (std::vector<std::string>{"feature | \u21932  origin/main",
                                        "main | \u21911  origin/main"}));
    EXPECT_EQ(shown(*model, VNRefsModel::RemoteBranches),
              (std::vector<std::string>{"origin/feature", "origin/main"}));
    EXPECT_EQ(shown(*model, VNRefsModel::Tags), (std::vector<std::string>{"light", "v1.0"}));
    EXPECT_EQ(shown(*model, VNRefsModel::Stashes),
              (std::vector<std::string>{"stash@{0} | On main: half done"}));
    auto submodules = shown(*model, VNRefsModel::Submodules);
    ASSERT_EQ(submodules.size(), 1u);
    EXPECT_EQ(submodules[0].substr(0, 15), "libs/the lib | ");

    QModelIndex branches = model->index(VNRefsModel::Branches, 0);
    QModelIndex main = model->index(1, 0, branches);
    EXPECT_TRUE(main.data(VNRefsModel::CurrentRole).toBool());
    EXPECT_FALSE(model->index(0, 0, branches).data(VNRefsModel::CurrentRole).toBool());
    EXPECT_EQ(main.data(VNRefsModel::UpstreamRole).toString(), QStringLiteral("origin/main"));
    EXPECT_EQ(main.data(VNRefsModel::SectionRole).toInt(), VNRefsModel::Branches);
    EXPECT_EQ(model->index(VNRefsModel::Tags, 0).data().toString(), QStringLiteral("Tags (2)"));

    // A double-click on an item asks for its revision; one on a section or a submodule does not.
    QSignalSpy activated(&sidebar, &VNSidebar::revisionActivated);
    QTreeView* tree = sidebar.treeView();
    auto doubleClick = [&](const QModelIndex& index) {
        QPoint centre = tree->visualRect(index).center();
        // A double-click counts on the item the button went down on, as with a real mouse.
        QTest::mousePress(tree->viewport(), Qt::LeftButton, {}, centre);
        QTest::mouseRelease(tree->viewport(), Qt::LeftButton, {}, centre);
        QTest::mouseDClick(tree->viewport(), Qt::LeftButton, {}, centre);
    };
    doubleClick(model->index(0, 0, model->index(VNRefsModel::Stashes, 0)));
    doubleClick(model->index(1, 0, model->index(VNRefsModel::Tags, 0)));
    doubleClick(model->index(0, 0, model->index(VNRefsModel::Submodules, 0)));
    ASSERT_EQ(activated.count(), 2);
    EXPECT_EQ(activated[0][0].toString(), QStringLiteral("stash@{0}"));
    EXPECT_EQ(activated[1][0].toString(), QStringLiteral("v1.0"));

    // A refresh picks up new references and keeps a folded section folded.
    tree->collapse(model->index(VNRefsModel::Tags, 0));
    f.repo.git({"tag", "v2.0"});
    sidebar.refresh();
    ASSERT_TRUE(waitUntil([&] { return refreshed.count() > 1; }));
    EXPECT_EQ(shown(*model, VNRefsModel::Tags).size(), 3u);
    EXPECT_FALSE(tree->isExpanded(model->index(VNRefsModel::Tags, 0)));
    EXPECT_TRUE(tree->isExpanded(model->index(VNRefsModel::Branches, 0)));
}

TEST(VNSidebar, AnEmptyRepositoryHasEmptySections) {
    GitRepository repo;
    VNRefsModel::Contents contents =
        VNRefsModel::load(*std::make_shared<VNRepoHandlerGit>(), repo.path());
    for (const auto& section : contents) {
        EXPECT_TRUE(section.empty());
    }
}

}  // namespace
