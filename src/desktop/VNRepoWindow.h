#pragma once

#include <QMainWindow>
#include <QPointer>

#include <cstdint>
#include <memory>
#include <string>

class QComboBox;
class QLabel;
class QLineEdit;
class QSplitter;
class QStackedWidget;
class VNRepoHandler;
class VNSidebar;
class VNWorkingCopyPane;

namespace vn::desktop {

class VNCommitDetails;
class VNCommitPane;
class VNRemoteSheet;
class VNHistoryFilter;
class VNHistoryModel;
class VNHistoryView;

// The window of one working copy: the sidebar at the left, the history in the middle, and below
// it the details of the chosen commit or, for the working-copy row, the working copy's files.
class VNRepoWindow : public QMainWindow {
    Q_OBJECT
  public:
    // History search modes, as the handler numbers them.
    enum SearchMode : uint32_t {
        SearchMessage = 0,
        SearchAuthor = 1,
        SearchContent = 2,
        SearchHash = 4
    };

    VNRepoWindow(std::shared_ptr<VNRepoHandler> handler, std::string path,
                 QWidget* parent = nullptr);
    ~VNRepoWindow() override;

    const std::string& path() const { return path_; }
    const std::shared_ptr<VNRepoHandler>& handler() const { return handler_; }

    VNHistoryModel* historyModel() const { return history_; }
    VNHistoryView* historyView() const { return historyView_; }
    VNCommitDetails* details() const { return details_; }
    VNWorkingCopyPane* workingCopyPane() const { return workingCopy_; }
    // Null for repositories other than Git ones.
    VNCommitPane* commitPane() const { return commitPane_; }
    VNSidebar* sidebar() const { return sidebar_; }
    QLineEdit* searchField() const { return searchField_; }

    enum SheetKind { PushSheet, PullSheet, FetchSheet };
    // Opens the push, pull or fetch sheet (or raises the open one); null without Git.
    VNRemoteSheet* openSheet(SheetKind kind);

    // Reads the history (and the panes) again.
    void refresh();
    // Reads the history again, keeping the chosen row when it is still there.
    void reloadHistory();
    // Selects the commit a branch, tag, stash or hash names, asking git when no row carries
    // the name.
    void showRevision(const QString& name);
    // Shows only the commits that match; an empty text shows the whole history again.
    void search(const QString& text, SearchMode mode);
    void clearSearch();
    bool searching() const { return searchActive_; }
    // Selects the row of a revision (a full or short hash, or a branch as the sidebar names it)
    // once it is loaded; answers whether it was found.
    bool selectRevision(const QString& revision);
    // Selects a row of the (possibly filtered) history.
    void selectRow(int row);

  Q_SIGNALS:
    void historyLoaded(bool ok);
    void searchFinished(int hits);

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    void buildMenus();
    void currentRowChanged();
    void restoreLayout();
    void saveLayout() const;
    void updateStatus();
    void historyFinished(bool ok);
    void sizeGraphColumn();
    void sizeCommitColumn();
    void refreshPanes();

    std::shared_ptr<VNRepoHandler> handler_;
    std::string path_;
    VNHistoryModel* history_;
    VNHistoryFilter* filter_;
    VNHistoryView* historyView_;
    VNCommitDetails* details_;
    VNWorkingCopyPane* workingCopy_;
    VNCommitPane* commitPane_ = nullptr;
    QSplitter* workingCopyPage_;
    QPointer<VNRemoteSheet> sheet_;
    VNSidebar* sidebar_;
    QStackedWidget* lower_;
    QSplitter* mainSplitter_;
    QSplitter* centreSplitter_;
    QLineEdit* searchField_;
    QComboBox* searchMode_;
    QLabel* status_;
    uint64_t searchGeneration_ = 0;
    bool searchActive_ = false;
    std::string pendingSelection_;
    bool graphColumnSized_ = false;
    bool panesPending_ = false;
};

}  // namespace vn::desktop
