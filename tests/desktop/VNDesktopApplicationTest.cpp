#include <QCoreApplication>
#include <QUrl>

#include <gtest/gtest.h>

#include "DesktopSupport.h"
#include "desktop/VNDesktopApplication.h"
#include "desktop/VNDesktopWindowController.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNRepoWindow.h"
#include "handler/VNRepoDocument.h"
#include "handler/VNRepoWindowController.h"
#include "support/HgRepository.h"
#include "support/TestEnvironment.h"

namespace {

using vn::desktop::VNDesktopApplication;
using vn::desktop::VNLaunchRequest;

VNLaunchRequest parse(std::initializer_list<const char*> words) {
    QStringList arguments{QStringLiteral("varnel")};
    for (const char* word : words) {
        arguments << QString::fromUtf8(word);
    }
    return VNLaunchRequest::parse(arguments);
}

TEST(VNLaunchRequest, CommandLinesAreReadOrRefusedWithAReason) {
    struct Case {
        const char* name;
        std::initializer_list<const char*> words;
        const char* error;  // a part of the error, or empty when the line is good
    };
    const Case cases[] = {
        {"nothing", {}, ""},
        {"two folders and an address", {"/a", "b", "varnel://open?path=/c"}, ""},
        {"screenshot", {"--screenshot", "x.png", "--size", "800x600", "--theme", "dark", "/r"}, ""},
        {"screenshot without a path", {"--screenshot", "x.png"}, "exactly one"},
        {"screenshot of two", {"--screenshot", "x.png", "/a", "/b"}, "exactly one"},
        {"size without x", {"--screenshot", "x.png", "--size", "800", "/r"}, "WIDTHxHEIGHT"},
        {"tiny size", {"--screenshot", "x.png", "--size", "10x10", "/r"}, "WIDTHxHEIGHT"},
        {"size of words", {"--screenshot", "x.png", "--size", "axb", "/r"}, "WIDTHxHEIGHT"},
        {"unknown theme", {"--theme", "blue", "/r"}, "light or dark"},
        {"scale too large", {"--scale", "9", "/r"}, "0.5 to 4"},
        {"missing value", {"/r", "--size"}, "needs a value"},
        {"unknown option", {"--frobnicate", "/r"}, "unknown option"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        VNLaunchRequest request = parse(c.words);
        if (std::string(c.error).empty()) {
            EXPECT_TRUE(request.error.isEmpty()) << request.error.toStdString();
        } else {
            EXPECT_TRUE(request.error.contains(QString::fromUtf8(c.error)))
                << request.error.toStdString();
        }
    }
    VNLaunchRequest shot = parse({"--screenshot", "x.png", "--size", "800x600", "--theme", "dark",
                                  "--scale", "2", "--select", "working", "/r"});
    EXPECT_EQ(shot.screenshotSize, QSize(800, 600));
    EXPECT_EQ(shot.theme, QStringLiteral("dark"));
    EXPECT_EQ(shot.scale, 2.0);
    EXPECT_EQ(shot.select, QStringLiteral("working"));
    EXPECT_EQ(shot.paths, QStringList{QStringLiteral("/r")});
}

// Windows open from folders and varnel://open addresses, once per working copy; the recent list
// and the list of open windows follow; what cannot be opened says why.
TEST(VNDesktopApplication, OpensWorkingCopiesOnceAndRemembersThem) {
    vn::test::GitRepository repo;
    repo.commitFile("a b.txt", "a\n", "first");
    vn::test::GitRepository other;
    other.commitFile("c.txt", "c\n", "first");
    vn::test::TempDir plain;
    VNDesktopApplication desktop;

    QString error;
    auto* window = desktop.open(QString::fromStdString(repo.path()), &error);
    ASSERT_NE(window, nullptr) << error.toStdString();
    QUrl url(QStringLiteral("varnel://open"));
    url.setQuery(QStringLiteral("path=") +
                 QString::fromUtf8(QUrl::toPercentEncoding(QString::fromStdString(repo.path()))));
    EXPECT_EQ(desktop.open(url.toString(QUrl::FullyEncoded), &error), window);
    auto* second = desktop.open(QString::fromStdString(other.path()), &error);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(desktop.windows().size(), 2);
    EXPECT_EQ(
        VNDesktopApplication::recentRepositories().mid(0, 2),
        (QStringList{QString::fromStdString(other.path()), QString::fromStdString(repo.path())}));
    EXPECT_EQ(VNDesktopApplication::lastOpenWindows().size(), 2);

    struct Refused {
        QString given;
        const char* reason;
    };
    const Refused refused[] = {
        {QString::fromStdString(plain.path()), "not a working copy"},
        {QString::fromStdString(plain.file("gone")), "no folder"},
        {QStringLiteral("varnel://cloneRepo?url=x"), "cannot handle"},
        {QStringLiteral("varnel://open"), "names no path"},
    };
    for (const Refused& r : refused) {
        SCOPED_TRACE(r.given.toStdString());
        error.clear();
        EXPECT_EQ(desktop.open(r.given, &error), nullptr);
        EXPECT_TRUE(error.contains(QString::fromUtf8(r.reason))) << error.toStdString();
    }

    // Closing one of two windows forgets it; the last one stays listed for the next start.
    vn::test::desktop::waitInLoop([&] {
        return !window->historyModel()->isLoading() && !second->historyModel()->isLoading();
    });
    // Closed windows delete themselves from the event loop; the test has none running.
    auto closeNow = [](QWidget* widget) {
        widget->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    };
    closeNow(second);
    ASSERT_EQ(desktop.windows().size(), 1);
    EXPECT_EQ(VNDesktopApplication::lastOpenWindows(),
              QStringList{QString::fromStdString(repo.path())});
    closeNow(window);
    ASSERT_TRUE(desktop.windows().isEmpty());
    EXPECT_EQ(VNDesktopApplication::lastOpenWindows(),
              QStringList{QString::fromStdString(repo.path())});
}

// Every window the application opens comes from the engine's window hook, for Git and for
// Mercurial alike, and its handle closes it.
TEST(VNDesktopApplication, OpensWindowsThroughTheEnginesWindowHook) {
    vn::test::GitRepository git;
    git.commitFile("a.txt", "a\n", "first");
    vn::test::HgRepository hg;
    hg.commitFile("a.txt", "a\n", "first");
    VNDesktopApplication desktop;
    std::vector<std::shared_ptr<VNRepoDocument>> asked;
    VNRepoWindowController::Factory desktops = VNRepoWindowController::registerFactory({});
    ASSERT_TRUE(desktops);
    VNRepoWindowController::registerFactory([&](std::shared_ptr<VNRepoDocument> doc) {
        asked.push_back(doc);
        return desktops(std::move(doc));
    });

    const struct {
        const char* name;
        std::string path;
        VNRepositoryType type;
    } cases[] = {{"git", git.path(), VNRepositoryTypeGit},
                 {"hg", hg.path(), VNRepositoryTypeMercurial}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QString error;
        auto* window = desktop.open(QString::fromStdString(c.path) + QStringLiteral("/"), &error);
        ASSERT_NE(window, nullptr) << error.toStdString();
        ASSERT_FALSE(asked.empty());
        EXPECT_EQ(asked.back()->path(), c.path);
        EXPECT_EQ(asked.back()->repositoryType(), c.type);
        EXPECT_EQ(window->handler(), asked.back()->handler());
        EXPECT_EQ(window->path(), c.path);
        auto controller = desktop.controllerOf(window);
        ASSERT_NE(controller, nullptr);
        EXPECT_EQ(controller->document(), asked.back());
        EXPECT_TRUE(window->isVisible());
        // A second open raises the window that is there.
        const std::size_t before = asked.size();
        EXPECT_EQ(desktop.open(QString::fromStdString(c.path)), window);
        EXPECT_EQ(asked.size(), before);

        vn::test::desktop::waitInLoop([&] { return !window->historyModel()->isLoading(); });
        controller->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(desktop.windows().isEmpty());
        auto* handle = dynamic_cast<vn::desktop::VNDesktopWindowController*>(controller.get());
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(handle->window(), nullptr);
    }
    EXPECT_EQ(asked.size(), 2u);

    // Without a factory nothing opens, and the reason is given.
    VNRepoWindowController::registerFactory({});
    QString error;
    EXPECT_EQ(desktop.open(QString::fromStdString(git.path()), &error), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("No window"))) << error.toStdString();
    VNRepoWindowController::registerFactory(desktops);
}

}  // namespace
