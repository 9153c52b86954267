#include "desktop/VNWorkingCopyPane.h"

#include <QAction>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QToolBar>
#include <QVBoxLayout>

#include <filesystem>
#include <fstream>
#include <optional>
#include <set>

#include "desktop/VNAsync.h"
#include "desktop/VNDiffLineModel.h"
#include "desktop/VNDiffView.h"
#include "desktop/VNFileListModel.h"
#include "handler/VNTaskList.h"
#include "model/VNDiffHunkModel.h"
#include "model/VNDiffModel.h"
#include "model/VNFileStatusEntity.h"

namespace {

constexpr int DiffContext = 3;
// The diff views parse this many files at most.
constexpr uint64_t DiffFileLimit = 20;
// Untracked files larger than this get no diff of their own.
constexpr std::uintmax_t UntrackedDiffLimit = 64u << 20;

std::string recordPath(const vn::Record& record) {
    std::string path = record.string(VNFileStatusKeyPath);
    if (!path.empty()) {
        path.append("/");
    }
    return path.append(record.string(VNFileStatusKeyFilename));
}

// The diff text of an untracked file, as git would show it once the file was added: git has
// nothing to compare it with until then.
std::string untrackedFileDiff(const std::string& root, const std::string& file) {
    std::filesystem::path full = std::filesystem::path(root) / file;
    std::string header = "diff --git a/" + file + " b/" + file + "\nnew file mode 100644\n";
    std::error_code error;
    std::uintmax_t size = std::filesystem::file_size(full, error);
    if (error || size > UntrackedDiffLimit) {
        return {};
    }
    std::ifstream in(full, std::ios::binary);
    std::string content(static_cast<std::size_t>(size), '\0');
    if (!in.read(content.data(), static_cast<std::streamsize>(size))) {
        return {};
    }
    if (content.find('\0', 0) < std::min<std::size_t>(content.size(), 8000)) {
        return header + "Binary files /dev/null and b/" + file + " differ\n";
    }
    if (content.empty()) {
        return header;
    }
    std::size_t lines = 0;
    std::string body;
    body.reserve(content.size() + content.size() / 16 + 64);
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t end = content.find('\n', start);
        bool last = end == std::string::npos;
        if (last) {
            end = content.size();
        }
        body.append("+").append(content, start, end - start).append("\n");
        ++lines;
        if (last) {
            body.append("\\ No newline at end of file\n");
        }
        start = end + 1;
    }
    return header + "--- /dev/null\n+++ b/" + file + "\n@@ -0,0 +1," + std::to_string(lines) +
           " @@\n" + body;
}

}  // namespace

