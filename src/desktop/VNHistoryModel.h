#pragma once

#include <QAbstractTableModel>
#include <QPointer>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Record.h"

class VNLogDescriptionEntry;
class VNLogGraphEntry;
class VNRepoHandler;

namespace vn::desktop {

// One history row as the view keeps it: what the table shows, nothing of the log record that it
// does not. The graph entry shares its unchanged runs with the rows around it.
struct VNHistoryRow {
    std::string
        rev;  // the full hash (Git) or revision number (Mercurial); "-1" for the working copy
    std::string node;  // the full hash where `rev` is a revision number, else empty
    std::string author;
    int64_t time = 0;    // seconds since the epoch
    int32_t offset = 0;  // the recorder's UTC offset, seconds east
    std::shared_ptr<const VNLogGraphEntry> graph;
    std::shared_ptr<const VNLogDescriptionEntry> description;  // subject, labels, row colour

    bool isWorkingCopy() const { return rev == "-1"; }
    // A log row laid out by the graph layout, reduced to what is shown.
    static VNHistoryRow fromRecord(const vn::Record& row);
};

// The history of one working copy, read from a single log run as it prints: the run goes on a
// worker thread, its rows are laid out there, and they arrive in the model in batches (the first
// as soon as git prints it). Rows are pushed, never pulled, so the view never asks for more from
// inside an insertion, and no page is read twice.
class VNHistoryModel : public QAbstractTableModel {
    Q_OBJECT
  public:
    enum Column {
        GraphColumn,
        DescriptionColumn,
        AuthorColumn,
        DateColumn,
        CommitColumn,
        ColumnCount
    };
    enum Role {
        // The row's VNHistoryRow, as a const pointer in a quintptr; valid until the next reset.
        RowRole = Qt::UserRole + 1,
        RevisionRole,
    };
    struct Options {
        bool firstParent = false;
        bool remotes = true;
        bool topoOrder = false;
    };

    explicit VNHistoryModel(QObject* parent = nullptr);
    ~VNHistoryModel() override;

    // Forgets the rows and starts reading the history of `path` again.
    void load(std::shared_ptr<VNRepoHandler> handler, std::string path, Options options);
    void load(std::shared_ptr<VNRepoHandler> handler, std::string path) {
        load(std::move(handler), std::move(path), Options());
    }
    // Stops taking rows from a run under way.
    void cancel();
    bool isLoading() const { return loading_; }
    bool loadSucceeded() const { return succeeded_; }

    const VNHistoryRow& row(int index) const { return rows_[static_cast<std::size_t>(index)]; }
    // The row of a revision given by its full hash (or "-1"); -1 when not loaded (yet).
    int rowOfRevision(const std::string& rev) const;
    // The most lanes any loaded row uses.
    uint32_t laneCount() const { return lanes_; }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    // "2024-01-02 03:04", the wall-clock time of whoever recorded it.
    static QString dateText(int64_t time, int32_t offset);

  Q_SIGNALS:
    // A batch of rows went in; `total` rows are loaded.
    void rowsArrived(int total);
    void loadingFinished(bool ok);

  private:
    struct Stream;
    void drain(const std::shared_ptr<Stream>& stream);

    std::vector<VNHistoryRow> rows_;
    std::shared_ptr<Stream> stream_;
    bool loading_ = false;
    bool succeeded_ = false;
    uint32_t lanes_ = 0;
};

}  // namespace vn::desktop
