#include "desktop/VNSidebar.h"

#include <QHeaderView>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QTreeView>
#include <QVBoxLayout>

#include <set>

#include "desktop/VNAsync.h"
#include "desktop/VNRefsModel.h"
#include "handler/VNRepoHandler.h"

namespace {

// The item's name as usual, then its detail (ahead/behind and upstream, a stash's message) in
// a fainter colour of the palette.
class RefDelegate : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        QStyledItemDelegate::paint(painter, option, index);
        QString detail = index.data(VNRefsModel::DetailRole).toString();
        if (detail.isEmpty()) {
            return;
        }
        QStyleOptionViewItem item = option;
        initStyleOption(&item, index);
        QFontMetrics nameMetrics(item.font);
        int left = item.rect.left() + nameMetrics.horizontalAdvance(item.text) +
                   nameMetrics.horizontalAdvance(QStringLiteral("   "));
        QRect area(left, item.rect.top(), item.rect.right() - left, item.rect.height());
        if (area.width() <= 0) {
            return;
        }
        bool selected = option.state & QStyle::State_Selected;
        QColor colour = selected ? option.palette.color(QPalette::HighlightedText)
                                 : option.palette.color(QPalette::PlaceholderText);
        painter->save();
        painter->setFont(option.font);
        painter->setPen(colour);
        painter->drawText(
            area, Qt::AlignVCenter | Qt::AlignLeft,
            QFontMetrics(option.font).elidedText(detail, Qt::ElideRight, area.width()));
        painter->restore();
    }
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        QString detail = index.data(VNRefsModel::DetailRole).toString();
        if (!detail.isEmpty()) {
            size.rwidth() +=
                QFontMetrics(option.font).horizontalAdvance(QStringLiteral("   ") + detail);
        }
        return size;
    }
};

}  // namespace

VNSidebar::VNSidebar(std::shared_ptr<VNRepoHandler> handler, std::string path, QWidget* parent)
    : QWidget(parent), handler_(std::move(handler)), path_(std::move(path)) {
    model_ = new VNRefsModel(this);
    tree_ = new QTreeView(this);
    tree_->setModel(model_);
    tree_->setItemDelegate(new RefDelegate(tree_));
    tree_->setHeaderHidden(true);
    tree_->setUniformRowHeights(true);
    tree_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tree_->setSelectionMode(QAbstractItemView::SingleSelection);
    tree_->setExpandsOnDoubleClick(true);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(tree_);
    model_->setStashesAreShelves(handler_->repositoryType() == VNRepositoryTypeMercurial);
    connect(tree_, &QTreeView::doubleClicked, this, [this](const QModelIndex& index) {
        QString revision = index.data(VNRefsModel::RevisionRole).toString();
        if (!revision.isEmpty()) {
            emit revisionActivated(revision);
        }
    });
}

VNSidebar::~VNSidebar() = default;

void VNSidebar::refresh() {
    uint64_t generation = ++generation_;
    auto handler = handler_;
    std::string path = path_;
    vn::desktop::runAsync<VNRefsModel::Contents>(
        this, [handler, path] { return VNRefsModel::load(*handler, path); },
        [this, generation](VNRefsModel::Contents contents) {
            if (generation != generation_) {
                return;
            }
            // Sections the user folded stay folded; the others open, also when they were empty.
            std::set<int> collapsed;
            for (int section = 0; section < model_->rowCount(); ++section) {
                if (model_->rowCount(model_->index(section, 0)) > 0 &&
                    !tree_->isExpanded(model_->index(section, 0))) {
                    collapsed.insert(section);
                }
            }
            model_->setContents(std::move(contents));
            for (int section = 0; section < model_->rowCount(); ++section) {
                tree_->setExpanded(model_->index(section, 0), !collapsed.count(section));
                tree_->setRowHidden(section, QModelIndex(),
                                    !VNRefsModel::sectionApplies(
                                        static_cast<VNRefsModel::Section>(section), *handler_));
            }
            emit refreshed();
        });
}
