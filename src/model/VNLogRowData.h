#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Record.h"
#include "base/Value.h"

// One page of the history view: what the window asks for and what the backend found.
class VNLogRowData : public vn::Object {
  public:
    // ---- The request ----
    uint64_t skip() const { return skip_; }
    void setSkip(uint64_t skip) { skip_ = skip; }
    uint64_t limit() const { return limit_; }
    void setLimit(uint64_t limit) { limit_ = limit; }
    // The position of the page's first row in the whole listing.
    uint64_t rowNum() const { return rowNum_; }
    void setRowNum(uint64_t rowNum) { rowNum_ = rowNum; }
    bool showRemotes() const { return showRemotes_; }
    void setShowRemotes(bool show) { showRemotes_ = show; }
    bool allBranches() const { return allBranches_; }
    void setAllBranches(bool all) { allBranches_ = all; }
    bool followFirst() const { return followFirst_; }
    void setFollowFirst(bool followFirst) { followFirst_ = followFirst; }
    // The ordering bit of the log options (1: topological).
    int64_t orderingOption() const { return orderingOption_; }
    void setOrderingOption(int64_t option) { orderingOption_ = option; }
    bool lookForCurrentBranch() const { return lookForCurrentBranch_; }
    void setLookForCurrentBranch(bool look) { lookForCurrentBranch_ = look; }
    const std::string& selectedBranch() const { return selectedBranch_; }
    void setSelectedBranch(std::string branch) { selectedBranch_ = std::move(branch); }
    const std::string& currentBranch() const { return currentBranch_; }
    void setCurrentBranch(std::string branch) { currentBranch_ = std::move(branch); }
    // The graph state of the last row of the previous page, carried into this page's layout.
    const std::shared_ptr<const vn::Object>& baseGraphState() const { return baseGraphState_; }
    void setBaseGraphState(std::shared_ptr<const vn::Object> state) {
        baseGraphState_ = std::move(state);
    }

    // The log option bits the request stands for: 1 topological order, 2 remote branches,
    // 32 first parents only.
    uint64_t logOptions() const;

    // ---- The result ----
    // The page was full, so more rows may follow.
    bool moreRevisions() const { return moreRevisions_; }
    void setMoreRevisions(bool more) { moreRevisions_ = more; }
    const std::vector<vn::Record>& logRows() const { return logRows_; }
    std::vector<vn::Record>& logRows() { return logRows_; }
    void setLogRows(std::vector<vn::Record> rows) { logRows_ = std::move(rows); }
    // The first row stands for the uncommitted changes of the working copy.
    bool firstRowIsWorkingDir() const { return firstRowIsWorkingDir_; }
    void setFirstRowIsWorkingDir(bool first) { firstRowIsWorkingDir_ = first; }
    bool currentBranchFound() const { return currentBranchFound_; }
    void setCurrentBranchFound(bool found) { currentBranchFound_ = found; }

    vn::Value jsonValue() const override;
    // Writes the rows in place rather than through a copy of the page. The results follow the
    // rows, so that a page can also be written a row at a time while it is read: the request
    // (opening the rows), each row, then the results (closing the page).
    void writeJson(vn::JsonWriter& writer) const override;
    void writeJsonRequest(vn::JsonWriter& writer) const;
    static void writeJsonRow(vn::JsonWriter& writer, const vn::Record& row);
    void writeJsonResult(vn::JsonWriter& writer) const;

  private:
    uint64_t skip_ = 0;
    uint64_t limit_ = 0;
    uint64_t rowNum_ = 0;
    bool showRemotes_ = false;
    bool allBranches_ = true;
    bool followFirst_ = false;
    int64_t orderingOption_ = 0;
    bool lookForCurrentBranch_ = false;
    std::string selectedBranch_;
    std::string currentBranch_;
    std::shared_ptr<const vn::Object> baseGraphState_;
    bool moreRevisions_ = false;
    std::vector<vn::Record> logRows_;
    bool firstRowIsWorkingDir_ = false;
    bool currentBranchFound_ = false;
};