VNWorkingCopyPane::VNWorkingCopyPane(std::shared_ptr<VNRepoHandler> handler, std::string path,
                                     QWidget* parent)
    : QWidget(parent), handler_(std::move(handler)), path_(std::move(path)) {
    stagedModel_ = new VNFileListModel(this);
    unstagedModel_ = new VNFileListModel(this);

    auto makeList = [this](VNFileListModel* model) {
        auto* list = new QListView(this);
        list->setModel(model);
        list->setSelectionMode(QAbstractItemView::ExtendedSelection);
        list->setUniformItemSizes(true);
        list->setEditTriggers(QAbstractItemView::NoEditTriggers);
        list->setIconSize(QSize(16, 16));
        return list;
    };
    stagedList_ = makeList(stagedModel_);
    unstagedList_ = makeList(unstagedModel_);
    stagedList_->setObjectName(QStringLiteral("stagedFiles"));
    unstagedList_->setObjectName(QStringLiteral("unstagedFiles"));

    unstageButton_ = new QPushButton(tr("Unstage"), this);
    stageButton_ = new QPushButton(tr("Stage"), this);
    discardButton_ = new QPushButton(tr("Discard\u2026"), this);
    unstageButton_->setToolTip(tr("Take the chosen files' changes out of the next commit"));
    stageButton_->setToolTip(tr("Put the chosen files' changes into the next commit"));
    discardButton_->setToolTip(tr("Throw away the chosen files' unstaged changes"));

    auto makeSide = [this](const QString& title, QListView* list,
                           std::initializer_list<QPushButton*> buttons) {
        auto* box = new QWidget(this);
        auto* layout = new QVBoxLayout(box);
        layout->setContentsMargins(4, 4, 4, 4);
        auto* label = new QLabel(title, box);
        QFont bold = label->font();
        bold.setBold(true);
        label->setFont(bold);
        layout->addWidget(label);
        layout->addWidget(list, 1);
        auto* row = new QHBoxLayout;
        row->addStretch(1);
        for (QPushButton* button : buttons) {
            row->addWidget(button);
        }
        layout->addLayout(row);
        return box;
    };
    staging_ = handler_->hasCommitStaging();
    auto* lists = new QSplitter(Qt::Horizontal, this);
    QWidget* stagedSide = makeSide(tr("Staged"), stagedList_, {unstageButton_});
    lists->addWidget(stagedSide);
    lists->addWidget(makeSide(staging_ ? tr("Unstaged") : tr("Changed"), unstagedList_,
                              {discardButton_, stageButton_}));
    if (!staging_) {
        // Without an index every change goes into the next commit: one list, nothing to stage.
        stagedSide->hide();
        stageButton_->hide();
        discardButton_->setToolTip(tr("Throw away the chosen files' changes"));
    }

    diffView_ = new VNDiffView(this);
    hunkBar_ = new QToolBar(this);
    hunkBar_->setObjectName(QStringLiteral("hunkBar"));
    hunkBar_->setToolButtonStyle(Qt::ToolButtonTextOnly);
    auto* diffBox = new QWidget(this);
    auto* diffLayout = new QVBoxLayout(diffBox);
    diffLayout->setContentsMargins(0, 0, 0, 0);
    diffLayout->setSpacing(0);
    diffLayout->addWidget(hunkBar_);
    diffLayout->addWidget(diffView_, 1);
    auto* split = new QSplitter(Qt::Vertical, this);
    split->addWidget(lists);
    split->addWidget(diffBox);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 2);
    // A third for the lists, the rest for the diff, where hunks and lines are chosen.
    split->setSizes({1000, 2000});

    errorLabel_ = new QLabel(this);
    errorLabel_->setWordWrap(true);
    errorLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    errorLabel_->setForegroundRole(QPalette::BrightText);
    errorLabel_->setBackgroundRole(QPalette::Dark);
    errorLabel_->setAutoFillBackground(true);
    errorLabel_->setMargin(4);
    errorLabel_->hide();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(errorLabel_);
    layout->addWidget(split, 1);

    connect(stagedList_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { listSelectionChanged(Side::Staged); });
    connect(unstagedList_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { listSelectionChanged(Side::Unstaged); });
    connect(stageButton_, &QPushButton::clicked, this, &VNWorkingCopyPane::stageSelected);
    connect(unstageButton_, &QPushButton::clicked, this, &VNWorkingCopyPane::unstageSelected);
    connect(discardButton_, &QPushButton::clicked, this, [this] { discardSelected(); });
    connect(stagedList_, &QListView::doubleClicked, this, &VNWorkingCopyPane::unstageSelected);
    connect(unstagedList_, &QListView::doubleClicked, this, [this] {
        if (staging_) {
            stageSelected();
        }
    });
    createHunkActions();
    connect(diffView_, &VNDiffView::selectionChanged, this, &VNWorkingCopyPane::updateHunkActions);
    connect(diffView_->listView()->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &VNWorkingCopyPane::updateHunkActions);
    updateButtons();
}

VNWorkingCopyPane::~VNWorkingCopyPane() = default;

QString VNWorkingCopyPane::errorText() const {
    return errorLabel_->text();
}

void VNWorkingCopyPane::showErrors() {
    QString text = operationError_;
    if (!statusError_.isEmpty()) {
        text += (text.isEmpty() ? QString() : QStringLiteral("\n")) + statusError_;
    }
    errorLabel_->setText(text);
    errorLabel_->setVisible(!text.isEmpty());
}

void VNWorkingCopyPane::refresh() {
    uint64_t generation = ++statusGeneration_;
    auto handler = handler_;
    std::string path = path_;
    vn::desktop::runAsync<VNWorkingCopyStatus>(
        this,
        [handler, path] { return handler->fileStatusAndSummary(path, VNFileStatusDefaultMask); },
        [this, generation](VNWorkingCopyStatus status) {
            if (generation != statusGeneration_) {
                return;
            }
            applyStatus(status);
        });
}

