#include "desktop/VNRepoWindow.h"

#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenuBar>
#include <QMessageBox>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QToolBar>
#include <QVBoxLayout>

#include <chrono>
#include <unordered_set>

#include "base/Json.h"
#include "desktop/VNAsync.h"
#include "desktop/VNCommitDetails.h"
#include "desktop/VNCommitPane.h"
#include "desktop/VNDiffView.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNGraphCell.h"
#include "desktop/VNHistoryFilter.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNHistoryView.h"
#include "desktop/VNProgressWindow.h"
#include "desktop/VNRemoteSheets.h"
#include "desktop/VNSidebar.h"
#include "desktop/VNTextCell.h"
#include "desktop/VNTheme.h"
#include "desktop/VNWorkingCopyPane.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/ToolCheck.h"
#include "handler/VNRepoHandler.h"
#include "handler/VNTask.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNDiffModel.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"
#include "platform/Preferences.h"

namespace vn::desktop {

namespace {

constexpr const char* LayoutKey = "desktopWindowLayout";

QByteArray fromBase64(const vn::Record& record, std::string_view key) {
    return QByteArray::fromBase64(QByteArray::fromStdString(record.string(key)));
}

std::string toBase64(const QByteArray& bytes) {
    return bytes.toBase64().toStdString();
}

}  // namespace

VNRepoWindow::VNRepoWindow(std::shared_ptr<VNRepoHandler> handler, std::string path,
                           QWidget* parent)
    : QMainWindow(parent), handler_(std::move(handler)), path_(std::move(path)) {
    setAttribute(Qt::WA_DeleteOnClose, false);
    QString shown = QString::fromStdString(path_);
    setWindowTitle(QFileInfo(shown).fileName() + QStringLiteral(" — Varnel"));
    setWindowFilePath(shown);
    setObjectName(QStringLiteral("repositoryWindow"));

    history_ = new VNHistoryModel(this);
    filter_ = new VNHistoryFilter(this);
    historyView_ = new VNHistoryView(this);
    historyView_->setModel(history_);
    details_ = new VNCommitDetails(handler_, path_, this);
    auto* diffView = new VNDiffView(details_);
    details_->setDiffWidget(diffView);
    details_->setDiffPresenter([diffView](std::shared_ptr<VNDiffModel> diff) {
        if (diff) {
            diffView->setDiff(std::move(diff));
        } else {
            diffView->showPlaceholder(tr("Loading…"));
        }
    });
    workingCopy_ = new VNWorkingCopyPane(handler_, path_, this);
    workingCopy_->setObjectName(QStringLiteral("workingCopyPane"));
    sidebar_ = new VNSidebar(handler_, path_, this);
    sidebar_->setObjectName(QStringLiteral("sidebar"));
    sidebar_->setMinimumWidth(160);

    // The commit pane sits under the working copy's lists.
    workingCopyPage_ = new QSplitter(Qt::Vertical, this);
    workingCopyPage_->setObjectName(QStringLiteral("workingCopyPage"));
    workingCopyPage_->addWidget(workingCopy_);
    commitPane_ = new VNCommitPane(handler_, path_, this);
    workingCopyPage_->addWidget(commitPane_);
    workingCopyPage_->setStretchFactor(0, 3);
    workingCopyPage_->setStretchFactor(1, 1);
    workingCopyPage_->setCollapsible(1, false);
    lower_ = new QStackedWidget(this);
    lower_->addWidget(details_);
    lower_->addWidget(workingCopyPage_);
    centreSplitter_ = new QSplitter(Qt::Vertical, this);
    centreSplitter_->setObjectName(QStringLiteral("centreSplitter"));
    centreSplitter_->addWidget(historyView_);
    centreSplitter_->addWidget(lower_);
    centreSplitter_->setStretchFactor(0, 3);
    centreSplitter_->setStretchFactor(1, 2);
    mainSplitter_ = new QSplitter(Qt::Horizontal, this);
    mainSplitter_->setObjectName(QStringLiteral("mainSplitter"));
    mainSplitter_->addWidget(sidebar_);
    mainSplitter_->addWidget(centreSplitter_);
    mainSplitter_->setStretchFactor(0, 0);
    mainSplitter_->setStretchFactor(1, 1);
    mainSplitter_->setSizes({220, 1000});
    // The lower half holds the file lists, the diff and the commit pane, so it gets a little more;
    // the history still shows a screenful of rows.
    centreSplitter_->setSizes({460, 540});
    setCentralWidget(mainSplitter_);
    QHeaderView* columns = historyView_->horizontalHeader();
    const int em = historyView_->fontMetrics().horizontalAdvance(QLatin1Char('M'));
    columns->resizeSection(VNHistoryModel::AuthorColumn, em * 11);
    columns->resizeSection(
        VNHistoryModel::DateColumn,
        historyView_->fontMetrics().horizontalAdvance(QStringLiteral("2000-00-00 00:00")) + em * 2);
    columns->resizeSection(
        VNHistoryModel::CommitColumn,
        historyView_->fontMetrics().horizontalAdvance(QStringLiteral("0000000000")) + em * 2);

    // The toolbar: refresh and search.
    auto* tools = addToolBar(tr("Repository"));
    tools->setObjectName(QStringLiteral("repositoryToolbar"));
    tools->setMovable(false);
    QAction* refreshAction = tools->addAction(tr("Refresh"), this, &VNRepoWindow::refresh);
    refreshAction->setShortcuts({QKeySequence::Refresh, QKeySequence(Qt::CTRL | Qt::Key_R)});
    refreshAction->setToolTip(tr("Read the history and the working copy again"));
    auto* spacer = new QWidget(tools);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    tools->addWidget(spacer);
    searchMode_ = new QComboBox(tools);
    searchMode_->addItem(tr("Message"), SearchMessage);
    searchMode_->addItem(tr("Author"), SearchAuthor);
    searchMode_->addItem(tr("Content"), SearchContent);
    searchMode_->addItem(tr("Commit"), SearchHash);
    tools->addWidget(searchMode_);
    searchField_ = new QLineEdit(tools);
    searchField_->setObjectName(QStringLiteral("searchField"));
    searchField_->setPlaceholderText(tr("Search history"));
    searchField_->setClearButtonEnabled(true);
    searchField_->setMaximumWidth(280);
    tools->addWidget(searchField_);
    connect(searchField_, &QLineEdit::returnPressed, this, [this] {
        search(searchField_->text(), static_cast<SearchMode>(searchMode_->currentData().toUInt()));
    });
    connect(searchField_, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (text.isEmpty() && searchActive_) {
            clearSearch();
        }
    });

