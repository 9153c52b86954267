#include "desktop/VNRemoteSheets.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "desktop/VNAsync.h"
#include "desktop/VNProgressWindow.h"
#include "git/VNGitPushBranchEntry.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/Preferences.h"

namespace vn::desktop {

namespace {

// "origin/topic/x" for remote "origin" is "topic/x"; nothing when it is another remote's.
std::optional<std::string> branchOnRemote(const std::string& remoteBranch,
                                          const std::string& remote) {
    if (remote.empty() || remoteBranch.size() <= remote.size() + 1 ||
        remoteBranch.compare(0, remote.size(), remote) != 0 || remoteBranch[remote.size()] != '/') {
        return std::nullopt;
    }
    return remoteBranch.substr(remote.size() + 1);
}

QDialogButtonBox* sheetButtons(QDialog* sheet, const QString& goText) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, sheet);
    QPushButton* go = buttons->addButton(goText, QDialogButtonBox::AcceptRole);
    go->setObjectName(QStringLiteral("startButton"));
    go->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);
    return buttons;
}

}  // namespace

// ---- VNRemoteSheet --------------------------------------------------------------------------

VNRemoteSheet::VNRemoteSheet(std::shared_ptr<VNRepoHandler> handler, std::string path,
                             QWidget* parent)
    : QDialog(parent),
      handler_(std::move(handler)),
      git_(std::dynamic_pointer_cast<VNRepoHandlerGit>(handler_)),
      hg_(std::dynamic_pointer_cast<VNRepoHandlerMercurial>(handler_)),
      path_(std::move(path)) {
    remote_ = new QComboBox(this);
    remote_->setObjectName(QStringLiteral("remoteChoice"));
    setWindowModality(Qt::WindowModal);
}

void VNRemoteSheet::load() {
    auto handler = git_;
    auto any = handler_;
    std::string path = path_;
    runAsync<VNRemoteSheetData>(
        this,
        [handler, any, path] {
            VNRemoteSheetData data;
            data.remotes = any->remotePaths(path);
            if (!handler) {
                return data;  // a Mercurial sheet needs only its paths
            }
            data.localBranches = handler->branches(path);
            data.currentBranch = handler->currentBranch(path);
            data.upstreams = handler->trackingBranchesForPull(path);
            data.remoteBranches = handler->remoteBranches(path);
            data.rebaseInProgress = handler->isRebaseInProgress(path);
            // During a rebase HEAD is detached; the branch being rebased is the one meant.
            if (data.rebaseInProgress) {
                if (std::string original = handler->originalBranch(path); !original.empty()) {
                    data.currentBranch = original;
                }
            }
            return data;
        },
        [this](VNRemoteSheetData data) {
            data_ = std::move(data);
            loadExtra(data_);
            loaded_ = true;
            Q_EMIT remotesLoaded();
        });
}

void VNRemoteSheet::loadExtra(const VNRemoteSheetData& data) {
    addRemoteItems(data.remotes);
}

void VNRemoteSheet::addRemoteItems(const std::vector<vn::Record>& remotes) {
    // The current branch's remote comes first, then "origin", as git would pick them.
    std::string preferred;
    if (auto upstream = data_.upstreams.string(data_.currentBranch); !upstream.empty()) {
        for (const vn::Record& remote : remotes) {
            if (branchOnRemote(upstream, remote.string("name"))) {
                preferred = remote.string("name");
            }
        }
    }
    for (const vn::Record& remote : remotes) {
        QString name = QString::fromStdString(remote.string("name"));
        remote_->addItem(name, name);
        remote_->setItemData(remote_->count() - 1, QString::fromStdString(remote.string("path")),
                             Qt::ToolTipRole);
        if ((preferred.empty() && name == QLatin1String("origin")) ||
            name.toStdString() == preferred) {
            remote_->setCurrentIndex(remote_->count() - 1);
        }
    }
}

void VNRemoteSheet::selectRemote(const std::string& name) {
    if (int index = remote_->findData(QString::fromStdString(name)); index >= 0 && !name.empty()) {
        remote_->setCurrentIndex(index);
    }
}

