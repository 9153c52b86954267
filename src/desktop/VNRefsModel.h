#pragma once

#include <QAbstractItemModel>

#include <array>
#include <memory>
#include <string>
#include <vector>

class VNRepoHandler;

// The references of a repository as a two-level tree: sections (branches, remote branches,
// tags, stashes, submodules) and their items. Read-only; the contents come from `load`, which
// runs the tools and may run on any thread, and are shown with `setContents`.
class VNRefsModel : public QAbstractItemModel {
    Q_OBJECT
  public:
    enum Section { Branches, RemoteBranches, Tags, Stashes, Submodules, Bookmarks, SectionCount };
    enum Role {
        RevisionRole = Qt::UserRole + 1,  // QString: what the history shows for the item
        SectionRole,                      // int: the Section
        CurrentRole,                      // bool: the checked-out branch
        UpstreamRole,                     // QString: a branch's upstream
        AheadRole,                        // int: commits the branch has that its upstream lacks
        BehindRole,                       // int
        DetailRole,  // QString shown fainter after the name: ahead/behind and upstream, a
                     // stash's message, a submodule's commit
    };
    struct Item {
        std::string name;
        std::string revision;  // empty: nothing to show in the history
        std::string detail;    // a stash's message, a submodule's commit
        std::string upstream;
        int ahead = 0;
        int behind = 0;
        bool current = false;
    };
    using Contents = std::array<std::vector<Item>, SectionCount>;

    explicit VNRefsModel(QObject* parent = nullptr);

    static Contents load(VNRepoHandler& handler, const std::string& path);
    // Whether a section means anything for the system: Mercurial has no remote branches or
    // submodules here, Git no bookmarks.
    static bool sectionApplies(Section section, const VNRepoHandler& handler);
    // Mercurial keeps shelves where Git keeps stashes.
    void setStashesAreShelves(bool shelves) { stashesAreShelves_ = shelves; }
    void setContents(Contents contents);
    const Contents& contents() const { return contents_; }

    QModelIndex index(int row, int column,
                      const QModelIndex& parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    QString sectionTitle(Section section) const;

  private:
    // Section rows carry no pointer; item rows carry their section number plus one.
    static constexpr quintptr NoSection = 0;
    Contents contents_;
    bool stashesAreShelves_ = false;
};
