#include "desktop/VNDiffLineModel.h"

#include <algorithm>

#include "model/VNDiffModel.h"

VNDiffLineModel::VNDiffLineModel(QObject* parent) : QAbstractListModel(parent) {}

VNDiffLineModel::~VNDiffLineModel() = default;

void VNDiffLineModel::setDiff(std::shared_ptr<VNDiffModel> diff) {
    beginResetModel();
    diff_ = std::move(diff);
    build();
    endResetModel();
}

void VNDiffLineModel::build() {
    runs_.clear();
    rowCount_ = 0;
    largestLineNumber_ = 0;
    longestLine_ = 0;
    if (!diff_) {
        return;
    }
    const auto& files = diff_->fileEntries();
    for (uint32_t f = 0; f < files.size(); ++f) {
        const VNDiffFileModel& file = *files[f];
        runs_.push_back({rowCount_++, RowKind::FileHeader, f, 0});
        std::size_t lines = 0;
        for (const auto& hunk : file.hunks()) {
            lines += hunk->lineCount() + 1;
        }
        if (!placeholderText(file).isEmpty() || lines > lineLimit_ ||
            lines > static_cast<std::size_t>(INT32_MAX - rowCount_ - 1)) {
            runs_.push_back({rowCount_++, RowKind::Placeholder, f, 0});
            continue;
        }
        const auto& hunks = file.hunks();
        for (uint32_t h = 0; h < hunks.size(); ++h) {
            const VNDiffHunkModel& hunk = *hunks[h];
            runs_.push_back({rowCount_++, RowKind::HunkHeader, f, h});
            std::size_t count = hunk.lineCount();
            if (count == 0) {
                continue;
            }
            runs_.push_back({rowCount_, RowKind::Line, f, h});
            rowCount_ += static_cast<int>(count);
            largestLineNumber_ =
                std::max({largestLineNumber_, hunk.endLineBefore(), hunk.endLineAfter()});
            for (std::size_t i = 0; i < count; ++i) {
                longestLine_ = std::max(longestLine_, hunk.lineAt(i).line.size());
            }
        }
    }
}

const VNDiffLineModel::Run& VNDiffLineModel::runFor(int row) const {
    auto after = std::upper_bound(runs_.begin(), runs_.end(), row,
                                  [](int r, const Run& run) { return r < run.firstRow; });
    return *(after - 1);
}

VNDiffLineModel::RowView VNDiffLineModel::rowAt(int row) const {
    RowView view;
    if (row < 0 || row >= rowCount_) {
        return view;
    }
    const Run& run = runFor(row);
    view.kind = run.kind;
    view.file = diff_->fileEntries()[run.file].get();
    if (run.kind == RowKind::HunkHeader || run.kind == RowKind::Line) {
        view.hunk = view.file->hunks()[run.hunk].get();
    }
    if (run.kind == RowKind::Line) {
        VNDiffHunkModel::LineView line =
            view.hunk->lineAt(static_cast<std::size_t>(row - run.firstRow));
        view.prefix = line.prefix.empty() ? ' ' : line.prefix.front();
        view.text = line.line;
        view.beforeLineNumber = line.beforeLineNumber;
        view.afterLineNumber = line.afterLineNumber;
    }
    return view;
}

QString VNDiffLineModel::placeholderText(const VNDiffFileModel& file) const {
    if (file.suppressed()) {
        return tr("No diff was produced for this file");
    }
    if (file.fileType() == VNDiffFileModel::Binary) {
        return tr("Binary file: no lines to show");
    }
    if (file.fileType() == VNDiffFileModel::LargeFilePointer) {
        auto shortId = [](const std::string& id) {
            return id.empty() ? tr("none") : QString::fromStdString(id.substr(0, 12));
        };
        return tr("Large file stored outside the repository: %1 \u2192 %2")
            .arg(shortId(file.beforeLargeFileRef()), shortId(file.afterLargeFileRef()));
    }
    if (file.hunks().empty()) {
        if (file.oldFileMode() != file.newFileMode()) {
            return tr("Mode changed from %1 to %2").arg(file.oldFileMode()).arg(file.newFileMode());
        }
        return tr("No changes to the content");
    }
    return {};
}

QString VNDiffLineModel::headerText(int row) const {
    RowView view = rowAt(row);
    if (!view.file) {
        return {};
    }
    switch (view.kind) {
        case RowKind::FileHeader: {
            QString name = QString::fromStdString(view.file->filename());
            if (!view.file->previousFilename().empty()) {
                name = QString::fromStdString(view.file->previousFilename()) + " \u2192 " + name;
            }
            return tr("%1   +%2 \u2212%3")
                .arg(name)
                .arg(view.file->linesAdded())
                .arg(view.file->linesRemoved());
        }
        case RowKind::HunkHeader: {
            auto count = [](int64_t start, int64_t end) {
                return start == 0 ? 0 : end - start + 1;
            };
            const VNDiffHunkModel& h = *view.hunk;
            return QStringLiteral("@@ -%1,%2 +%3,%4 @@")
                .arg(h.startLineBefore())
                .arg(count(h.startLineBefore(), h.endLineBefore()))
                .arg(h.startLineAfter())
                .arg(count(h.startLineAfter(), h.endLineAfter()));
        }
        case RowKind::Placeholder: {
            QString text = placeholderText(*view.file);
            if (text.isEmpty()) {
                std::size_t lines = 0;
                for (const auto& hunk : view.file->hunks()) {
                    lines += hunk->lineCount();
                }
                text = tr("This diff is too large to show here (%1 lines)").arg(lines);
            }
            return text;
        }
        case RowKind::Line:
            break;
    }
    return {};
}

int VNDiffLineModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : rowCount_;
}

QVariant VNDiffLineModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    RowView view = rowAt(index.row());
    switch (role) {
        case Qt::DisplayRole:
        case Qt::ToolTipRole:
            if (view.kind == RowKind::Line) {
                return QString::fromUtf8(view.text.data(),
                                         static_cast<qsizetype>(view.text.size()));
            }
            return headerText(index.row());
        case KindRole:
            return static_cast<int>(view.kind);
        case PrefixRole:
            return view.kind == RowKind::Line ? QString(QChar::fromLatin1(view.prefix)) : QString();
        case BeforeLineNumberRole:
            return static_cast<qlonglong>(view.beforeLineNumber);
        case AfterLineNumberRole:
            return static_cast<qlonglong>(view.afterLineNumber);
        default:
            return {};
    }
}

Qt::ItemFlags VNDiffLineModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    // Only lines can be chosen: they are what line staging takes.
    if (rowAt(index.row()).kind == RowKind::Line) {
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    }
    return Qt::ItemIsEnabled | Qt::ItemNeverHasChildren;
}