    status_ = new QLabel(this);
    statusBar()->addWidget(status_, 1);
    buildMenus();

    connect(history_, &VNHistoryModel::rowsArrived, this, [this] {
        refreshPanes();
        updateStatus();
        if (!graphColumnSized_) {
            sizeGraphColumn();
            sizeCommitColumn();
        }
        if (!pendingSelection_.empty()) {
            selectRevision(QString::fromStdString(pendingSelection_));
        } else if (!historyView_->currentIndex().isValid() && history_->rowCount() > 0) {
            selectRow(0);
        }
    });
    connect(history_, &VNHistoryModel::loadingFinished, this, &VNRepoWindow::historyFinished);
    connect(details_, &VNCommitDetails::revisionActivated, this,
            [this](const QString& rev) { selectRevision(rev); });
    connect(sidebar_, &VNSidebar::revisionActivated, this,
            [this](const QString& rev) { showRevision(rev); });
    // Staging changes the working-copy row (it may come or go) as well as the lists.
    connect(workingCopy_, &VNWorkingCopyPane::workingCopyChanged, this, [this] {
        reloadHistory();
        sidebar_->refresh();
    });
    if (commitPane_) {
        connect(workingCopy_, &VNWorkingCopyPane::statusRefreshed, this, [this] {
            commitPane_->setStagedCount(workingCopy_->stagedModel()->rowCount());
            commitPane_->setUnstagedChanges(workingCopy_->unstagedModel()->entries());
            commitPane_->setSelectedFiles(workingCopy_->selectedUnstagedFiles());
        });
        connect(workingCopy_->unstagedList()->selectionModel(),
                &QItemSelectionModel::selectionChanged, this,
                [this] { commitPane_->setSelectedFiles(workingCopy_->selectedUnstagedFiles()); });
        connect(commitPane_, &VNCommitPane::committed, this, &VNRepoWindow::refresh);
        connect(commitPane_, &VNCommitPane::pushFinished, this, [this](int result) {
            if (result == VNProgressWindow::ResultSuccess) {
                reloadHistory();
                sidebar_->refresh();
            }
        });
    }