std::string VNRemoteSheet::selectedRemote() const {
    return remote_->currentData().toString().toStdString();
}

void VNRemoteSheet::runTasks(VNTaskList tasks, const QString& title,
                             const std::vector<std::string>& progressCommands) {
    if (progress_) {
        progress_->close();
        progress_->deleteLater();
    }
    progress_ = new VNProgressWindow(path_, title, this);
    progress_->setAttribute(Qt::WA_DeleteOnClose);
    connect(progress_, &VNProgressWindow::runFinished, this, [this](int result) {
        // The window closes itself after a success; a failure stays for its words.
        if (result == VNProgressWindow::ResultSuccess && progress_) {
            progress_->close();
        }
        runFinished(result);
    });
    progress_->open();
    progress_->run(std::move(tasks), progressCommands);
}

void VNRemoteSheet::layOutPlainSheet(QFormLayout* form, std::initializer_list<QWidget*> switches,
                                     const QString& goText) {
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    for (QWidget* widget : switches) {
        layout->addWidget(widget);
    }
    layout->addStretch(1);
    auto* buttons = sheetButtons(this, goText);
    connect(buttons, &QDialogButtonBox::accepted, this, [this] { start(); });
    layout->addWidget(buttons);
    setMinimumWidth(420);
}

void VNRemoteSheet::closeWith(int code) {
    if (progress_ && progress_->isVisible()) {
        // Its words about the failure or the conflicts stay readable after the sheet is gone.
        progress_->setParent(parentWidget(), progress_->windowFlags());
        progress_->show();
    }
    done(code);
}

// ---- VNPushSheet ----------------------------------------------------------------------------

VNPushSheet::VNPushSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                         QWidget* parent)
    : VNRemoteSheet(std::move(handler), std::move(path), parent) {
    setWindowTitle(tr("Push"));
    setObjectName(QStringLiteral("pushSheet"));
    url_ = new QLineEdit(this);
    url_->setPlaceholderText(tr("URL of the repository to push to"));
    url_->setEnabled(false);
    branches_ = new QTableWidget(0, ColumnCount, this);
    branches_->setHorizontalHeaderLabels(
        {tr("Push"), tr("Local branch"), tr("Remote branch"), tr("Track")});
    branches_->verticalHeader()->hide();
    branches_->setSelectionMode(QAbstractItemView::NoSelection);
    branches_->horizontalHeader()->setSectionResizeMode(LocalColumn, QHeaderView::Stretch);
    branches_->horizontalHeader()->setSectionResizeMode(RemoteBranchColumn, QHeaderView::Stretch);
    branches_->horizontalHeader()->setSectionResizeMode(PushColumn, QHeaderView::ResizeToContents);
    branches_->horizontalHeader()->setSectionResizeMode(TrackColumn, QHeaderView::ResizeToContents);
    force_ = new QCheckBox(tr("Force (overwrite the remote branches' commits)"), this);
    tags_ = new QCheckBox(tr("Push all tags"), this);
    tags_->setChecked(vn::Preferences::standard().boolForKey("gitPushAllTags"));

    auto* form = new QFormLayout;
    form->addRow(tr("Remote:"), remote_);
    form->addRow(tr("URL:"), url_);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(branches_, 1);
    layout->addWidget(force_);
    layout->addWidget(tags_);
    auto* buttons = sheetButtons(this, tr("Push"));
    connect(buttons, &QDialogButtonBox::accepted, this, [this] { start(); });
    layout->addWidget(buttons);
    connect(url_, &QLineEdit::textEdited, this, [this](const QString& text) { customUrl_ = text; });
    connect(remote_, &QComboBox::currentIndexChanged, this, [this] {
        showSelectedUrl();
        fillBranches();
    });
    resize(560, 380);
}