void VNWorkingCopyPane::applyStatus(const VNWorkingCopyStatus& status) {
    statusError_ =
        status.summary.empty()
            ? tr("The status of %1 could not be read.").arg(QString::fromStdString(path_))
            : QString();
    showErrors();
    std::vector<VNFileListModel::Entry> staged, unstaged;
    for (const vn::Record& record : status.files) {
        uint64_t summary = record[VNFileStatusKeyStatus].toUInt();
        uint64_t index = record[VNFileStatusKeyIndexStatus].toUInt();
        uint64_t tree = record[VNFileStatusKeyTreeStatus].toUInt();
        std::string path = recordPath(record);
        if (summary == VNFileStatusConflicted) {
            unstaged.push_back({path, {}, VNFileStatusConflicted});
            continue;
        }
        if (!staging_) {
            unstaged.push_back({path, record.string(VNFileStatusKeyPreviousName), summary});
            continue;
        }
        if (index != VNFileStatusClean && index != VNFileStatusUnknown) {
            staged.push_back({path, record.string(VNFileStatusKeyPreviousName), index});
        }
        if (tree != VNFileStatusClean) {
            unstaged.push_back({path, {}, tree});
        }
    }
    // The chosen files stay chosen where they are still listed.
    auto restore = [](QListView* list, VNFileListModel* model,
                      std::vector<VNFileListModel::Entry> entries) {
        std::set<std::string> chosen;
        for (const QModelIndex& index : list->selectionModel()->selectedIndexes()) {
            chosen.insert(model->entry(index.row()).path);
        }
        QString current = list->currentIndex().isValid()
                              ? list->currentIndex().data(VNFileListModel::PathRole).toString()
                              : QString();
        const QSignalBlocker blocker(list->selectionModel());
        model->setEntries(std::move(entries));
        QItemSelection selection;
        for (const std::string& path : chosen) {
            int row = model->rowOfPath(path);
            if (row >= 0) {
                selection.select(model->index(row), model->index(row));
            }
        }
        list->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
        int currentRow = model->rowOfPath(current.toStdString());
        if (currentRow >= 0) {
            list->selectionModel()->setCurrentIndex(model->index(currentRow),
                                                    QItemSelectionModel::NoUpdate);
        }
    };
    restore(stagedList_, stagedModel_, std::move(staged));
    restore(unstagedList_, unstagedModel_, std::move(unstaged));
    updateButtons();
    showDiff();
    emit statusRefreshed();
}

void VNWorkingCopyPane::listSelectionChanged(Side side) {
    QListView* other = side == Side::Staged ? unstagedList_ : stagedList_;
    QListView* mine = side == Side::Staged ? stagedList_ : unstagedList_;
    // One list's choice at a time: the diff shows one side.
    if (mine->selectionModel()->hasSelection()) {
        const QSignalBlocker blocker(other->selectionModel());
        other->selectionModel()->clearSelection();
        diffSide_ = side;
    }
    updateButtons();
    showDiff();
}

std::vector<std::string> VNWorkingCopyPane::selectedPaths(Side side, bool withPreviousNames) const {
    QListView* list = side == Side::Staged ? stagedList_ : unstagedList_;
    VNFileListModel* model = side == Side::Staged ? stagedModel_ : unstagedModel_;
    QModelIndexList rows = list->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end());
    std::vector<std::string> paths;
    for (const QModelIndex& index : rows) {
        const auto& entry = model->entry(index.row());
        paths.push_back(entry.path);
        if (withPreviousNames && !entry.previousPath.empty()) {
            paths.push_back(entry.previousPath);
        }
    }
    return paths;
}

std::vector<std::string> VNWorkingCopyPane::selectedStagedFiles() const {
    return selectedPaths(Side::Staged, false);
}

std::vector<std::string> VNWorkingCopyPane::selectedUnstagedFiles() const {
    return selectedPaths(Side::Unstaged, false);
}

void VNWorkingCopyPane::updateButtons() {
    bool idle = !operationRunning_;
    bool staged = stagedList_->selectionModel()->hasSelection();
    bool unstaged = unstagedList_->selectionModel()->hasSelection();
    unstageButton_->setEnabled(idle && staged);
    stageButton_->setEnabled(idle && unstaged && staging_);
    discardButton_->setEnabled(idle && unstaged);
    updateHunkActions();
}

void VNWorkingCopyPane::showDiff() {
    uint64_t generation = ++diffGeneration_;
    Side side = diffSide_;
    std::vector<std::string> files;
    std::vector<std::string> untracked;
    QListView* list = side == Side::Staged ? stagedList_ : unstagedList_;
    VNFileListModel* model = side == Side::Staged ? stagedModel_ : unstagedModel_;
    QModelIndexList rows = list->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end());
    for (const QModelIndex& index : rows) {
        const auto& entry = model->entry(index.row());
        if (side == Side::Unstaged && entry.status == VNFileStatusUnknown) {
            untracked.push_back(entry.path);
            continue;
        }
        files.push_back(entry.path);
        // With both names the diff shows a rename as one.
        if (!entry.previousPath.empty()) {
            files.push_back(entry.previousPath);
        }
    }
    if (files.empty() && untracked.empty()) {
        diffView_->clear();
        emit diffShown();
        return;
    }
    auto handler = handler_;
    std::string path = path_;
    using Result = std::shared_ptr<VNDiffModel>;
    vn::desktop::runAsync<Result>(
        this,
        [handler, path, side, files, untracked]() -> Result {
            std::string text;
            if (!files.empty()) {
                auto task = side == Side::Staged
                                ? handler->fileDiffAgainstBaseTask(path, files, std::string(), 0,
                                                                   DiffContext)
                                : handler->fileDiffAgainstBaseTask(path, files, 0, DiffContext);
                if (!task || !task->run()) {
                    return nullptr;
                }
                text = task->output();
            }
            for (const std::string& file : untracked) {
                text += untrackedFileDiff(path, file);
            }
            auto diff = std::make_shared<VNDiffModel>(DiffFileLimit);
            handler->parseDiffToModel(text, diff->fileEntries(), DiffFileLimit);
            return diff;
        },
        [this, generation](Result diff) {
            if (generation != diffGeneration_) {
                return;
            }
            if (!diff) {
                diffView_->showPlaceholder(tr("The diff could not be read."));
            } else {
                diffView_->setDiff(std::move(diff));
            }
            focusPendingHunk();
            updateHunkActions();
            emit diffShown();
        });
}

