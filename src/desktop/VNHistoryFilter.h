#pragma once

#include <QSortFilterProxyModel>

#include <string>
#include <unordered_set>

namespace vn::desktop {

// The history narrowed to the hits of a search; without a search every row passes.
class VNHistoryFilter : public QSortFilterProxyModel {
    Q_OBJECT
  public:
    using QSortFilterProxyModel::QSortFilterProxyModel;

    // The revisions (full hashes) that pass; an empty set with `active` shows no row.
    void setHits(std::unordered_set<std::string> hits);
    void clearHits();
    bool active() const { return active_; }
    std::size_t hitCount() const { return hits_.size(); }

  protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

  private:
    std::unordered_set<std::string> hits_;
    bool active_ = false;
};

}  // namespace vn::desktop