void VNPushSheet::loadExtra(const VNRemoteSheetData& data) {
    {
        QSignalBlocker quiet(remote_);
        addRemoteItems(data.remotes);
        remote_->addItem(tr("Custom URL"), QString::fromLatin1(CustomRemote));
        if (data.remotes.empty()) {
            remote_->setCurrentIndex(remote_->count() - 1);
        }
    }
    showSelectedUrl();
    fillBranches();
}

void VNPushSheet::showSelectedUrl() {
    bool custom = selectedRemote() == CustomRemote;
    url_->setText(custom ? customUrl_ : remote_->currentData(Qt::ToolTipRole).toString());
    url_->setEnabled(custom);
}

void VNPushSheet::fillBranches() {
    std::string remote = selectedRemote();
    branches_->setRowCount(0);
    for (const std::string& branch : data_.localBranches) {
        int row = branches_->rowCount();
        branches_->insertRow(row);
        auto upstream = branchOnRemote(data_.upstreams.string(branch), remote);
        auto* push = new QTableWidgetItem;
        push->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        push->setCheckState(branch == data_.currentBranch ? Qt::Checked : Qt::Unchecked);
        auto* local = new QTableWidgetItem(QString::fromStdString(branch));
        local->setFlags(Qt::ItemIsEnabled);
        auto* target = new QTableWidgetItem(QString::fromStdString(upstream.value_or(branch)));
        target->setFlags(Qt::ItemIsEnabled | Qt::ItemIsEditable);
        auto* track = new QTableWidgetItem;
        track->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        // A branch without an upstream gets one by its first push, as most users want.
        bool hasUpstream = !data_.upstreams.string(branch).empty();
        track->setCheckState(upstream || !hasUpstream ? Qt::Checked : Qt::Unchecked);
        // What the branch tracks now, to tell a change of the box from its first state.
        track->setData(Qt::UserRole, QString::fromStdString(upstream.value_or("")));
        branches_->setItem(row, PushColumn, push);
        branches_->setItem(row, LocalColumn, local);
        branches_->setItem(row, RemoteBranchColumn, target);
        branches_->setItem(row, TrackColumn, track);
    }
}

std::vector<VNGitPushBranchEntry> VNPushSheet::pushList() const {
    std::vector<VNGitPushBranchEntry> list;
    for (int row = 0; row < branches_->rowCount(); ++row) {
        VNGitPushBranchEntry entry;
        entry.push = branches_->item(row, PushColumn)->checkState() == Qt::Checked;
        entry.localBranch = branches_->item(row, LocalColumn)->text().toStdString();
        entry.remoteBranch =
            branches_->item(row, RemoteBranchColumn)->text().trimmed().toStdString();
        QTableWidgetItem* track = branches_->item(row, TrackColumn);
        std::string tracked = track->data(Qt::UserRole).toString().toStdString();
        bool wanted = track->checkState() == Qt::Checked;
        std::string target = entry.remoteBranch.empty() ? entry.localBranch : entry.remoteBranch;
        if (wanted) {
            entry.track = tracked == target ? VNGitPushBranchEntry::TrackKeep
                                            : VNGitPushBranchEntry::TrackSet;
        } else {
            // Only an upstream on this remote is removed; a custom URL has none.
            entry.track = tracked.empty() ? VNGitPushBranchEntry::TrackKeep
                                          : VNGitPushBranchEntry::TrackRemove;
        }
        if (entry.track == VNGitPushBranchEntry::TrackRemove && !entry.push) {
            entry.remoteBranch = tracked;
        }
        if (entry.push || entry.track == VNGitPushBranchEntry::TrackRemove) {
            list.push_back(std::move(entry));
        }
    }
    return list;
}