void VNWorkingCopyPane::runFileOperation(std::function<VNTaskList()> tasks,
                                         std::vector<std::string> deleteFiles) {
    operationRunning_ = true;
    operationError_.clear();
    showErrors();
    updateButtons();
    std::string path = path_;
    vn::desktop::runAsync<std::string>(
        this,
        [tasks = std::move(tasks), deleteFiles = std::move(deleteFiles), path]() -> std::string {
            std::string failure;
            if (auto failed = runTasksUntilFailure(tasks())) {
                failure = failed->errorOutput().empty()
                              ? "the command exited with code " + std::to_string(failed->exitCode())
                              : failed->errorOutput();
            }
            for (const std::string& file : deleteFiles) {
                std::error_code error;
                std::filesystem::path full = std::filesystem::path(path) / file;
                // Only files: an untracked folder is never listed, and never removed whole.
                if (std::filesystem::is_regular_file(std::filesystem::symlink_status(full)) ||
                    std::filesystem::is_symlink(std::filesystem::symlink_status(full))) {
                    if (!std::filesystem::remove(full, error) && error) {
                        failure += file + ": " + error.message() + "\n";
                    }
                }
            }
            return failure;
        },
        [this](std::string failure) {
            operationRunning_ = false;
            while (!failure.empty() && (failure.back() == '\n' || failure.back() == ' ')) {
                failure.pop_back();
            }
            operationError_ = QString::fromStdString(failure);
            showErrors();
            updateButtons();
            refresh();
            emit workingCopyChanged();
        });
}

void VNWorkingCopyPane::stageSelected() {
    if (operationRunning_ || !staging_) {
        return;
    }
    // Files gone from the disk are staged as removals, the others as they are.
    std::vector<std::string> present, missing;
    for (const QModelIndex& index : unstagedList_->selectionModel()->selectedRows()) {
        const auto& entry = unstagedModel_->entry(index.row());
        (entry.status == VNFileStatusMissing ? missing : present).push_back(entry.path);
    }
    if (present.empty() && missing.empty()) {
        return;
    }
    auto handler = handler_;
    std::string path = path_;
    runFileOperation(
        [handler, path, present, missing] {
            VNTaskList tasks = handler->addTasks(path, present);
            VNTaskList removals = handler->removeTasks(path, missing);
            tasks.insert(tasks.end(), removals.begin(), removals.end());
            return tasks;
        },
        {});
}

void VNWorkingCopyPane::unstageSelected() {
    std::vector<std::string> files = selectedPaths(Side::Staged, true);
    if (files.empty() || operationRunning_) {
        return;
    }
    auto handler = handler_;
    std::string path = path_;
    runFileOperation([handler, path, files] { return handler->unstageTasks(path, files); }, {});
}

bool VNWorkingCopyPane::discardSelected() {
    if (operationRunning_) {
        return false;
    }
    std::vector<std::string> tracked, untracked;
    QModelIndexList rows = unstagedList_->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end());
    for (const QModelIndex& index : rows) {
        const auto& entry = unstagedModel_->entry(index.row());
        (entry.status == VNFileStatusUnknown ? untracked : tracked).push_back(entry.path);
        // A rename is undone whole: the old name comes back as the new one goes.
        if (!staging_ && !entry.previousPath.empty()) {
            tracked.push_back(entry.previousPath);
        }
    }
    if (tracked.empty() && untracked.empty()) {
        return false;
    }
    QString text;
    std::size_t count = tracked.size() + untracked.size();
    QString names;
    std::size_t shown = 0;
    for (const auto* group : {&tracked, &untracked}) {
        for (const std::string& file : *group) {
            if (shown++ < 10) {
                names += QStringLiteral("\n  ") + QString::fromStdString(file);
            }
        }
    }
    if (count > 10) {
        names += QStringLiteral("\n  ") + tr("and %1 more").arg(count - 10);
    }
    if (!tracked.empty() && !staging_) {
        text = tr("The changes of %n file(s) will be lost.", nullptr,
                  static_cast<int>(tracked.size()));
    } else if (!tracked.empty()) {
        text = tr("The unstaged changes of %n file(s) will be lost. Staged changes stay.", nullptr,
                  static_cast<int>(tracked.size()));
    }
    if (!untracked.empty()) {
        if (!text.isEmpty()) {
            text += QStringLiteral("\n");
        }
        text += tr("%n untracked file(s) will be deleted.", nullptr,
                   static_cast<int>(untracked.size()));
    }
    QMessageBox box(QMessageBox::Warning, tr("Discard changes?"),
                    text + QStringLiteral("\n") + names, QMessageBox::Cancel, this);
    QPushButton* discard = box.addButton(tr("Discard"), QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.setObjectName(QStringLiteral("discardConfirmation"));
    box.exec();
    if (box.clickedButton() != discard) {
        return false;
    }
    auto handler = handler_;
    std::string path = path_;
    runFileOperation(
        [handler, path, tracked]() -> VNTaskList {
            if (tracked.empty()) {
                return {};
            }
            return handler->revertTasks(path, tracked, 0, 0);
        },
        std::move(untracked));
    return true;
}