    restoreLayout();
    refresh();
}

VNRepoWindow::~VNRepoWindow() = default;

void VNRepoWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* close = file->addAction(tr("&Close Window"), this, &QWidget::close);
    close->setShortcut(QKeySequence::Close);
    file->addSeparator();
    QAction* quit = file->addAction(tr("&Quit"), qApp, &QApplication::closeAllWindows);
    quit->setShortcut(QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    QAction* find = edit->addAction(tr("&Find in History"), this, [this] {
        searchField_->setFocus(Qt::ShortcutFocusReason);
        searchField_->selectAll();
    });
    find->setShortcut(QKeySequence::Find);

    QMenu* view = menuBar()->addMenu(tr("&View"));
    QAction* refreshAction = view->addAction(tr("&Refresh"), this, &VNRepoWindow::refresh);
    refreshAction->setShortcut(QKeySequence::Refresh);
    view->addSeparator();
    QAction* top = view->addAction(tr("Go to &Newest"), this, [this] { selectRow(0); });
    top->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Home));
    QAction* end = view->addAction(tr("Go to &Oldest"), this, [this] {
        historyView_->setFocus();
        historyView_->goToEnd();
    });
    end->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_End));
    end->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    view->addSeparator();
    QMenu* theme = view->addMenu(tr("&Theme"));
    auto* themes = new QActionGroup(theme);
    for (VNTheme::Kind kind : {VNTheme::Kind::System, VNTheme::Kind::Light, VNTheme::Kind::Dark}) {
        QString label = kind == VNTheme::Kind::System  ? tr("&System")
                        : kind == VNTheme::Kind::Light ? tr("&Light")
                                                       : tr("&Dark");
        QAction* action = theme->addAction(label, this, [kind] { VNTheme::apply(kind); });
        action->setCheckable(true);
        action->setChecked(VNTheme::current() == kind);
        themes->addAction(action);
    }

    {
        // Mercurial pulls what Git fetches: its Pull sheet offers to do nothing more.
        bool git = std::dynamic_pointer_cast<VNRepoHandlerGit>(handler_) != nullptr;
        QMenu* repository = menuBar()->addMenu(tr("&Repository"));
        QAction* commit = repository->addAction(tr("&Commit…"), this, [this] {
            int row = history_->rowOfRevision("-1");
            if (row >= 0) {
                clearSearch();
                selectRow(row);
            }
            commitPane_->subjectField()->setFocus();
        });
        commit->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_C));
        repository->addSeparator();
        repository->addAction(tr("&Push…"), this, [this] { openSheet(PushSheet); })
            ->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P));
        repository->addAction(tr("P&ull…"), this, [this] { openSheet(PullSheet); })
            ->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L));
        if (git) {
            repository->addAction(tr("&Fetch…"), this, [this] { openSheet(FetchSheet); })
                ->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_F));
        }
    }

    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&About Varnel"), this, [this] {
        // The tools answer their versions off the GUI thread.
        runAsync<std::vector<vn::Record>>(
            this, [] { return vn::checkTools(); },
            [this](std::vector<vn::Record> tools) {
                QString text = tr("<h3>Varnel %1</h3><p>A Git and Mercurial client.</p>")
                                   .arg(QStringLiteral(VARNEL_VERSION));
                for (const vn::Record& tool : tools) {
                    std::string name = tool.string("name");
                    if (name != "git" && name != "hg") {
                        continue;
                    }
                    QString version = tool.boolean("missing")
                                          ? tr("not found")
                                          : QString::fromStdString(tool.string("version"));
                    text += QStringLiteral("<p><b>%1</b> %2<br><small>%3</small></p>")
                                .arg(QString::fromStdString(name).toHtmlEscaped(),
                                     version.toHtmlEscaped(),
                                     QString::fromStdString(tool.string("path")).toHtmlEscaped());
                }
                QMessageBox::about(this, tr("About Varnel"), text);
            });
    });
}