bool VNPushSheet::start() {
    if (progress_ && progress_->running()) {
        return false;
    }
    std::string remote = selectedRemote();
    QString shown = remote_->currentText();
    bool custom = remote == CustomRemote;
    if (custom) {
        shown = url_->text().trimmed();
        remote = shown.toStdString();
        if (remote.empty()) {
            url_->setFocus();
            return false;
        }
    }
    if (remote.empty()) {
        return false;
    }
    auto list = pushList();
    if (custom) {
        // A bare URL has no remote branches to track.
        for (auto& entry : list) {
            if (entry.track == VNGitPushBranchEntry::TrackSet) {
                entry.track = VNGitPushBranchEntry::TrackKeep;
            }
        }
    }
    vn::Preferences::standard().set("gitPushAllTags", tags_->isChecked());
    VNTaskList tasks = git_->pushTasks(path_, remote, list, force_->isChecked());
    if (tasks.empty()) {
        return false;
    }
    runTasks(std::move(tasks), tr("Pushing To %1").arg(shown), {"push"});
    return true;
}

void VNPushSheet::runFinished(int result) {
    // A failed push stays open, so that a choice can be changed (force, say) and tried again.
    if (result == VNProgressWindow::ResultSuccess) {
        closeWith(QDialog::Accepted);
        Q_EMIT refreshRequested(false, true);
        Q_EMIT remoteStatusCheckRequested();
    }
    endRun(result);
}

// ---- VNPullSheet ----------------------------------------------------------------------------

VNPullSheet::VNPullSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                         QWidget* parent)
    : VNRemoteSheet(std::move(handler), std::move(path), parent) {
    setWindowTitle(tr("Pull"));
    setObjectName(QStringLiteral("pullSheet"));
    branch_ = new QComboBox(this);
    branch_->setObjectName(QStringLiteral("branchChoice"));
    branch_->setEditable(true);
    rebase_ = new QCheckBox(tr("Rebase instead of merge"), this);
    noFastForward_ = new QCheckBox(tr("Always make a merge commit"), this);
    rebaseNote_ = new QLabel(tr("A rebase is under way. Resolve its conflicts and continue it, "
                                "or abort it to go back to where it started."),
                             this);
    rebaseNote_->setWordWrap(true);
    continueRebase_ = new QPushButton(tr("Continue Rebase"), this);
    continueRebase_->setObjectName(QStringLiteral("continueRebaseButton"));
    abortRebase_ = new QPushButton(tr("Abort Rebase"), this);
    abortRebase_->setObjectName(QStringLiteral("abortRebaseButton"));
    auto* rebaseRow = new QHBoxLayout;
    rebaseRow->addStretch(1);
    rebaseRow->addWidget(abortRebase_);
    rebaseRow->addWidget(continueRebase_);
    auto* form = new QFormLayout;
    form->addRow(tr("Remote:"), remote_);
    form->addRow(tr("Branch:"), branch_);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(rebase_);
    layout->addWidget(noFastForward_);
    layout->addWidget(rebaseNote_);
    layout->addLayout(rebaseRow);
    layout->addStretch(1);
    auto* buttons = sheetButtons(this, tr("Pull"));
    pullButton_ = buttons->findChild<QPushButton*>(QStringLiteral("startButton"));
    connect(buttons, &QDialogButtonBox::accepted, this, [this] { start(); });
    connect(continueRebase_, &QPushButton::clicked, this, [this] { continueRebase(); });
    connect(abortRebase_, &QPushButton::clicked, this, [this] { abortRebase(); });
    layout->addWidget(buttons);
    setMinimumWidth(460);
    showRebaseState(false);
    connect(remote_, &QComboBox::currentIndexChanged, this, &VNPullSheet::fillBranches);
    connect(rebase_, &QCheckBox::toggled, noFastForward_, &QWidget::setDisabled);
}

void VNPullSheet::loadExtra(const VNRemoteSheetData& data) {
    {
        QSignalBlocker quiet(remote_);
        addRemoteItems(data.remotes);
    }
    fillBranches();
    showRebaseState(data.rebaseInProgress);
}

