#include <gtest/gtest.h>

#include <algorithm>

#include "base/Json.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"
#include "model/VNLogRowData.h"

namespace {

TEST(VNLogLabelTest, FactoriesFillTheFields) {
    auto plain = VNLogLabel::labelWithLabel("main", VNLogLabel::LocalBranch, "r", "s");
    EXPECT_EQ(plain->label(), "main");
    EXPECT_EQ(plain->type(), VNLogLabel::LocalBranch);
    EXPECT_EQ(plain->revision(), "r");
    EXPECT_EQ(plain->commitSHA(), "s");
    EXPECT_EQ(plain->ref(), "");
    EXPECT_FALSE(plain->currentMarker());
    auto withRef = VNLogLabel::labelWithLabel("v1", VNLogLabel::Tag, "r", "s", "refs/tags/v1");
    EXPECT_EQ(withRef->ref(), "refs/tags/v1");
}

TEST(VNLogLabelTest, CaseInsensitiveOrder) {
    std::vector<std::shared_ptr<VNLogLabel>> labels;
    for (const char* name : {"beta", "Alpha", "alpha2", "ALPHA", "b", "\xC3\xA9t\xC3\xA9", "Zed"}) {
        labels.push_back(VNLogLabel::labelWithLabel(name, VNLogLabel::Tag, "", ""));
    }
    std::stable_sort(labels.begin(), labels.end(), [](const auto& a, const auto& b) {
        return a->compareCaseInsensitive(*b) < 0;
    });
    std::vector<std::string> names;
    for (const auto& label : labels) {
        names.push_back(label->label());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Alpha", "ALPHA", "alpha2", "b", "beta", "Zed",
                                               "\xC3\xA9t\xC3\xA9"}));
    EXPECT_EQ(labels[0]->compareCaseInsensitive(*labels[1]), 0);
    EXPECT_GT(labels[2]->compareCaseInsensitive(*labels[1]), 0);
}

TEST(VNLogModelTest, JsonOfLabelsAndEntries) {
    auto label = VNLogLabel::labelWithLabel("main", VNLogLabel::LocalBranch, "abc", "abc",
                                            "refs/heads/main");
    label->setAnnotation("1 ahead");
    label->setCurrentMarker(true);
    auto entry =
        std::make_shared<VNLogDescriptionEntry>("subject", VNLogDescriptionEntry::LabelList{label});
    EXPECT_EQ(vn::toJson(entry->jsonValue()),
              "{\"description\":\"subject\",\"labels\":[{\"label\":\"main\",\"type\":0,"
              "\"description\":\"\",\"annotation\":\"1 ahead\",\"revision\":\"abc\","
              "\"commitSHA\":\"abc\",\"currentMarker\":true,\"ref\":\"refs/heads/main\"}],"
              "\"baseColour\":null}");
    // The layout colours rows that are already shared read-only.
    std::shared_ptr<const VNLogDescriptionEntry> shared = entry;
    shared->setBaseColour(VNLogGraphColour::hsb(0.5, 0.6, 0.7));
    EXPECT_EQ(entry->baseColour().hue, 0.5);
    EXPECT_NE(vn::toJson(entry->jsonValue()).find("\"baseColour\":{\"hue\":0.5"),
              std::string::npos);
}

TEST(VNLogModelTest, RowDataWritesTheSameJsonBothWays) {
    auto page = std::make_shared<VNLogRowData>();
    page->setSkip(100);
    page->setLimit(50);
    page->setShowRemotes(true);
    page->setSelectedBranch("main");
    page->setMoreRevisions(true);
    page->setLogRows({vn::Record{{"rev", "a"}, {"otherparentids", vn::Value::Array{}}},
                      vn::Record{{"rev", "b"}}});
    vn::JsonWriter writer;
    page->writeJson(writer);
    writer.flush();
    EXPECT_EQ(writer.text(), vn::toJson(page->jsonValue()));
    EXPECT_NE(writer.text().find("\"logRows\":[{\"rev\":\"a\",\"otherparentids\":[]},"),
              std::string::npos);
}

TEST(VNLogModelTest, RowDataLogOptions) {
    VNLogRowData page;
    EXPECT_EQ(page.logOptions(), 0u);
    page.setOrderingOption(1);
    page.setShowRemotes(true);
    page.setFollowFirst(true);
    EXPECT_EQ(page.logOptions(), 1u | 2u | 32u);
    page.setOrderingOption(0);
    EXPECT_EQ(page.logOptions(), 2u | 32u);
}

}  // namespace
