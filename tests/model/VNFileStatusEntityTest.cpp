#include "model/VNFileStatusEntity.h"

#include <gtest/gtest.h>

#include <thread>
#include <unordered_set>

namespace {

// A front end's own row class: never equal to a plain row, even with the same kind and name.
class DecoratedEntity : public VNFileStatusEntity {
  public:
    using VNFileStatusEntity::VNFileStatusEntity;
};

TEST(VNFileStatusEntity, EqualityIsClassKindAndFileName) {
    VNFileStatusEntity row(2, "src/a.c", VNFileStatusModified, true);
    struct Case {
        const char* name;
        std::shared_ptr<VNFileStatusEntity> other;
        bool equal;
    };
    const std::vector<Case> cases = {
        {"same row", std::make_shared<VNFileStatusEntity>(2, "src/a.c", VNFileStatusModified, true),
         true},
        {"status and check box do not count",
         std::make_shared<VNFileStatusEntity>(2, "src/a.c", VNFileStatusAdded, false), true},
        {"another kind", std::make_shared<VNFileStatusEntity>(5, "src/a.c", 2, true), false},
        {"another name", std::make_shared<VNFileStatusEntity>(2, "src/b.c", 2, true), false},
        {"case matters", std::make_shared<VNFileStatusEntity>(2, "src/A.c", 2, true), false},
        {"another class", std::make_shared<DecoratedEntity>(2, "src/a.c", 2, true), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(row == *c.other, c.equal);
        EXPECT_EQ(*c.other == row, c.equal) << "equality is symmetric";
        if (c.equal) {
            EXPECT_EQ(row.hash(), c.other->hash());
        }
    }
    auto previous = std::make_shared<VNFileStatusEntity>(2, "src/a.c", 2, true);
    previous->setPreviousFilename("old.c");
    EXPECT_EQ(row, *previous) << "the previous name is no part of a row's identity";
}

TEST(VNFileStatusEntity, HashFollowsTheFormulaAndFindsRowsInSets) {
    VNFileStatusEntity row(5, "x/y", 2, false);
    EXPECT_EQ(row.hash(), (5u * 31 + 31) * std::hash<std::string>{}("x/y"));
    VNFileStatusEntity header(-1, "x/y", 2, false);
    EXPECT_EQ(header.hash(), 0u) << "kind -1 makes the factor 0";

    std::vector<std::shared_ptr<VNFileStatusEntity>> rows;
    for (int32_t type : {2, 5}) {
        for (const char* name : {"a", "b", "dir/a"}) {
            rows.push_back(VNFileStatusEntity::entityWithType(type, name, 2, false));
        }
    }
    auto hashOf = [](const std::shared_ptr<VNFileStatusEntity>& e) { return e->hash(); };
    auto equal = [](const std::shared_ptr<VNFileStatusEntity>& a,
                    const std::shared_ptr<VNFileStatusEntity>& b) { return *a == *b; };
    std::unordered_set<std::shared_ptr<VNFileStatusEntity>, decltype(hashOf), decltype(equal)>
        selection(8, hashOf, equal);
    selection.insert(rows.begin(), rows.end());
    EXPECT_EQ(selection.size(), 6u);
    // A refreshed list makes new rows; the selection still finds them.
    EXPECT_EQ(selection.count(VNFileStatusEntity::entityWithType(5, "dir/a", 128, true)), 1u);
    EXPECT_EQ(selection.count(VNFileStatusEntity::entityWithType(3, "dir/a", 2, false)), 0u);
}

TEST(VNFileStatusEntity, NamePartsAreMadeOnceAndFollowRenames) {
    struct Case {
        const char* filename;
        const char* name;
        const char* folder;
    };
    const std::vector<Case> cases = {
        {"top.txt", "top.txt", ""},
        {"a/b/c d.txt", "c d.txt", "a/b"},
        {"sub/", "sub", ""},
        {"dir/ünï", "ünï", "dir"},
        {"", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.filename);
        VNFileStatusEntity row(2, c.filename, 2, false);
        EXPECT_EQ(row.filenameNoPath(), c.name);
        EXPECT_EQ(row.path(), c.folder);
    }
    VNFileStatusEntity row(2, "old/name.txt", 2, false);
    EXPECT_EQ(row.filenameNoPath(), "name.txt");
    row.setFilename("new/place/other.txt");
    EXPECT_EQ(row.filenameNoPath(), "other.txt") << "a new name drops the kept parts";
    EXPECT_EQ(row.path(), "new/place");

    // Rows are read from the interface and from workers at once.
    VNFileStatusEntity shared(2, "x/y/z", 2, false);
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&shared] {
            for (int n = 0; n < 200; ++n) {
                EXPECT_EQ(shared.path(), "x/y");
            }
        });
    }
    for (auto& reader : readers) {
        reader.join();
    }
}

TEST(VNFileStatusEntity, KindsCheckBoxesAndStatusRecords) {
    for (int32_t type : {0, 1, 2, 3, 4, 5, 6}) {
        SCOPED_TRACE(type);
        auto row = VNFileStatusEntity::entityWithType(type, false);
        EXPECT_EQ(row->isFile(), type == 2 || type == 5);
        EXPECT_NE(row->isFile(), row->isHeader());
    }
    for (uint64_t status : {1u, 2u, 4u, 8u, 16u, 64u, 128u, 256u, 512u, 8192u}) {
        SCOPED_TRACE(status);
        EXPECT_EQ(VNFileStatusEntity(2, "f", status, false).checkboxEnabled(), status != 1);
    }

    vn::Record record{{"status", uint64_t(512)},
                      {"indexStatus", uint64_t(512)},
                      {"treeStatus", uint64_t(1)},
                      {"filename", "new name"},
                      {"path", "dir"},
                      {"previousName", "dir/old name"}};
    auto row = VNFileStatusEntity::entityWithStatusRecord(2, record, true);
    EXPECT_EQ(row->filename(), "dir/new name");
    EXPECT_EQ(row->previousFilename(), "dir/old name");
    EXPECT_EQ(row->status(), 512u);
    EXPECT_TRUE(row->checked());
    EXPECT_EQ(row->originalDict(), record);
    auto top = VNFileStatusEntity::entityWithStatusRecord(
        5, vn::Record{{"status", uint64_t(1)}, {"filename", "a"}, {"path", ""}}, false);
    EXPECT_EQ(top->filename(), "a");
    EXPECT_FALSE(top->checkboxEnabled());
}

}  // namespace