namespace {

using Action = VNHunkActions::Action;

// A changed line of the diff as the person saw it. Acting on a part of a file changes the line
// numbers only after that part, on the side it changes, so a line shown before it is found
// again in a fresh diff by its prefix, its number on the side that names it (old for removed
// lines, new for added ones) and its text.
struct LineKey {
    char prefix = '+';
    int64_t number = 0;
    std::string text;
    auto operator<=>(const LineKey&) const = default;
};

std::optional<LineKey> keyOf(char prefix, int64_t before, int64_t after, std::string_view text) {
    if (prefix == '-') {
        return LineKey{prefix, before, std::string(text)};
    }
    if (prefix == '+') {
        return LineKey{prefix, after, std::string(text)};
    }
    return std::nullopt;
}

struct FileChoice {
    std::string file;
    std::string previousFile;
    bool untracked = false;
    // Where the file's first chosen hunk was in the diff shown, for the focus afterwards.
    std::size_t firstHunk = 0;
    std::set<LineKey> lines;
};

struct HunkJob {
    Action hunkAction = Action::StageHunk;
    Action lineAction = Action::StageLines;
    bool wholeHunks = false;
    bool staged = false;
    std::vector<FileChoice> files;
};

struct HunkJobResult {
    bool applied = false;
    std::string error;
};

Action lineActionFor(Action action) {
    switch (action) {
        case Action::StageHunk:
            return Action::StageLines;
        case Action::UnstageHunk:
            return Action::UnstageLines;
        case Action::DiscardHunk:
            return Action::DiscardLines;
        default:
            return action;
    }
}

Action hunkActionFor(Action action) {
    switch (action) {
        case Action::StageLines:
            return Action::StageHunk;
        case Action::UnstageLines:
            return Action::UnstageHunk;
        case Action::DiscardLines:
            return Action::DiscardHunk;
        default:
            return action;
    }
}

std::shared_ptr<VNDiffFileModel> freshDiff(VNRepoHandler& handler, const std::string& root,
                                           const FileChoice& choice, bool staged,
                                           std::string& error) {
    std::string text;
    if (choice.untracked) {
        text = untrackedFileDiff(root, choice.file);
    } else {
        std::vector<std::string> files{choice.file};
        if (!choice.previousFile.empty()) {
            files.push_back(choice.previousFile);
        }
        auto task =
            staged ? handler.fileDiffAgainstBaseTask(root, files, std::string(), 0, DiffContext)
                   : handler.fileDiffAgainstBaseTask(root, files, 0, DiffContext);
        if (!task || !task->run()) {
            error = task ? task->errorOutput() : "the diff could not be read";
            return nullptr;
        }
        text = task->output();
    }
    VNDiffFileList parsed;
    handler.parseDiffToModel(text, parsed, 1);
    if (parsed.empty()) {
        return nullptr;
    }
    if (choice.untracked) {
        parsed.front()->setChangeType(VNDiffFileModel::Untracked);
    }
    return parsed.front();
}

// The last run of chosen changed lines in the file: its hunk and rows. A run ends at a changed
// line that was not chosen; context between chosen lines stays context.
struct Run {
    std::shared_ptr<VNDiffHunkModel> hunk;
    vn::HunkLineRange range;
    std::vector<LineKey> keys;
    bool wholeHunk = false;
};

std::optional<Run> lastRun(const VNDiffFileModel& file, const std::set<LineKey>& chosen) {
    const auto& hunks = file.hunks();
    for (auto h = hunks.rbegin(); h != hunks.rend(); ++h) {
        const VNDiffHunkModel& hunk = **h;
        std::optional<Run> run;
        std::size_t changed = 0;
        bool open = false;
        for (std::size_t i = 0; i < hunk.lineCount(); ++i) {
            VNDiffHunkModel::LineView line = hunk.lineAt(i);
            char prefix = line.prefix.empty() ? ' ' : line.prefix.front();
            std::optional<LineKey> key =
                keyOf(prefix, line.beforeLineNumber, line.afterLineNumber, line.line);
            if (!key) {
                continue;
            }
            ++changed;
            if (!chosen.contains(*key)) {
                open = false;
                continue;
            }
            if (!open) {
                run = Run{*h, {i, 0}, {}, false};
                open = true;
            }
            run->range.length = i - run->range.location + 1;
            run->keys.push_back(*key);
        }
        if (run) {
            run->wholeHunk = run->keys.size() == changed;
            return run;
        }
    }
    return std::nullopt;
}

// Applies the chosen lines of each file, last run first so that the runs before keep their
// line numbers, reading the file's diff afresh before each run. Stops at the first failure.
HunkJobResult runHunkJob(VNRepoHandler& handler, const std::string& root,
                         std::shared_ptr<VNRepoHandler> shared, const HunkJob& job) {
    HunkJobResult result;
    VNHunkActions::Context context;
    context.repositoryPath = root;
    context.handler = std::dynamic_pointer_cast<VNRepoHandlerBase>(std::move(shared));
    context.confirmDiscard = false;  // asked on the GUI thread already
    bool anyFound = false;
    for (const FileChoice& choice : job.files) {
        std::set<LineKey> remaining = choice.lines;
        while (!remaining.empty()) {
            std::string error;
            std::shared_ptr<VNDiffFileModel> file =
                freshDiff(handler, root, choice, job.staged, error);
            if (!error.empty()) {
                result.error = error;
                return result;
            }
            std::optional<Run> run = file ? lastRun(*file, remaining) : std::nullopt;
            if (!run) {
                break;
            }
            anyFound = true;
            for (const LineKey& key : run->keys) {
                remaining.erase(key);
            }
            Action action = (job.wholeHunks && run->wholeHunk) || choice.untracked ? job.hunkAction
                                                                                   : job.lineAction;
            VNHunkActions::Outcome outcome =
                VNHunkActions::perform(action, context, *file, *run->hunk, run->range);
            switch (outcome.state) {
                case VNHunkActions::State::Applied:
                    result.applied = true;
                    break;
                case VNHunkActions::State::NothingSelected:
                case VNHunkActions::State::Cancelled:
                    break;
                case VNHunkActions::State::Refused:
                    result.error =
                        "git refused the patch for " + choice.file + ":\n" + outcome.message;
                    if (!outcome.keptPatchFile.empty()) {
                        result.error += "\nThe patch is kept in " + outcome.keptPatchFile;
                    }
                    return result;
                case VNHunkActions::State::NotPossible:
                    result.error = outcome.message;
                    return result;
            }
            if (!outcome.wholeFileSummary.empty()) {
                break;
            }
        }
    }
    if (!anyFound) {
        result.error =
            "The diff changed since it was shown; nothing was done. Choose the lines "
            "again.";
    }
    return result;
}

}  // namespace