VNRemoteSheet* VNRepoWindow::openSheet(SheetKind kind) {
    auto git = std::dynamic_pointer_cast<VNRepoHandlerGit>(handler_);
    auto hg = std::dynamic_pointer_cast<VNRepoHandlerMercurial>(handler_);
    if (sheet_) {
        sheet_->raise();
        return sheet_;
    }
    VNRemoteSheet* sheet = nullptr;
    if (git) {
        switch (kind) {
            case PushSheet:
                sheet = new VNPushSheet(git, path_, this);
                break;
            case PullSheet:
                sheet = new VNPullSheet(git, path_, this);
                break;
            case FetchSheet:
                sheet = new VNFetchSheet(git, path_, this);
                break;
        }
    } else if (hg && kind == PushSheet) {
        sheet = new VNMercurialPushSheet(hg, path_, this);
    } else if (hg && kind == PullSheet) {
        sheet = new VNMercurialPullSheet(hg, path_, this);
    }
    if (!sheet) {
        return nullptr;
    }
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &VNRemoteSheet::refreshRequested, this, [this](bool workingCopy, bool) {
        // New or moved references show in the history and the sidebar.
        reloadHistory();
        sidebar_->refresh();
        if (workingCopy) {
            workingCopy_->refresh();
        }
    });
    connect(sheet, &VNRemoteSheet::remoteStatusCheckRequested, sidebar_, &VNSidebar::refresh);
    connect(sheet, &QDialog::finished, this, [this](int result) {
        bool merging =
            result == VNPullSheet::ConflictsResult || result == VNPullSheet::MergeToCommitResult;
        if (merging && commitPane_) {
            commitPane_->loadMergeMessage();
        }
        if (result == VNPullSheet::ConflictsResult) {
            statusBar()->showMessage(
                tr("The pull stopped at conflicts: resolve them, then commit or continue."));
        } else if (result == VNPullSheet::MergeToCommitResult) {
            statusBar()->showMessage(
                tr("The pull merged without committing: the merge waits in "
                   "the staged changes for its commit."));
        }
    });
    connect(sheet, &QDialog::finished, sheet, &QObject::deleteLater);
    sheet_ = sheet;
    sheet->load();
    sheet->open();
    return sheet;
}

void VNRepoWindow::refresh() {
    reloadHistory();
    // The panes read once the first rows are in: on two cores their git runs would otherwise
    // slow the log the window waits for most.
    panesPending_ = true;
}

void VNRepoWindow::refreshPanes() {
    if (!panesPending_) {
        return;
    }
    panesPending_ = false;
    workingCopy_->refresh();
    sidebar_->refresh();
}

void VNRepoWindow::reloadHistory() {
    graphColumnSized_ = false;
    QModelIndex current = historyView_->currentIndex();
    if (current.isValid() && pendingSelection_.empty()) {
        pendingSelection_ = current.data(VNHistoryModel::RevisionRole).toString().toStdString();
    }
    historyView_->setMoreRowsComing(true);
    history_->load(handler_, path_);
    updateStatus();
}

void VNRepoWindow::showRevision(const QString& name) {
    if (selectRevision(name)) {
        return;
    }
    // A name no row carries as a label (a stash, a submodule's commit): git says which commit.
    auto handler = handler_;
    std::string path = path_;
    std::string wanted = name.toStdString();
    runAsync<std::optional<std::string>>(
        this, [handler, path, wanted] { return handler->getCommitSHA(path, wanted); },
        [this, name](std::optional<std::string> sha) {
            if (!sha || !selectRevision(QString::fromStdString(*sha))) {
                statusBar()->showMessage(tr("%1 is not in the history shown.").arg(name), 5000);
            }
        });
}

void VNRepoWindow::historyFinished(bool ok) {
    refreshPanes();
    historyView_->setMoreRowsComing(false);
    if (!pendingSelection_.empty()) {
        // The row that was chosen before a refresh is gone: the newest takes its place.
        pendingSelection_.clear();
        if (!historyView_->currentIndex().isValid()) {
            selectRow(0);
        }
    }
    updateStatus();
    Q_EMIT historyLoaded(ok);
}