void VNPullSheet::showRebaseState(bool inProgress) {
    rebaseNote_->setVisible(inProgress);
    continueRebase_->setVisible(inProgress);
    abortRebase_->setVisible(inProgress);
    // git refuses to pull in the middle of a rebase.
    for (QWidget* choice : {static_cast<QWidget*>(remote_), static_cast<QWidget*>(branch_),
                            static_cast<QWidget*>(rebase_)}) {
        choice->setEnabled(!inProgress);
    }
    noFastForward_->setEnabled(!inProgress && !rebase_->isChecked());
    if (pullButton_) {
        pullButton_->setEnabled(!inProgress);
        pullButton_->setDefault(!inProgress);
    }
    continueRebase_->setDefault(inProgress);
    // The note wraps; the sheet grows or shrinks around it.
    resize(width(), heightForWidth(width()) > 0 ? heightForWidth(width()) : sizeHint().height());
}

void VNPullSheet::fillBranches() {
    std::string remote = selectedRemote();
    std::string upstream = data_.upstreams.string(data_.currentBranch);
    branch_->clear();
    for (const std::string& name : data_.remoteBranches) {
        if (auto branch = branchOnRemote(name, remote)) {
            branch_->addItem(QString::fromStdString(*branch));
            if (name == upstream || (upstream.empty() && *branch == data_.currentBranch)) {
                branch_->setCurrentIndex(branch_->count() - 1);
            }
        }
    }
}

bool VNPullSheet::start() {
    if ((progress_ && progress_->running()) || data_.rebaseInProgress) {
        return false;
    }
    std::string remote = selectedRemote();
    std::string branch = branch_->currentText().trimmed().toStdString();
    if (remote.empty() || branch.empty()) {
        return false;
    }
    auto& preferences = vn::Preferences::standard();
    VNTaskList tasks = git_->pullTasks(path_, remote, branch,
                                       preferences.boolForKey("gitCommitMergedChangesImmediately"),
                                       preferences.boolForKey("gitIncludeMessagesFromCommits"),
                                       noFastForward_->isChecked(), rebase_->isChecked(), 0);
    rebaseStepRunning_ = false;
    runTasks(std::move(tasks), tr("Pulling From %1").arg(remote_->currentText()),
             {"fetch", "pull"});
    return true;
}

bool VNPullSheet::continueRebase() {
    return runRebaseStep(false);
}

bool VNPullSheet::abortRebase() {
    return runRebaseStep(true);
}

bool VNPullSheet::runRebaseStep(bool abort) {
    if ((progress_ && progress_->running()) || !data_.rebaseInProgress || rebaseStepRunning_) {
        return false;
    }
    rebaseStepRunning_ = true;
    auto git = git_;
    std::string path = path_;
    // With every change of the stopped commit resolved away there is nothing to commit, and
    // git's "--continue" would stop again: the commit is skipped. The status that tells is read
    // off the GUI thread, as it takes a while in a large working copy.
    runAsync<bool>(
        this,
        [git, path, abort] {
            if (abort) {
                return false;
            }
            auto args = git->defaultArgsForPath(path, "status");
            args.insert(args.end(),
                        {"--porcelain", "--untracked-files=no", "--ignore-submodules=dirty"});
            auto status = VNTask::taskWithCommand(git->gitPath(), path, std::move(args));
            return status->run() && QString::fromStdString(status->output()).trimmed().isEmpty();
        },
        [this, abort](bool skip) {
            auto args = git_->defaultArgsForPath(path_, "rebase");
            args.push_back(abort ? "--abort" : skip ? "--skip" : "--continue");
            auto task = VNTask::taskWithCommand(git_->gitPath(), path_, std::move(args));
            // The stopped commit keeps its message; nobody is there to edit it in a terminal
            // editor.
            task->setEnvironmentCustomisations(vn::Environment{{"GIT_EDITOR", "true"}});
            runTasks({task}, abort ? tr("Aborting the Rebase") : tr("Continuing the Rebase"), {});
        });
    return true;
}

int VNPullSheet::classifyPullResult(int result, const vn::Record& summary) {
    bool pending = summary.boolean("ismerge") || summary.boolean("isrebase");
    if (result == VNProgressWindow::ResultFailed &&
        (pending || summary.integer("numfilesunresolved") > 0)) {
        return ConflictsResult;
    }
    if (result == VNProgressWindow::ResultSuccess && summary.boolean("ismerge")) {
        return MergeToCommitResult;
    }
    return result;
}

