#include "desktop/VNWorkingCopyPane.h"

#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QVBoxLayout>

#include <filesystem>
#include <fstream>
#include <set>

#include "desktop/VNAsync.h"
#include "desktop/VNDiffView.h"
#include "desktop/VNFileListModel.h"
#include "handler/VNTaskList.h"
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
    auto* split = new QSplitter(Qt::Vertical, this);
    split->addWidget(lists);
    split->addWidget(diffView_);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 2);

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