void VNWorkingCopyPane::createHunkActions() {
    struct ActionEntry {
        Action action;
        const char* name;
        QString text;
        QString tip;
        QKeySequence keys;
    };
    const ActionEntry entries[] = {
        {Action::StageHunk, "stageHunk", tr("Stage Hunk"),
         tr("Put the hunks of the chosen rows into the next commit"), QKeySequence(tr("Shift+S"))},
        {Action::StageLines, "stageLines", tr("Stage Lines"),
         tr("Put the chosen added and removed lines into the next commit"), QKeySequence(tr("S"))},
        {Action::DiscardHunk, "discardHunk", tr("Discard Hunk\u2026"),
         tr("Throw away the hunks of the chosen rows"), QKeySequence(tr("Shift+D"))},
        {Action::DiscardLines, "discardLines", tr("Discard Lines\u2026"),
         tr("Throw away the chosen added and removed lines"), QKeySequence(tr("D"))},
        {Action::UnstageHunk, "unstageHunk", tr("Unstage Hunk"),
         tr("Take the hunks of the chosen rows out of the next commit"),
         QKeySequence(tr("Shift+U"))},
        {Action::UnstageLines, "unstageLines", tr("Unstage Lines"),
         tr("Take the chosen added and removed lines out of the next commit"),
         QKeySequence(tr("U"))},
    };
    QListView* list = diffView_->listView();
    auto* separator = new QAction(list);
    separator->setSeparator(true);
    list->addAction(separator);
    for (const ActionEntry& entry : entries) {
        auto* action = new QAction(entry.text, this);
        action->setObjectName(QString::fromLatin1(entry.name));
        action->setToolTip(entry.tip + QStringLiteral(" (") +
                           entry.keys.toString(QKeySequence::NativeText) + QStringLiteral(")"));
        action->setShortcut(entry.keys);
        // Plain letters act only while the diff has the keyboard.
        action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        connect(action, &QAction::triggered, this,
                [this, which = entry.action] { performHunkAction(which); });
        hunkBar_->addAction(action);
        list->addAction(action);
        diffView_->addAction(action);
        hunkActions_.emplace_back(entry.action, action);
    }
}