void VNRepoWindow::sizeGraphColumn() {
    uint32_t lanes = std::max<uint32_t>(history_->laneCount(), 1);
    int width = static_cast<int>(VNGraphCell::LaneWidth * std::min<uint32_t>(lanes, 12) +
                                 VNGraphCell::LaneOffset * 2);
    QHeaderView* header = historyView_->horizontalHeader();
    if (!property("graphWidthRestored").toBool()) {
        header->resizeSection(VNHistoryModel::GraphColumn, std::max(width, 40));
    }
    graphColumnSized_ = history_->rowCount() > 50;
}

void VNRepoWindow::sizeCommitColumn() {
    // Mercurial shows "rev:hash" and its numbers grow down the history: the newest rows hold the
    // widest. The column only grows, so that a width the user chose stays when it is enough.
    const int rows = std::min(history_->rowCount(), 200);
    const QFontMetrics metrics = historyView_->fontMetrics();
    int widest = 0;
    for (int i = 0; i < rows; ++i) {
        widest = std::max(
            widest,
            metrics.horizontalAdvance(
                history_->index(i, VNHistoryModel::CommitColumn).data(Qt::DisplayRole).toString()));
    }
    const int wanted =
        widest + 2 * VNTextCell::Margin + metrics.horizontalAdvance(QLatin1Char('M'));
    QHeaderView* header = historyView_->horizontalHeader();
    if (widest > 0 && header->sectionSize(VNHistoryModel::CommitColumn) < wanted) {
        header->resizeSection(VNHistoryModel::CommitColumn, wanted);
    }
}

void VNRepoWindow::updateStatus() {
    QString text;
    if (searchActive_) {
        text = tr("%n matching commits", nullptr, historyView_->model()->rowCount());
    } else {
        text = tr("%n rows", nullptr, history_->rowCount());
        if (history_->isLoading()) {
            text += tr(" (loading…)");
        } else if (!history_->loadSucceeded()) {
            text += tr(" — the history could not be read completely");
        }
    }
    status_->setText(text);
}

void VNRepoWindow::selectRow(int row) {
    QAbstractItemModel* model = historyView_->model();
    if (!model || row < 0 || row >= model->rowCount()) {
        return;
    }
    QModelIndex index = model->index(row, VNHistoryModel::DescriptionColumn);
    historyView_->setCurrentIndex(index);
    historyView_->scrollTo(
        index, row == 0 ? QAbstractItemView::EnsureVisible : QAbstractItemView::PositionAtCenter);
}

bool VNRepoWindow::selectRevision(const QString& revision) {
    std::string wanted = revision.toStdString();
    int found = history_->rowOfRevision(wanted);
    if (found < 0 && wanted.size() >= 4) {
        // A short hash: the first row whose hash starts with it.
        for (int i = 0; i < history_->rowCount(); ++i) {
            const VNHistoryRow& row = history_->row(i);
            if ((row.node.empty() ? row.rev : row.node).rfind(wanted, 0) == 0) {
                found = i;
                break;
            }
        }
    }
    if (found < 0) {
        for (int i = 0; i < history_->rowCount() && found < 0; ++i) {
            const auto& description = history_->row(i).description;
            if (!description) {
                continue;
            }
            for (const auto& label : description->labels()) {
                if (label && label->label() == wanted) {
                    found = i;
                    break;
                }
            }
        }
    }
    if (found < 0) {
        pendingSelection_ = history_->isLoading() ? wanted : std::string();
        return false;
    }
    pendingSelection_.clear();
    if (searchActive_) {
        clearSearch();
    }
    selectRow(found);
    return true;
}

void VNRepoWindow::currentRowChanged() {
    QModelIndex current = historyView_->currentIndex();
    if (!current.isValid()) {
        details_->clear();
        return;
    }
    std::string rev = current.data(VNHistoryModel::RevisionRole).toString().toStdString();
    if (rev == "-1") {
        lower_->setCurrentWidget(workingCopyPage_);
        return;
    }
    lower_->setCurrentWidget(details_);
    if (rev != details_->revision()) {
        details_->showRevision(rev);
    }
}