void VNPullSheet::runFinished(int result) {
    bool rebaseStep = rebaseStepRunning_;
    rebaseStepRunning_ = false;
    auto handler = git_;
    std::string path = path_;
    // Whether git stopped at conflicts or left a merge to commit shows only in the repository.
    runAsync<vn::Record>(
        this, [handler, path] { return handler->summary(path); },
        [this, result, rebaseStep](vn::Record summary) {
            int outcome = classifyPullResult(result, summary);
            data_.rebaseInProgress = summary.boolean("isrebase");
            if (rebaseStep && outcome == VNProgressWindow::ResultSuccess) {
                // The sheet stays for the pull the rebase was in the way of.
                showRebaseState(data_.rebaseInProgress);
                Q_EMIT refreshRequested(true, true);
                endRun(outcome);
                return;
            }
            showRebaseState(data_.rebaseInProgress);
            if (outcome == VNProgressWindow::ResultSuccess || outcome == ConflictsResult ||
                outcome == MergeToCommitResult) {
                closeWith(outcome);
                Q_EMIT refreshRequested(true, true);
                Q_EMIT remoteStatusCheckRequested();
            }
            endRun(outcome);
        });
}

// ---- VNFetchSheet ---------------------------------------------------------------------------

VNFetchSheet::VNFetchSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                           QWidget* parent)
    : VNRemoteSheet(std::move(handler), std::move(path), parent) {
    setWindowTitle(tr("Fetch"));
    setObjectName(QStringLiteral("fetchSheet"));
    prune_ = new QCheckBox(tr("Prune remote branches that were deleted"), this);
    prune_->setChecked(vn::Preferences::standard().boolForKey(PruneKey));
    tags_ = new QCheckBox(tr("Fetch all tags"), this);
    auto* form = new QFormLayout;
    form->addRow(tr("Remote:"), remote_);
    layOutPlainSheet(form, {prune_, tags_}, tr("Fetch"));
}

void VNFetchSheet::loadExtra(const VNRemoteSheetData& data) {
    remote_->addItem(tr("All remotes"), QString());
    addRemoteItems(data.remotes);
}

bool VNFetchSheet::start() {
    if (progress_ && progress_->running()) {
        return false;
    }
    std::string remote = selectedRemote();
    vn::Preferences::standard().set(PruneKey, prune_->isChecked());
    std::optional<std::string> chosen;
    if (!remote.empty()) {
        chosen = remote;
    }
    VNTaskList tasks = git_->fetchTasks(path_, chosen, prune_->isChecked(), tags_->isChecked());
    if (tasks.empty()) {
        return false;
    }
    runTasks(std::move(tasks),
             chosen ? tr("Fetching From %1").arg(remote_->currentText()) : tr("Fetching All"),
             {"fetch"});
    return true;
}

void VNFetchSheet::runFinished(int result) {
    // The sheet closes whatever happened; a failure's words stay in the progress window. A
    // fetch moves remote branches only, and nothing else watches the git folder for them, so
    // the window reads the references and the history again.
    closeWith(result == VNProgressWindow::ResultSuccess ? QDialog::Accepted : QDialog::Rejected);
    Q_EMIT refreshRequested(false, true);
    Q_EMIT remoteStatusCheckRequested();
    endRun(result);
}

// ---- VNMercurialPushSheet -------------------------------------------------------------------

VNMercurialPushSheet::VNMercurialPushSheet(std::shared_ptr<VNRepoHandlerMercurial> handler,
                                           std::string path, QWidget* parent)
    : VNRemoteSheet(std::move(handler), std::move(path), parent) {
    setWindowTitle(tr("Push"));
    setObjectName(QStringLiteral("pushSheet"));
    currentOnly_ = new QCheckBox(tr("Only the working copy's branch"), this);
    force_ = new QCheckBox(tr("Force (even when it makes new heads there)"), this);
    auto* form = new QFormLayout;
    form->addRow(tr("Path:"), remote_);
    layOutPlainSheet(form, {currentOnly_, force_}, tr("Push"));
}

