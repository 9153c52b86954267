#include "handler/VNRepoWindowController.h"

#include <gtest/gtest.h>

#include "app/VNApplication.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNRepoDocument.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "support/HgRepository.h"
#include "support/TestEnvironment.h"

namespace {

// A window that only remembers what was asked of it.
class RecordingController : public VNRepoWindowController {
  public:
    explicit RecordingController(std::shared_ptr<VNRepoDocument> doc) : doc_(std::move(doc)) {}
    void showWindow() override { ++shown; }
    void close() override { ++closed; }
    std::shared_ptr<VNRepoDocument> document() const override { return doc_; }
    int shown = 0;
    int closed = 0;

  private:
    std::shared_ptr<VNRepoDocument> doc_;
};

// Puts the factory back as it was, whatever the test installed.
struct FactoryRestorer {
    FactoryRestorer() : saved(VNRepoWindowController::registerFactory({})) {}
    ~FactoryRestorer() { VNRepoWindowController::registerFactory(saved); }
    VNRepoWindowController::Factory saved;
};

// Both backends make their windows through the one factory the front end registered, with the
// document they were given; without a factory (as in vrnl) they answer none and say why.
TEST(VNRepoWindowController, BothHandlersOpenWindowsThroughTheRegisteredFactory) {
    FactoryRestorer restorer;
    vn::test::GitRepository git;
    git.commitFile("a.txt", "a\n", "first");
    vn::test::HgRepository hg;
    hg.commitFile("a.txt", "a\n", "first");
    struct Case {
        const char* name;
        std::shared_ptr<VNRepoHandler> handler;
        std::string path;
        VNRepositoryType type;
    };
    const Case cases[] = {
        {"git", std::make_shared<VNRepoHandlerGit>(), git.path(), VNRepositoryTypeGit},
        {"hg", std::make_shared<VNRepoHandlerMercurial>(), hg.path(), VNRepositoryTypeMercurial},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(VNApplication::shared().determineRepositoryType(c.path), c.type);
        auto doc = std::make_shared<VNRepoDocument>(c.path + "/", c.handler);
        EXPECT_EQ(doc->path(), c.path);
        EXPECT_EQ(doc->repositoryType(), c.type);

        VNRepoWindowController::registerFactory({});
        EXPECT_FALSE(VNRepoWindowController::hasFactory());
        EXPECT_EQ(c.handler->newWindowControllerWithDoc(doc), nullptr);
        std::string error;
        EXPECT_EQ(VNRepoWindowController::create(doc, &error), nullptr);
        EXPECT_NE(error.find("no repository windows"), std::string::npos) << error;
        EXPECT_NE(error.find(c.path), std::string::npos) << error;

        std::vector<std::shared_ptr<VNRepoDocument>> asked;
        VNRepoWindowController::registerFactory([&](std::shared_ptr<VNRepoDocument> given) {
            asked.push_back(given);
            return std::make_shared<RecordingController>(given);
        });
        auto controller = c.handler->newWindowControllerWithDoc(doc);
        ASSERT_NE(controller, nullptr);
        ASSERT_EQ(asked.size(), 1u);
        EXPECT_EQ(asked.front(), doc);
        EXPECT_EQ(controller->document(), doc);
        EXPECT_EQ(controller->document()->handler(), c.handler);
        error.clear();
        EXPECT_EQ(VNRepoWindowController::create(nullptr, &error), nullptr);
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(asked.size(), 1u);
    }
}

TEST(VNRepoDocument, PathsAreAbsoluteWithoutATrailingSlash) {
    auto git = std::make_shared<VNRepoHandlerGit>();
    const struct {
        std::string given;
        std::string expected;
    } cases[] = {
        {"/work/repo", "/work/repo"},
        {"/work/repo///", "/work/repo"},
        {"/work/./a b/../repo/", "/work/repo"},
        {"/", "/"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.given);
        EXPECT_EQ(VNRepoDocument(c.given, git).path(), c.expected);
    }
    VNRepoDocument relative("some/where", git);
    EXPECT_EQ(relative.path().front(), '/');
    EXPECT_NE(relative.path().find("/some/where"), std::string::npos);
    EXPECT_EQ(VNRepoDocument("/r", nullptr).repositoryType(), VNRepositoryTypeUnknown);
}

}  // namespace
