#pragma once

#include <QAbstractListModel>
#include <QIcon>

#include <cstdint>
#include <string>
#include <vector>

// One list of changed files (the staged or the unstaged side of a working copy): each row a
// path relative to the working copy, with the status of its side shown as an icon.
class VNFileListModel : public QAbstractListModel {
    Q_OBJECT
  public:
    struct Entry {
        std::string path;          // relative to the working copy
        std::string previousPath;  // the name before a rename; empty otherwise
        uint64_t status = 0;       // one file-status bit: this side's status
        bool operator==(const Entry&) const = default;
    };
    enum Role {
        PathRole = Qt::UserRole + 1,  // QString
        StatusRole,                   // qulonglong
        PreviousPathRole,             // QString
    };

    explicit VNFileListModel(QObject* parent = nullptr);

    // Replaces the rows. Rows that stay keep their place in the view's selection only as far as
    // the caller restores it; nothing changes when the list is the same.
    void setEntries(std::vector<Entry> entries);
    const std::vector<Entry>& entries() const { return entries_; }
    const Entry& entry(int row) const { return entries_[static_cast<std::size_t>(row)]; }
    // The row of a path, or -1.
    int rowOfPath(const std::string& path) const;

    // The icon of a status bit: a letter on a coloured badge, made once per status.
    static QIcon iconForStatus(uint64_t status);
    static QString statusName(uint64_t status);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;

  private:
    std::vector<Entry> entries_;
};
