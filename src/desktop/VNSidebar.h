#pragma once

#include <QWidget>

#include <cstdint>
#include <memory>
#include <string>

class QTreeView;
class VNRefsModel;
class VNRepoHandler;

// The repository's references beside the history: branches with their upstream and how far
// ahead or behind it they are, remote branches, tags, stashes and submodules. Read-only; a
// double-click on an item asks the history to show its revision.
class VNSidebar : public QWidget {
    Q_OBJECT
  public:
    VNSidebar(std::shared_ptr<VNRepoHandler> handler, std::string path, QWidget* parent = nullptr);
    ~VNSidebar() override;

    // Reads the references again, off the GUI thread; an older answer arriving late is dropped.
    void refresh();

    VNRefsModel* model() const { return model_; }
    QTreeView* treeView() const { return tree_; }

  signals:
    void revisionActivated(const QString& revision);
    // The lists show what the last refresh read.
    void refreshed();

  private:
    std::shared_ptr<VNRepoHandler> handler_;
    std::string path_;
    VNRefsModel* model_ = nullptr;
    QTreeView* tree_ = nullptr;
    uint64_t generation_ = 0;
};