QAction* VNWorkingCopyPane::hunkAction(Action action) const {
    for (const auto& [which, qaction] : hunkActions_) {
        if (which == action) {
            return qaction;
        }
    }
    return nullptr;
}

namespace {

// The hunks that the chosen rows (or, without any, the current row) belong to, in row order.
std::vector<std::pair<const VNDiffFileModel*, const VNDiffHunkModel*>> hunksUnderSelection(
    const VNDiffView& view) {
    std::vector<std::pair<const VNDiffFileModel*, const VNDiffHunkModel*>> hunks;
    if (view.isShowingPlaceholder()) {
        return hunks;
    }
    const VNDiffLineModel* model = view.lineModel();
    std::vector<int> rows = view.selectedRows();
    QModelIndex current = view.listView()->currentIndex();
    if (rows.empty() && current.isValid()) {
        rows.push_back(current.row());
    }
    for (int row : rows) {
        VNDiffLineModel::RowView line = model->rowAt(row);
        if (line.hunk && (hunks.empty() || hunks.back().second != line.hunk)) {
            hunks.emplace_back(line.file, line.hunk);
        }
    }
    return hunks;
}

bool hasChangedRow(const VNDiffView& view) {
    for (int row : view.selectedRows()) {
        char prefix = view.lineModel()->rowAt(row).prefix;
        if (prefix == '+' || prefix == '-') {
            return true;
        }
    }
    return false;
}

}  // namespace

void VNWorkingCopyPane::updateHunkActions() {
    if (hunkActions_.empty()) {
        return;
    }
    bool staged = diffSide_ == Side::Staged;
    bool idle = !operationRunning_;
    bool lines = hasChangedRow(*diffView_);
    bool hunks = !hunksUnderSelection(*diffView_).empty();
    for (const auto& [which, action] : hunkActions_) {
        bool forStaged = which == Action::UnstageHunk || which == Action::UnstageLines;
        // Without an index only the discards apply.
        bool applies = forStaged == staged &&
                       (staging_ || which == Action::DiscardHunk || which == Action::DiscardLines);
        action->setVisible(applies);
        action->setEnabled(idle && applies && (VNHunkActions::isLineAction(which) ? lines : hunks));
    }
}

