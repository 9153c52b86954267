#include "desktop/VNHistoryModel.h"

#include <chrono>
#include <ctime>
#include <optional>

#include "desktop/VNAsync.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/SideBySide.h"
#include "handler/VNRepoHandler.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogGraphLayout.h"
#include "platform/WorkQueue.h"

namespace vn::desktop {

VNHistoryRow VNHistoryRow::fromRecord(const vn::Record& record) {
    VNHistoryRow row;
    row.rev = record.string("rev");
    if (std::string changeset = record.string("changeset"); changeset != row.rev) {
        row.node = std::move(changeset);
    }
    std::string user = record.string("user");
    std::size_t bracket = user.rfind(" <");
    row.author = bracket == std::string::npos ? std::move(user) : user.substr(0, bracket);
    const vn::Value& date = record["date"];
    if (const vn::Value::Date* point = date.date()) {
        row.time =
            std::chrono::duration_cast<std::chrono::seconds>(point->time_since_epoch()).count();
        if (auto offset = date.dateOffset()) {
            row.offset = *offset;
        } else {
            std::time_t seconds = static_cast<std::time_t>(row.time);
            std::tm local{};
            ::localtime_r(&seconds, &local);
            row.offset = static_cast<int32_t>(local.tm_gmtoff);
        }
    }
    row.graph = record["graph"].objectAs<VNLogGraphEntry>();
    row.description = record["descriptionentry"].objectAs<VNLogDescriptionEntry>();
    return row;
}

// What a worker hands to the GUI thread. The worker appends under the lock and posts one drain
// at a time, so batches coalesce while the GUI thread is busy.
struct VNHistoryModel::Stream {
    std::mutex mutex;
    std::vector<VNHistoryRow> pending;
    uint32_t lanes = 0;
    bool drainPosted = false;
    bool finished = false;
    bool ok = false;
    std::atomic<bool> cancelled{false};
};

VNHistoryModel::VNHistoryModel(QObject* parent) : QAbstractTableModel(parent) {}

VNHistoryModel::~VNHistoryModel() {
    cancel();
}

void VNHistoryModel::cancel() {
    if (stream_) {
        stream_->cancelled = true;
        stream_.reset();
    }
    if (loading_) {
        loading_ = false;
    }
}

namespace {

using Rows = std::vector<vn::Record>;

// One log run whose rows go to the view as the tool prints them; the working copy's row, looked
// up beside the log, leads the first batch. `stream` runs the log, handing batches to its
// argument.
bool readStreamed(const std::function<std::optional<vn::Record>()>& workingCopyRow,
                  const std::function<bool(const std::function<void(Rows&)>&)>& stream,
                  VNLogGraphLayout& layout, const std::atomic<bool>& cancelled,
                  const std::function<void(Rows&)>& deliver) {
    std::optional<vn::Record> workingCopy;
    SideBySide status([&] { workingCopy = workingCopyRow(); });
    bool led = false;
    auto take = [&](Rows& rows) {
        if (cancelled) {
            return;
        }
        if (!led) {
            led = true;
            status.wait();
            if (workingCopy) {
                rows.insert(rows.begin(), std::move(*workingCopy));
            }
        }
        layout.addRows(rows);
        deliver(rows);
    };
    bool ok = stream(take);
    if (!led) {
        // An empty history still shows the uncommitted changes.
        Rows none;
        take(none);
    }
    return ok;
}

// Reads the whole history of a working copy and hands each laid-out batch to `deliver`.
bool readHistory(VNRepoHandler& handler, const std::string& path,
                 const VNHistoryModel::Options& options, const std::atomic<bool>& cancelled,
                 const std::function<void(Rows&)>& deliver) {
    uint64_t logOptions = (options.topoOrder ? VNRepoHandlerGit::LogTopoOrder : 0) |
                          (options.remotes ? VNRepoHandlerGit::LogIncludeRemotes : 0) |
                          (options.firstParent ? VNRepoHandlerGit::LogFirstParent : 0);
    VNLogGraphLayout layout(nullptr, options.firstParent);
    if (auto* hg = dynamic_cast<VNRepoHandlerMercurial*>(&handler)) {
        return readStreamed([&] { return hg->workingCopyRow(path); },
                            [&](const std::function<void(Rows&)>& take) {
                                return hg->streamLogRevisions(path, std::nullopt, 0, std::nullopt,
                                                              0, take);
                            },
                            layout, cancelled, deliver);
    }
    if (auto* git = dynamic_cast<VNRepoHandlerGit*>(&handler)) {
        return readStreamed([&] { return git->workingCopyRow(path); },
                            [&](const std::function<void(Rows&)>& take) {
                                return git->streamLogRevisions(path, 0, 0, std::nullopt, logOptions,
                                                               take);
                            },
                            layout, cancelled, deliver);
    }
    Rows rows = handler.logRevisions(path, "", 0, 0, std::nullopt, logOptions);
    layout.addRows(rows);
    deliver(rows);
    return true;
}

}  // namespace

void VNHistoryModel::load(std::shared_ptr<VNRepoHandler> handler, std::string path,
                          Options options) {
    cancel();
    beginResetModel();
    rows_.clear();
    rows_.shrink_to_fit();
    lanes_ = 0;
    endResetModel();
    if (!handler) {
        return;
    }
    auto stream = std::make_shared<Stream>();
    stream_ = stream;
    loading_ = true;
    succeeded_ = false;
    QPointer<VNHistoryModel> self(this);
    auto post = [self, stream] {
        detail::postToGui([self, stream] {
            if (self) {
                self->drain(stream);
            }
        });
    };
    vn::WorkQueue::global().async(detail::pendingWork(), [handler, path, options, stream, post] {
        auto deliver = [&](std::vector<vn::Record>& records) {
            std::vector<VNHistoryRow> rows;
            rows.reserve(records.size());
            uint32_t lanes = 0;
            for (const vn::Record& record : records) {
                rows.push_back(VNHistoryRow::fromRecord(record));
                if (const auto& graph = rows.back().graph) {
                    uint32_t used = graph->commitColumn + 1;
                    for (const auto& line : graph->lineColumns) {
                        used = std::max({used, line.startCol + 1, line.endCol + 1});
                    }
                    lanes = std::max(lanes, used);
                }
            }
            bool postNow;
            {
                std::lock_guard<std::mutex> lock(stream->mutex);
                stream->pending.insert(stream->pending.end(), std::make_move_iterator(rows.begin()),
                                       std::make_move_iterator(rows.end()));
                stream->lanes = std::max(stream->lanes, lanes);
                postNow = !stream->drainPosted;
                stream->drainPosted = true;
            }
            if (postNow) {
                post();
            }
        };
        bool ok = readHistory(*handler, path, options, stream->cancelled, deliver);
        {
            std::lock_guard<std::mutex> lock(stream->mutex);
            stream->finished = true;
            stream->ok = ok;
            if (stream->drainPosted) {
                return;  // that drain sees the end as well
            }
            stream->drainPosted = true;
        }
        post();
    });
}

void VNHistoryModel::drain(const std::shared_ptr<Stream>& stream) {
    if (stream != stream_) {
        return;  // an answer to a load that was replaced
    }
    std::vector<VNHistoryRow> rows;
    bool finished;
    bool ok;
    {
        std::lock_guard<std::mutex> lock(stream->mutex);
        rows.swap(stream->pending);
        finished = stream->finished;
        ok = stream->ok;
        lanes_ = std::max(lanes_, stream->lanes);
        stream->drainPosted = false;
    }
    if (!rows.empty()) {
        int first = static_cast<int>(rows_.size());
        beginInsertRows(QModelIndex(), first, first + static_cast<int>(rows.size()) - 1);
        if (rows_.empty()) {
            rows_ = std::move(rows);
        } else {
            rows_.insert(rows_.end(), std::make_move_iterator(rows.begin()),
                         std::make_move_iterator(rows.end()));
        }
        endInsertRows();
        Q_EMIT rowsArrived(static_cast<int>(rows_.size()));
    }
    if (finished) {
        stream_.reset();
        loading_ = false;
        succeeded_ = ok;
        Q_EMIT loadingFinished(ok);
    }
}

int VNHistoryModel::rowOfRevision(const std::string& rev) const {
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        if (rows_[i].rev == rev || (!rows_[i].node.empty() && rows_[i].node == rev)) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int VNHistoryModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int VNHistoryModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QString VNHistoryModel::dateText(int64_t time, int32_t offset) {
    std::time_t wallTime = static_cast<std::time_t>(time + offset);
    std::tm wall{};
    ::gmtime_r(&wallTime, &wall);
    char buffer[32];
    std::size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M", &wall);
    return QString::fromLatin1(buffer, static_cast<qsizetype>(length));
}

QVariant VNHistoryModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= static_cast<int>(rows_.size())) {
        return {};
    }
    const VNHistoryRow& row = rows_[static_cast<std::size_t>(index.row())];
    switch (role) {
        case RowRole:
            return QVariant::fromValue(reinterpret_cast<quintptr>(&row));
        case RevisionRole:
            return QString::fromStdString(row.rev);
        case Qt::DisplayRole:
        case Qt::ToolTipRole:
            break;
        default:
            return {};
    }
    const bool workingCopy = row.isWorkingCopy();
    switch (index.column()) {
        case DescriptionColumn:
            if (workingCopy) {
                return tr("Uncommitted changes");
            }
            return row.description ? QString::fromStdString(row.description->description())
                                   : QString();
        case AuthorColumn:
            return QString::fromStdString(row.author);
        case DateColumn:
            return workingCopy ? QVariant() : QVariant(dateText(row.time, row.offset));
        case CommitColumn:
            if (workingCopy) {
                return {};
            }
            if (!row.node.empty()) {
                // Mercurial's local number, then the hash that names the changeset everywhere.
                return role == Qt::ToolTipRole
                           ? QString::fromStdString(row.rev + ":" + row.node)
                           : QString::fromStdString(row.rev + ":" + row.node.substr(0, 12));
            }
            return role == Qt::ToolTipRole ? QString::fromStdString(row.rev)
                                           : QString::fromStdString(row.rev.substr(0, 10));
        default:
            return {};
    }
}

QVariant VNHistoryModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return {};
    }
    switch (section) {
        case GraphColumn:
            return tr("Graph");
        case DescriptionColumn:
            return tr("Description");
        case AuthorColumn:
            return tr("Author");
        case DateColumn:
            return tr("Date");
        case CommitColumn:
            return tr("Commit");
        default:
            return {};
    }
}

}  // namespace vn::desktop
