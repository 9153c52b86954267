#include "desktop/VNFileListModel.h"

#include <QHash>
#include <QPainter>
#include <QPixmap>

#include "model/VNFileStatusEntity.h"

namespace {

struct Badge {
    QChar letter;
    QColor colour;
};

Badge badgeFor(uint64_t status) {
    switch (status) {
        case VNFileStatusModified:
        case VNFileStatusSubmoduleModified:
            return {QLatin1Char('M'), QColor(214, 140, 0)};
        case VNFileStatusAdded:
            return {QLatin1Char('A'), QColor(40, 160, 60)};
        case VNFileStatusRemoved:
        case VNFileStatusMissing:
            return {QLatin1Char('D'), QColor(210, 50, 50)};
        case VNFileStatusConflicted:
            return {QLatin1Char('U'), QColor(160, 60, 200)};
        case VNFileStatusUnknown:
            return {QLatin1Char('?'), QColor(120, 120, 120)};
        case VNFileStatusIgnored:
            return {QLatin1Char('!'), QColor(150, 150, 150)};
        case VNFileStatusRenamed:
            return {QLatin1Char('R'), QColor(40, 120, 210)};
        default:
            return {QLatin1Char(' '), QColor(150, 150, 150)};
    }
}

// Drawn at 1x and 2x so that the badge stays sharp on scaled screens.
QPixmap badgePixmap(const Badge& badge, int size, qreal ratio) {
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(badge.colour);
    painter.drawRoundedRect(QRectF(1, 1, size - 2, size - 2), 3, 3);
    QFont font;
    font.setBold(true);
    font.setPixelSize(size - 5);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(QRectF(0, 0, size, size), Qt::AlignCenter, QString(badge.letter));
    return pixmap;
}

}  // namespace

VNFileListModel::VNFileListModel(QObject* parent) : QAbstractListModel(parent) {}

void VNFileListModel::setEntries(std::vector<Entry> entries) {
    if (entries == entries_) {
        return;
    }
    beginResetModel();
    entries_ = std::move(entries);
    endResetModel();
}

int VNFileListModel::rowOfPath(const std::string& path) const {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i].path == path) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

QIcon VNFileListModel::iconForStatus(uint64_t status) {
    static QHash<quint64, QIcon> cache;
    auto found = cache.find(status);
    if (found != cache.end()) {
        return *found;
    }
    Badge badge = badgeFor(status);
    QIcon icon;
    for (int size : {16, 24}) {
        for (qreal ratio : {1.0, 2.0}) {
            icon.addPixmap(badgePixmap(badge, size, ratio));
        }
    }
    cache.insert(status, icon);
    return icon;
}

QString VNFileListModel::statusName(uint64_t status) {
    switch (status) {
        case VNFileStatusModified:
            return tr("Modified");
        case VNFileStatusSubmoduleModified:
            return tr("Submodule modified");
        case VNFileStatusAdded:
            return tr("Added");
        case VNFileStatusRemoved:
            return tr("Removed");
        case VNFileStatusMissing:
            return tr("Missing");
        case VNFileStatusConflicted:
            return tr("Conflicted");
        case VNFileStatusUnknown:
            return tr("Untracked");
        case VNFileStatusIgnored:
            return tr("Ignored");
        case VNFileStatusRenamed:
            return tr("Renamed");
        default:
            return tr("Unchanged");
    }
}

int VNFileListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(entries_.size());
}

QVariant VNFileListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const Entry& e = entry(index.row());
    switch (role) {
        case Qt::DisplayRole:
            if (!e.previousPath.empty()) {
                return QString::fromStdString(e.previousPath) + QStringLiteral(" \u2192 ") +
                       QString::fromStdString(e.path);
            }
            return QString::fromStdString(e.path);
        case Qt::DecorationRole:
            return iconForStatus(e.status);
        case Qt::ToolTipRole:
            return statusName(e.status) + QStringLiteral(": ") + QString::fromStdString(e.path);
        case PathRole:
            return QString::fromStdString(e.path);
        case StatusRole:
            return static_cast<qulonglong>(e.status);
        case PreviousPathRole:
            return QString::fromStdString(e.previousPath);
        default:
            return {};
    }
}