void VNMercurialPushSheet::loadExtra(const VNRemoteSheetData& data) {
    addRemoteItems(data.remotes);
    selectRemote(VNRepoHandlerMercurial::defaultPathAmong(data.remotes, true));
    if (data.remotes.empty()) {
        remote_->setPlaceholderText(tr("No paths in this repository"));
    }
}

bool VNMercurialPushSheet::start() {
    if ((progress_ && progress_->running()) || remote_->count() == 0) {
        return false;
    }
    std::optional<std::string> branch;
    if (currentOnly_->isChecked()) {
        branch = ".";  // hg takes "." for the working copy's branch
    }
    auto task = hg_->pushTask(path_, selectedRemote(), branch, std::nullopt, force_->isChecked());
    runTasks({task}, tr("Pushing To %1").arg(remote_->currentText()), {});
    return true;
}

void VNMercurialPushSheet::runFinished(int result) {
    if (result == VNProgressWindow::ResultSuccess) {
        closeWith(QDialog::Accepted);
        // Phases of the pushed changesets turned public.
        Q_EMIT refreshRequested(false, true);
    }
    endRun(result);
}

// ---- VNMercurialPullSheet -------------------------------------------------------------------

VNMercurialPullSheet::VNMercurialPullSheet(std::shared_ptr<VNRepoHandlerMercurial> handler,
                                           std::string path, QWidget* parent)
    : VNRemoteSheet(std::move(handler), std::move(path), parent) {
    setWindowTitle(tr("Pull"));
    setObjectName(QStringLiteral("pullSheet"));
    action_ = new QComboBox(this);
    action_->setObjectName(QStringLiteral("postPullAction"));
    action_->addItem(tr("Nothing: only bring the changesets in"),
                     QVariant::fromValue<qlonglong>(VNRepoHandlerMercurial::PostPullNone));
    action_->addItem(tr("Update the working copy"),
                     QVariant::fromValue<qlonglong>(VNRepoHandlerMercurial::PostPullUpdate));
    action_->addItem(tr("Rebase the working copy's changesets"),
                     QVariant::fromValue<qlonglong>(VNRepoHandlerMercurial::PostPullRebase));
    action_->addItem(tr("Merge and commit (fetch)"),
                     QVariant::fromValue<qlonglong>(VNRepoHandlerMercurial::PostPullFetch));
    int64_t preferred = vn::Preferences::standard().integerForKey("mercurialPostPullAction");
    int index = action_->findData(QVariant::fromValue<qlonglong>(preferred));
    action_->setCurrentIndex(index < 0 ? 0 : index);
    auto* form = new QFormLayout;
    form->addRow(tr("Path:"), remote_);
    form->addRow(tr("Then:"), action_);
    layOutPlainSheet(form, {}, tr("Pull"));
}

void VNMercurialPullSheet::loadExtra(const VNRemoteSheetData& data) {
    addRemoteItems(data.remotes);
    selectRemote(VNRepoHandlerMercurial::defaultPathAmong(data.remotes, false));
}

bool VNMercurialPullSheet::start() {
    if ((progress_ && progress_->running()) || remote_->count() == 0) {
        return false;
    }
    int64_t action = action_->currentData().toLongLong();
    vn::Preferences::standard().set("mercurialPostPullAction", action);
    auto task = hg_->pullTask(path_, selectedRemote(), std::nullopt, std::nullopt, action);
    runTasks({task}, tr("Pulling From %1").arg(remote_->currentText()), {});
    return true;
}

void VNMercurialPullSheet::runFinished(int result) {
    // Even a pull whose update or merge failed brought changesets in, and may have left
    // conflicts: the window reads everything again. hg's words stay in the progress window.
    Q_EMIT refreshRequested(true, true);
    if (result == VNProgressWindow::ResultSuccess) {
        closeWith(QDialog::Accepted);
    }
    endRun(result);
}

}  // namespace vn::desktop
