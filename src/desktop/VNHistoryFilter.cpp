#include "desktop/VNHistoryFilter.h"

#include "desktop/VNHistoryModel.h"

namespace vn::desktop {

void VNHistoryFilter::setHits(std::unordered_set<std::string> hits) {
    hits_ = std::move(hits);
    active_ = true;
    invalidateRowsFilter();
}

void VNHistoryFilter::clearHits() {
    hits_.clear();
    active_ = false;
    invalidateRowsFilter();
}

bool VNHistoryFilter::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
    if (!active_) {
        return true;
    }
    auto* history = qobject_cast<VNHistoryModel*>(sourceModel());
    if (!history || sourceParent.isValid()) {
        return false;
    }
    return hits_.count(history->row(sourceRow).rev) != 0;
}

}  // namespace vn::desktop