bool VNWorkingCopyPane::performHunkAction(Action action) {
    if (operationRunning_) {
        return false;
    }
    bool staged = diffSide_ == Side::Staged;
    bool forStaged = action == Action::UnstageHunk || action == Action::UnstageLines;
    if (staged != forStaged) {
        return false;
    }
    HunkJob job;
    job.hunkAction = hunkActionFor(action);
    job.lineAction = lineActionFor(action);
    job.wholeHunks = !VNHunkActions::isLineAction(action);
    job.staged = staged;

    auto choiceFor = [&](const VNDiffFileModel& file, std::size_t hunkIndex) -> FileChoice& {
        for (FileChoice& choice : job.files) {
            if (choice.file == file.filename()) {
                return choice;
            }
        }
        FileChoice choice;
        choice.file = file.filename();
        choice.previousFile = file.previousFilename();
        int row = unstagedModel_->rowOfPath(file.filename());
        choice.untracked =
            !staged && row >= 0 && unstagedModel_->entry(row).status == VNFileStatusUnknown;
        choice.firstHunk = hunkIndex;
        job.files.push_back(std::move(choice));
        return job.files.back();
    };
    auto hunkIndexOf = [](const VNDiffFileModel& file, const VNDiffHunkModel* hunk) {
        const auto& hunks = file.hunks();
        for (std::size_t i = 0; i < hunks.size(); ++i) {
            if (hunks[i].get() == hunk) {
                return i;
            }
        }
        return std::size_t{0};
    };
    std::size_t added = 0, removed = 0;
    QStringList shownLines;
    auto take = [&](FileChoice& choice, char prefix, int64_t before, int64_t after,
                    std::string_view text) {
        std::optional<LineKey> key = keyOf(prefix, before, after, text);
        if (!key || !choice.lines.insert(*key).second) {
            return;
        }
        (prefix == '+' ? added : removed) += 1;
        if (shownLines.size() < 8) {
            shownLines.append(QString(QChar::fromLatin1(prefix)) + QStringLiteral(" ") +
                              QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
        }
    };
    if (VNHunkActions::isLineAction(action)) {
        for (int row : diffView_->selectedRows()) {
            VNDiffLineModel::RowView line = diffView_->lineModel()->rowAt(row);
            if (line.prefix == '+' || line.prefix == '-') {
                FileChoice& choice = choiceFor(*line.file, hunkIndexOf(*line.file, line.hunk));
                take(choice, line.prefix, line.beforeLineNumber, line.afterLineNumber, line.text);
            }
        }
    } else {
        for (const auto& [file, hunk] : hunksUnderSelection(*diffView_)) {
            FileChoice& choice = choiceFor(*file, hunkIndexOf(*file, hunk));
            for (std::size_t i = 0; i < hunk->lineCount(); ++i) {
                VNDiffHunkModel::LineView line = hunk->lineAt(i);
                take(choice, line.prefix.empty() ? ' ' : line.prefix.front(), line.beforeLineNumber,
                     line.afterLineNumber, line.line);
            }
        }
    }
    if (job.files.empty() || added + removed == 0) {
        return false;
    }

    if (VNHunkActions::isDiscard(action)) {
        QString names;
        for (const FileChoice& choice : job.files) {
            names += (names.isEmpty() ? QString() : QStringLiteral(", ")) +
                     QString::fromStdString(choice.file);
        }
        QString text = tr("These unstaged changes to %1 will be lost: %n added line(s) taken out",
                          nullptr, static_cast<int>(added))
                           .arg(names) +
                       tr(" and %n removed line(s) put back.", nullptr, static_cast<int>(removed));
        QString details = shownLines.join(QStringLiteral("\n"));
        if (added + removed > static_cast<std::size_t>(shownLines.size())) {
            details +=
                QStringLiteral("\n") + tr("and %1 more").arg(added + removed - shownLines.size());
        }
        QMessageBox box(QMessageBox::Warning, tr("Discard changes?"),
                        text + QStringLiteral("\n\n") + details, QMessageBox::Cancel, this);
        QPushButton* discard = box.addButton(tr("Discard"), QMessageBox::DestructiveRole);
        box.setDefaultButton(QMessageBox::Cancel);
        box.setObjectName(QStringLiteral("discardConfirmation"));
        box.exec();
        if (box.clickedButton() != discard) {
            return false;
        }
    }

    HunkFocus focus{job.files.front().file, job.files.front().firstHunk};
    operationRunning_ = true;
    operationError_.clear();
    showErrors();
    updateButtons();
    auto handler = handler_;
    std::string path = path_;
    vn::desktop::runAsync<HunkJobResult>(
        this, [handler, path, job] { return runHunkJob(*handler, path, handler, job); },
        [this, focus](HunkJobResult result) {
            operationRunning_ = false;
            std::string error = std::move(result.error);
            while (!error.empty() && (error.back() == '\n' || error.back() == ' ')) {
                error.pop_back();
            }
            operationError_ = QString::fromStdString(error);
            pendingFocus_ = focus;
            showErrors();
            updateButtons();
            refresh();
            if (result.applied) {
                emit workingCopyChanged();
            }
            emit hunkActionFinished();
        });
    return true;
}

void VNWorkingCopyPane::focusPendingHunk() {
    if (!pendingFocus_) {
        return;
    }
    HunkFocus focus = *pendingFocus_;
    pendingFocus_.reset();
    chooseHunk(focus.file, focus.hunk);
}

bool VNWorkingCopyPane::chooseHunk(const std::string& file, std::size_t hunk) {
    if (diffView_->isShowingPlaceholder()) {
        return false;
    }
    const VNDiffLineModel* model = diffView_->lineModel();
    int header = -1, end = -1;
    std::size_t seen = 0;
    for (int row = 0; row < model->rowCount(); ++row) {
        VNDiffLineModel::RowView line = model->rowAt(row);
        if (line.kind == VNDiffLineModel::RowKind::FileHeader) {
            if (header >= 0) {
                break;
            }
            continue;
        }
        if (line.file->filename() != file) {
            continue;
        }
        if (line.kind == VNDiffLineModel::RowKind::HunkHeader) {
            if (seen > hunk) {
                break;
            }
            header = row;
            ++seen;
        }
        if (header >= 0) {
            end = row;
        }
    }
    if (header < 0) {
        return false;
    }
    QListView* list = diffView_->listView();
    QItemSelection selection(model->index(std::min(header + 1, end)), model->index(end));
    list->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    list->selectionModel()->setCurrentIndex(model->index(header), QItemSelectionModel::NoUpdate);
    list->scrollTo(model->index(header), QAbstractItemView::PositionAtTop);
    return true;
}