void VNRepoWindow::search(const QString& text, SearchMode mode) {
    if (text.trimmed().isEmpty()) {
        clearSearch();
        return;
    }
    uint64_t generation = ++searchGeneration_;
    auto handler = handler_;
    std::string path = path_;
    std::string pattern = text.trimmed().toStdString();
    status_->setText(tr("Searching…"));
    runAsync<std::unordered_set<std::string>>(
        this,
        [handler, path, pattern, mode] {
            std::unordered_set<std::string> hits;
            auto from = vn::Value::Date{};
            auto to = std::chrono::system_clock::now() + std::chrono::hours(24 * 365);
            auto task = handler->searchLogTask(path, pattern, mode, from, to);
            if (!task || !task->run()) {
                return hits;
            }

            const std::string& output = task->output();
            for (std::size_t start = 0; start < output.size();) {
                std::size_t end = output.find('\n', start);
                if (end == std::string::npos) {
                    end = output.size();
                }
                if (auto row = handler->parseLogLine(output.substr(start, end - start))) {
                    hits.insert(row->string("rev"));
                }
                start = end + 1;
            }
            return hits;
        },
        [this, generation](std::unordered_set<std::string> hits) {
            if (generation != searchGeneration_) {
                return;
            }
            int count = static_cast<int>(hits.size());
            if (!searchActive_) {
                filter_->setSourceModel(history_);
                historyView_->setModel(filter_);
                connect(historyView_->selectionModel(), &QItemSelectionModel::currentRowChanged,
                        this, &VNRepoWindow::currentRowChanged);
                historyView_->setColumnHidden(VNHistoryModel::GraphColumn, true);
            }
            searchActive_ = true;
            filter_->setHits(std::move(hits));
            updateStatus();
            if (filter_->rowCount() > 0) {
                selectRow(0);
            }
            Q_EMIT searchFinished(count);
        });
}

void VNRepoWindow::clearSearch() {
    ++searchGeneration_;
    if (!searchActive_) {
        return;
    }
    searchActive_ = false;
    QString current = historyView_->currentIndex().data(VNHistoryModel::RevisionRole).toString();
    historyView_->setModel(history_);
    connect(historyView_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &VNRepoWindow::currentRowChanged);
    historyView_->setColumnHidden(VNHistoryModel::GraphColumn, false);
    filter_->setSourceModel(nullptr);
    filter_->clearHits();
    if (!current.isEmpty()) {
        selectRevision(current);
    }
    updateStatus();
}

void VNRepoWindow::restoreLayout() {
    connect(historyView_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &VNRepoWindow::currentRowChanged);
    vn::Value stored = vn::Preferences::standard().valueForKey(LayoutKey);
    const vn::Record* layout = stored.record();
    if (!layout) {
        resize(1200, 800);
        return;
    }
    if (!restoreGeometry(fromBase64(*layout, "geometry"))) {
        resize(1200, 800);
    }
    restoreState(fromBase64(*layout, "state"));
    mainSplitter_->restoreState(fromBase64(*layout, "mainSplitter"));
    centreSplitter_->restoreState(fromBase64(*layout, "centreSplitter"));
    details_->splitter()->restoreState(fromBase64(*layout, "detailsSplitter"));
    if (const vn::Value::Array* widths = (*layout)["historyColumns"].array()) {
        QHeaderView* header = historyView_->horizontalHeader();
        for (std::size_t i = 0; i < widths->size() && i < VNHistoryModel::ColumnCount; ++i) {
            int width = static_cast<int>((*widths)[i].toInt());
            if (width > 0 && i != VNHistoryModel::DescriptionColumn) {
                header->resizeSection(static_cast<int>(i), width);
            }
        }
        setProperty("graphWidthRestored", true);
    }
}

void VNRepoWindow::saveLayout() const {
    vn::Record layout;
    layout.set("geometry", toBase64(saveGeometry()));
    layout.set("state", toBase64(saveState()));
    layout.set("mainSplitter", toBase64(mainSplitter_->saveState()));
    layout.set("centreSplitter", toBase64(centreSplitter_->saveState()));
    layout.set("detailsSplitter", toBase64(details_->splitter()->saveState()));
    vn::Value::Array widths;
    for (int i = 0; i < VNHistoryModel::ColumnCount; ++i) {
        widths.emplace_back(historyView_->horizontalHeader()->sectionSize(i));
    }
    layout.set("historyColumns", std::move(widths));
    vn::Preferences::standard().set(LayoutKey, std::move(layout));
}

void VNRepoWindow::closeEvent(QCloseEvent* event) {
    saveLayout();
    history_->cancel();
    QMainWindow::closeEvent(event);
}

}  // namespace vn::desktop
