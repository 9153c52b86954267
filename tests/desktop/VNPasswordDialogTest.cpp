#include <QSignalSpy>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "PaneTestSupport.h"
#include "desktop/VNProgressWindow.h"
#include "desktop/VNRemoteSheets.h"
#include "git/VNRepoHandlerGit.h"
#include "platform/CredentialStore.h"
#include "platform/FileCredentialStore.h"
#include "support/RemoteFixtures.h"
#include "support/TestEnvironment.h"

namespace {

using vn::desktop::VNProgressWindow;
using vn::desktop::VNPushSheet;
using vn::desktop::VNRemoteSheet;
using vn::test::GitRepository;
using vn::test::ScopedEnvironment;
using vn::test::TempDir;
using vn::test::waitUntil;

// The graphical prompt as git meets it: a push over http with basic authentication, git asking
// the credential helper, the helper asking the prompt companion, the companion showing the
// desktop dialog in a process of its own, answered as a user would through its line edit and
// buttons. What works is stored; a cancel fails the push with git's words and stores nothing.
TEST(VNPasswordDialog, AHttpPushAsksThroughTheDialogAndStoresOnlyWhatWorked) {
    vn::test::GitHttpServer server("alice", "wonder land");
    if (!server.running()) {
        GTEST_SKIP() << "the test HTTP server did not start";
    }
    TempDir scratch("varnel-dialog-auth");
    vn::test::runProgram(server.root(), "git", {"init", "-q", "--bare", "remote.git"});
    std::string url = server.url("remote.git");
    std::string hostAndPort = url.substr(7, url.rfind('/') - 7);
    ScopedEnvironment data("XDG_DATA_HOME", scratch.file("data"));
    auto store = std::make_shared<vn::FileCredentialStore>(vn::FileCredentialStore::defaultPath());
    vn::CredentialStore::setShared(store);
    ScopedEnvironment noAnswerFile("VARNEL_LOGIN_ANSWER_FILE", "");
    ScopedEnvironment prompter("VARNEL_LOGIN_PROMPTER", VARNEL_TEST_ASKPASS);
    std::string replies = scratch.file("replies");
    ScopedEnvironment answering("VARNEL_ASKPASS_TEST_REPLIES", replies);

    GitRepository work;
    work.commitFile("a.txt", "1\n", "one");
    work.git({"remote", "add", "origin", url});
    auto handler = std::make_shared<VNRepoHandlerGit>();
    const std::string userQuestion = "Username for 'http://" + hostAndPort + "':\tnormal\n";
    const std::string passwordQuestion =
        "Password for 'http://alice@" + hostAndPort + "':\tpassword\n";
    struct Case {
        const char* name;
        const char* replies;
        int result;
        std::string shown;  // what the dialogs showed, in order
        const char* stored;
    };
    const Case cases[] = {
        {"cancelled at the user name", "<cancel>\n", VNProgressWindow::ResultFailed, userQuestion,
         ""},
        {"answered, pushed and stored", "alice\nwonder land\n", VNProgressWindow::ResultSuccess,
         userQuestion + passwordQuestion, "wonder land"},
        {"the stored password, no dialog", "", VNProgressWindow::ResultSuccess, "", "wonder land"},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (n > 0) {
            work.commitFile("a.txt", std::to_string(++n) + "\n", "more");
        }
        ++n;
        vn::test::writeFile(replies, c.replies);
        std::filesystem::remove(replies + ".shown");
        VNPushSheet sheet(handler, work.path());
        QSignalSpy loaded(&sheet, &VNRemoteSheet::remotesLoaded);
        sheet.load();
        sheet.show();
        ASSERT_TRUE(waitUntil([&] { return loaded.count() == 1; }));
        QSignalSpy ended(&sheet, &VNRemoteSheet::runEnded);
        ASSERT_TRUE(sheet.start());
        ASSERT_TRUE(waitUntil([&] { return ended.count() == 1; }, 120000));
        QString transcript = sheet.progressWindow() ? sheet.progressWindow()->transcript() : "";
        EXPECT_EQ(ended[0][0].toInt(), c.result) << transcript.toStdString();
        EXPECT_EQ(vn::test::readFile(replies + ".shown"), c.shown);
        EXPECT_EQ(store->passwordForURL(url, "alice").value_or(""), c.stored);
        EXPECT_FALSE(transcript.contains(QStringLiteral("wonder land")));
        std::string remoteHead =
            vn::test::runProgram(server.root() + "/remote.git", "git", {"rev-parse", "main"})
                ->output();
        if (c.result == VNProgressWindow::ResultSuccess) {
            EXPECT_EQ(remoteHead, work.git({"rev-parse", "main"}));
            EXPECT_FALSE(sheet.isVisible());
        } else {
            EXPECT_TRUE(transcript.contains(QStringLiteral("User cancelled password prompt")))
                << transcript.toStdString();
            EXPECT_NE(remoteHead, work.git({"rev-parse", "main"}));
            EXPECT_TRUE(sheet.isVisible());
            // Nothing of the attempt was filed.
            std::string file = vn::FileCredentialStore::defaultPath();
            EXPECT_TRUE(!std::filesystem::exists(file) ||
                        vn::test::readFile(file).find(hostAndPort) == std::string::npos);
        }
    }
    vn::CredentialStore::setShared(nullptr);
}

}  // namespace
