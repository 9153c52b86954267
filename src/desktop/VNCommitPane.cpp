#include "desktop/VNCommitPane.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "desktop/VNAsync.h"
#include "desktop/VNProgressWindow.h"
#include "git/VNGitPushBranchEntry.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNFileStatusEntity.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"

namespace vn::desktop {

namespace {

struct CommitOutcome {
    bool ok = false;
    QString error;
    std::optional<VNCommitPane::PushTarget> push;
};

// The tool's words for a failed task, or its exit code when it said nothing.
QString failureText(VNTask& task) {
    std::string words = task.errorOutput();
    if (words.empty()) {
        words = task.output();
    }
    QString text = QString::fromStdString(words).trimmed();
    if (text.isEmpty()) {
        text = QObject::tr("%1 failed with code %2.")
                   .arg(QString::fromStdString(task.displayCommand()).trimmed())
                   .arg(task.exitCode());
    }
    return text;
}

QString firstLineOf(const QString& text) {
    return text.section(QLatin1Char('\n'), 0, 0);
}

}  // namespace

VNCommitPane::VNCommitPane(std::shared_ptr<VNRepoHandler> handler, std::string path,
                           QWidget* parent)
    : QWidget(parent),
      handler_(std::move(handler)),
      git_(std::dynamic_pointer_cast<VNRepoHandlerGit>(handler_)),
      hg_(std::dynamic_pointer_cast<VNRepoHandlerMercurial>(handler_)),
      path_(std::move(path)) {
    setObjectName(QStringLiteral("commitPane"));
    subject_ = new QLineEdit(this);
    subject_->setObjectName(QStringLiteral("commitSubject"));
    subject_->setPlaceholderText(tr("Summary of the change"));
    hint_ = new QLabel(this);
    hint_->setObjectName(QStringLiteral("subjectHint"));
    body_ = new QPlainTextEdit(this);
    body_->setObjectName(QStringLiteral("commitBody"));
    body_->setPlaceholderText(tr("Why the change was made (optional)"));
    body_->setTabChangesFocus(true);
    // Room for a few paragraphs; the lists and the diff above need the height more.
    int line = body_->fontMetrics().lineSpacing();
    body_->setMinimumHeight(line * 3);
    body_->setMaximumHeight(line * 10);
    history_ = new QComboBox(this);
    history_->setObjectName(QStringLiteral("commitHistory"));
    history_->setToolTip(tr("Use a message committed before"));
    history_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    history_->setMinimumContentsLength(16);
    author_ = new QLineEdit(this);
    author_->setObjectName(QStringLiteral("commitAuthor"));
    author_->setPlaceholderText(tr("Name <email> (yours when empty)"));
    amend_ = new QCheckBox(tr("Amend last commit"), this);
    signoff_ = new QCheckBox(tr("Sign off"), this);
    bypassHooks_ = new QCheckBox(tr("Bypass hooks"), this);
    sign_ = new QCheckBox(tr("Sign with"), this);
    keys_ = new QComboBox(this);
    keys_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    keys_->setMinimumContentsLength(12);
    sign_->setEnabled(false);
    keys_->setEnabled(false);
    pushAfter_ = new QCheckBox(tr("Push after commit"), this);
    pushAfter_->setObjectName(QStringLiteral("pushAfterCommit"));
    pushAfter_->setToolTip(tr("Push the branch to its upstream once the commit is made"));
    commitButton_ = new QPushButton(tr("Commit"), this);
    commitButton_->setObjectName(QStringLiteral("commitButton"));
    commitButton_->setDefault(true);
    error_ = new QLabel(this);
    error_->setWordWrap(true);
    error_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    error_->setForegroundRole(QPalette::BrightText);
    error_->setBackgroundRole(QPalette::Dark);
    error_->setAutoFillBackground(true);
    error_->setMargin(4);
    error_->hide();

    auto* subjectRow = new QHBoxLayout;
    subjectRow->addWidget(subject_, 1);
    subjectRow->addWidget(hint_);
    subjectRow->addWidget(history_);
    // Who and how to sign on one row, the switches and the button on the next, so that the
    // author field keeps room for a whole "Name <email>" in a narrow pane.
    auto* identity = new QHBoxLayout;
    identity->addWidget(new QLabel(tr("Author:"), this));
    identity->addWidget(author_, 1);
    identity->addWidget(sign_);
    identity->addWidget(keys_);
    auto* options = new QHBoxLayout;
    options->addWidget(amend_);
    options->addWidget(signoff_);
    options->addWidget(bypassHooks_);
    options->addStretch(1);
    options->addWidget(pushAfter_);
    options->addWidget(commitButton_);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->addWidget(error_);
    layout->addLayout(subjectRow);
    layout->addWidget(body_, 1);
    layout->addLayout(identity);
    layout->addLayout(options);

    connect(subject_, &QLineEdit::textChanged, this, &VNCommitPane::updateHint);
    connect(subject_, &QLineEdit::returnPressed, body_,
            [this] { body_->setFocus(Qt::TabFocusReason); });
    connect(amend_, &QCheckBox::toggled, this, &VNCommitPane::amendToggled);
    connect(sign_, &QCheckBox::toggled, keys_, &QComboBox::setEnabled);
    connect(commitButton_, &QPushButton::clicked, this, [this] { commit(); });
    connect(history_, &QComboBox::activated, this, [this](int index) {
        if (index > 0) {
            setMessage(history_->itemData(index).toString());
            history_->setCurrentIndex(0);
        }
    });
    loadHistoryChoice();
    updateHint();
    if (git_) {
        loadKeys();
    } else {
        // Sign-off, hook bypass and signing keys are Git's.
        for (QWidget* gitOnly :
             std::initializer_list<QWidget*>{signoff_, bypassHooks_, sign_, keys_}) {
            gitOnly->hide();
        }
        pushAfter_->setToolTip(tr("Push to the default path once the commit is made"));
    }
}

QString VNCommitPane::message() const {
    QString subject = subject_->text().trimmed();
    QString body = body_->toPlainText();
    while (body.endsWith(QLatin1Char('\n')) || body.endsWith(QLatin1Char(' '))) {
        body.chop(1);
    }
    if (body.trimmed().isEmpty()) {
        return subject;
    }
    return subject + QStringLiteral("\n\n") + body;
}

void VNCommitPane::setMessage(const QString& message) {
    QString text = message;
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    qsizetype end = text.indexOf(QLatin1Char('\n'));
    subject_->setText(end < 0 ? text : text.left(end));
    QString body = end < 0 ? QString() : text.mid(end + 1);
    // The blank line between subject and body belongs to neither.
    while (body.startsWith(QLatin1Char('\n'))) {
        body.remove(0, 1);
    }
    while (body.endsWith(QLatin1Char('\n'))) {
        body.chop(1);
    }
    body_->setPlainText(body);
}

void VNCommitPane::setStagedCount(int count) {
    stagedCount_ = count;
}

void VNCommitPane::setUnstagedChanges(std::vector<VNFileListModel::Entry> entries) {
    unstaged_ = std::move(entries);
}

void VNCommitPane::setSelectedFiles(std::vector<std::string> paths) {
    selected_ = std::move(paths);
}

std::vector<std::string> VNCommitPane::withStatus(const std::vector<std::string>& paths,
                                                  uint64_t status) const {
    std::vector<std::string> found;
    for (const std::string& path : paths) {
        for (const auto& entry : unstaged_) {
            if (entry.path == path && (entry.status & status) != 0) {
                found.push_back(path);
                break;
            }
        }
    }
    return found;
}

std::optional<VNCommitPane::PushTarget> VNCommitPane::pushTargetFor(VNRepoHandlerGit& handler,
                                                                    const std::string& path,
                                                                    QString* why) {
    PushTarget target;
    target.localBranch = handler.currentBranch(path);
    if (target.localBranch.empty() || target.localBranch == "HEAD") {
        *why = tr("Not committed: there is no branch checked out to push.");
        return std::nullopt;
    }
    std::vector<vn::Record> remotes = handler.remotePaths(path);
    std::string upstream = handler.trackingBranchesForPull(path).string(target.localBranch);
    // The longest remote name that prefixes the upstream wins: "a/b" over "a" for "a/b/main".
    for (const vn::Record& remote : remotes) {
        std::string name = remote.string("name");
        if (!name.empty() && upstream.size() > name.size() + 1 &&
            upstream.compare(0, name.size(), name) == 0 && upstream[name.size()] == '/' &&
            name.size() > target.remote.size()) {
            target.remote = name;
            target.remoteBranch = upstream.substr(name.size() + 1);
        }
    }
    if (!target.remote.empty()) {
        return target;
    }
    for (const vn::Record& remote : remotes) {
        if (remote.string("name") == "origin" || remotes.size() == 1) {
            target.remote = remote.string("name");
        }
    }
    if (target.remote.empty()) {
        *why = remotes.empty() ? tr("Not committed: the repository has no remote to push to.")
                               : tr("Not committed: the branch has no upstream, and there is no "
                                    "\"origin\" to push it to. Push it once from the Push "
                                    "sheet to choose its remote.");
        return std::nullopt;
    }
    target.remoteBranch = target.localBranch;
    target.setUpstream = true;
    return target;
}

std::optional<VNCommitPane::PushTarget> VNCommitPane::pushTargetFor(VNRepoHandlerMercurial& handler,
                                                                    const std::string& path,
                                                                    QString* why) {
    std::vector<vn::Record> paths = handler.remotePaths(path);
    PushTarget target;
    target.remote = VNRepoHandlerMercurial::defaultPathAmong(paths, true);
    if (target.remote.empty()) {
        *why = paths.empty() ? tr("Not committed: the repository has no path to push to.")
                             : tr("Not committed: there is no \"default\" path to push to. Push "
                                  "once from the Push sheet to choose one.");
        return std::nullopt;
    }
    return target;
}

QString VNCommitPane::errorText() const {
    return error_->text();
}

void VNCommitPane::setError(const QString& text) {
    error_->setText(text);
    error_->setVisible(!text.isEmpty());
}

void VNCommitPane::updateHint() {
    qsizetype length = subject_->text().trimmed().size();
    hint_->setText(QString::number(length));
    hint_->setToolTip(tr("Subject lines read best within %1 characters").arg(SubjectLimit));
    QPalette palette = hint_->palette();
    palette.setColor(QPalette::WindowText, length > SubjectLimit
                                               ? QColor(0xd0, 0x40, 0x30)
                                               : this->palette().color(QPalette::PlaceholderText));
    hint_->setPalette(palette);
}

QStringList VNCommitPane::rememberedMessages() {
    QStringList messages;
    vn::Value stored = vn::Preferences::standard().valueForKey(HistoryKey);
    if (const vn::Value::Array* list = stored.array()) {
        for (const vn::Value& item : *list) {
            QString text = QString::fromStdString(item.toString());
            if (!text.isEmpty()) {
                messages.append(text);
            }
        }
    }
    return messages;
}

void VNCommitPane::rememberMessage(const QString& message) {
    if (message.trimmed().isEmpty()) {
        return;
    }
    QStringList messages = rememberedMessages();
    messages.removeAll(message);
    messages.prepend(message);
    vn::Value::Array list;
    for (qsizetype i = 0; i < messages.size() && i < HistoryLimit; ++i) {
        list.emplace_back(messages[i].toStdString());
    }
    vn::Preferences::standard().set(HistoryKey, std::move(list));
}

void VNCommitPane::loadHistoryChoice() {
    history_->clear();
    history_->addItem(tr("Recent messages"));
    for (const QString& message : rememberedMessages()) {
        history_->addItem(firstLineOf(message), message);
    }
    history_->setEnabled(history_->count() > 1);
}

void VNCommitPane::loadKeys() {
    auto handler = git_;
    std::string path = path_;
    runAsync<std::vector<vn::Record>>(
        this, [handler, path] { return handler->gpgKeyList(path); },
        [this](std::vector<vn::Record> keys) {
            keys_->clear();
            for (const vn::Record& key : keys) {
                QString id = QString::fromStdString(key.string("key"));
                keys_->addItem(
                    QStringLiteral("%1 (%2)").arg(QString::fromStdString(key.string("uid")), id),
                    id);
            }
            sign_->setEnabled(!keys.empty());
            sign_->setToolTip(keys.empty() ? tr("No signing key: set the GnuPG program in the "
                                                "preferences and make a key")
                                           : QString());
            keys_->setEnabled(sign_->isChecked() && !keys.empty());
        });
}

void VNCommitPane::loadMergeMessage() {
    if (!git_) {
        Q_EMIT mergeMessageLoaded();  // hg keeps no prepared message
        return;
    }
    auto handler = git_;
    std::string path = path_;
    runAsync<std::optional<std::string>>(
        this,
        [handler, path] {
            return vn::fs::readFile(
                vn::fs::appendPathComponent(handler->gitMetadataFolder(path), "MERGE_MSG"));
        },
        [this](std::optional<std::string> text) {
            if (text && message().trimmed().isEmpty()) {
                // git commit -F keeps comment lines; they were only meant for an editor.
                QStringList lines;
                for (const QString& line : QString::fromStdString(*text).split(QLatin1Char('\n'))) {
                    if (!line.startsWith(QLatin1Char('#'))) {
                        lines.append(line);
                    }
                }
                setMessage(lines.join(QLatin1Char('\n')).trimmed());
            }
            Q_EMIT mergeMessageLoaded();
        });
}

void VNCommitPane::amendToggled(bool on) {
    if (!on) {
        // Gives back what was typed before, unless the amend message was edited meanwhile.
        if (message() == amendMessage_) {
            setMessage(draftBeforeAmend_);
        }
        amendMessage_.clear();
        return;
    }
    draftBeforeAmend_ = message();
    auto git = git_;
    auto hg = hg_;
    std::string path = path_;
    runAsync<std::optional<std::string>>(
        this,
        [git, hg, path]() -> std::optional<std::string> {
            std::shared_ptr<VNTask> task;
            if (git) {
                auto args = git->defaultArgsForPath(path, "log");
                args.insert(args.end(), {"-1", "--format=%B", "HEAD", "--"});
                task = VNTask::taskWithCommand(git->gitPath(), path, std::move(args));
            } else {
                // The working copy's parent; "-1" is the null revision of an empty repository.
                task = hg->hgTask(path, "log", {"-r", ".", "--template", "{rev}\n{desc}"});
            }
            if (!task->run()) {
                return std::nullopt;
            }
            std::string text = task->output();
            if (hg) {
                std::size_t end = text.find('\n');
                if (text.compare(0, end, "-1") == 0) {
                    return std::nullopt;
                }
                text.erase(0, end == std::string::npos ? text.size() : end + 1);
            }
            return text;
        },
        [this](std::optional<std::string> previous) {
            if (!amend_->isChecked()) {
                return;
            }
            if (!previous) {
                setError(tr("There is no commit to amend yet."));
                amend_->setChecked(false);
                return;
            }
            // What the user typed wins over the old message.
            if (draftBeforeAmend_.trimmed().isEmpty()) {
                setMessage(QString::fromStdString(*previous));
            }
            amendMessage_ = message();
            Q_EMIT amendMessageLoaded();
        });
}

bool VNCommitPane::confirm(const char* suppressKey, const QString& title, const QString& text,
                           const QString& goOn) {
    if (suppressKey && vn::Preferences::standard().boolForKey(suppressKey)) {
        return true;
    }
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, this);
    QPushButton* go = box.addButton(goOn, QMessageBox::AcceptRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(go);
    QCheckBox* silence = nullptr;
    if (suppressKey) {
        silence = new QCheckBox(tr("Do not ask again"), &box);
        box.setCheckBox(silence);
    }
    box.exec();
    if (box.clickedButton() != go) {
        return false;
    }
    if (silence && silence->isChecked()) {
        vn::Preferences::standard().set(suppressKey, true);
    }
    return true;
}

bool VNCommitPane::commit() {
    if (busy_) {
        return false;
    }
    setError({});
    QString text = message();
    bool amend = amend_->isChecked();
    if (text.trimmed().isEmpty() &&
        !confirm(SuppressEmptyKey, tr("Empty Commit Message"),
                 tr("The commit has no message. Commit it anyway?"), tr("Commit"))) {
        return false;
    }
    if (amend && !confirm(SuppressAmendKey, tr("Amend the Last Commit?"),
                          tr("Amending replaces the last commit with a new one. If it was pushed "
                             "already, others who have it will have to reconcile."),
                          tr("Amend"))) {
        return false;
    }
    bool all = false;
    // Without anything staged the chosen unstaged files are committed as they are, the untracked
    // ones added first; without a choice, every change to the tracked files.
    std::vector<std::string> files;
    std::vector<std::string> toAdd;
    std::vector<std::string> toRemove;
    if (hg_) {
        // No staging: the chosen files, else every change; missing files are removed with it.
        files = selected_;
        if (files.empty()) {
            for (const auto& entry : unstaged_) {
                files.push_back(entry.path);
            }
            toRemove = withStatus(files, VNFileStatusMissing);
            files.clear();
        } else {
            toAdd = withStatus(files, VNFileStatusUnknown);
            toRemove = withStatus(files, VNFileStatusMissing);
        }
    } else if (stagedCount_ == 0 && !amend) {
        QMessageBox box(QMessageBox::Question, tr("No Staged Changes"), QString(),
                        QMessageBox::NoButton, this);
        QPushButton* chosen = nullptr;
        if (!selected_.empty()) {
            box.setText(
                tr("Nothing is staged. Commit the %n chosen file(s) as they are in the "
                   "working copy, or every change to the tracked files?",
                   nullptr, static_cast<int>(selected_.size())));
            chosen = box.addButton(tr("Commit Chosen"), QMessageBox::AcceptRole);
        } else {
            box.setText(
                tr("Nothing is staged. Commit every change to the tracked files "
                   "instead? Untracked files stay out of the commit."));
        }
        QPushButton* every = box.addButton(tr("Commit All"), QMessageBox::AcceptRole);
        box.addButton(QMessageBox::Cancel);
        box.setDefaultButton(chosen ? chosen : every);
        box.exec();
        if (chosen && box.clickedButton() == chosen) {
            files = selected_;
            toAdd = withStatus(files, VNFileStatusUnknown);
            toRemove = withStatus(files, VNFileStatusMissing);
        } else {
            if (box.clickedButton() != every) {
                return false;
            }
            all = true;
            std::vector<std::string> every;
            for (const auto& entry : unstaged_) {
                every.push_back(entry.path);
            }
            toRemove = withStatus(every, VNFileStatusMissing);
        }
    }
    auto listed = [](const std::vector<std::string>& paths) {
        QStringList names;
        for (std::size_t i = 0; i < paths.size() && i < 10; ++i) {
            names.append(QString::fromStdString(paths[i]));
        }
        if (paths.size() > 10) {
            names.append(tr("and %n more", nullptr, static_cast<int>(paths.size() - 10)));
        }
        return names.join(QLatin1Char('\n'));
    };
    if (!toAdd.empty() &&
        !confirm(SuppressAddKey, tr("Add Files?"),
                 tr("These untracked files will be added to the repository with the commit:\n\n"
                    "%1")
                     .arg(listed(toAdd)),
                 tr("Add and Commit"))) {
        return false;
    }
    if (!toRemove.empty() &&
        !confirm(SuppressAddKey, tr("Remove Files?"),
                 tr("These files are missing from the working copy; the commit removes them "
                    "from the repository:\n\n%1")
                     .arg(listed(toRemove)),
                 tr("Remove and Commit"))) {
        return false;
    }
    bool pushAfter = pushAfter_->isChecked();
    uint64_t options = 0;
    if (amend) {
        options |= VNRepoHandlerGit::CommitAmend;
    }
    if (all) {
        options |= VNRepoHandlerGit::CommitAll;
    }
    if (signoff_->isChecked()) {
        options |= VNRepoHandlerGit::CommitSignoff;
    }
    if (bypassHooks_->isChecked()) {
        options |= VNRepoHandlerGit::CommitBypassHooks;
    }
    std::string key;
    if (sign_->isChecked() && keys_->currentIndex() >= 0) {
        options |= VNRepoHandlerGit::CommitSign;
        key = keys_->currentData().toString().toStdString();
    }
    std::string author = author_->text().trimmed().toStdString();

    busy_ = true;
    commitButton_->setEnabled(false);
    postLongTaskNotification("longTaskStarted", path_);
    auto handler = handler_;
    auto git = git_;
    auto hg = hg_;
    std::string path = path_;
    std::string messageText = text.toStdString();
    // What is staged is committed as staged: naming the files would commit their whole
    // working-copy content and lose a partial staging. Files are named only when nothing is.
    runAsync<CommitOutcome>(
        this,
        [handler, git, hg, path, messageText, author, key, options, files, toAdd, toRemove,
         pushAfter, amend] {
            CommitOutcome outcome;
            // Where the push goes is settled before anything changes, so that a commit never
            // happens on the promise of a push that cannot be made.
            if (pushAfter) {
                QString why;
                outcome.push =
                    git ? pushTargetFor(*git, path, &why) : pushTargetFor(*hg, path, &why);
                if (!outcome.push) {
                    outcome.error = why;
                    return outcome;
                }
            }
            for (const auto& add : handler->addTasks(path, toAdd)) {
                if (!add || !add->run()) {
                    outcome.error =
                        add ? failureText(*add) : QObject::tr("The files could not be added.");
                    return outcome;
                }
            }
            std::shared_ptr<VNTask> task;
            if (hg) {
                // hg commits a missing file only once it is marked removed.
                for (const auto& remove : handler->removeTasks(path, toRemove)) {
                    if (!remove || !remove->run()) {
                        outcome.error = remove ? failureText(*remove)
                                               : QObject::tr("The files could not be removed.");
                        return outcome;
                    }
                }
                task = hg->commitTask(
                    path, messageText, files,
                    author.empty() ? std::nullopt : std::optional<std::string>(author), amend);
            } else {
                // A file list signs whenever a key is given; the key goes with the sign bit only.
                std::string fileKey =
                    (options & VNRepoHandlerGit::CommitSign) ? key : std::string();
                task = files.empty() ? git->commitTask(path, messageText, author, key, options)
                                     : git->commitTask(path, files, messageText, author, fileKey,
                                                       options & ~VNRepoHandlerGit::CommitSign);
            }
            if (!task) {
                outcome.error = QObject::tr("The commit message could not be written.");
                return outcome;
            }
            outcome.ok = task->run();
            if (!outcome.ok) {
                outcome.error = failureText(*task);
            }
            return outcome;
        },
        [this, text](CommitOutcome outcome) {
            busy_ = false;
            commitButton_->setEnabled(true);
            postLongTaskNotification("longTaskFinished", path_);
            if (!outcome.ok) {
                setError(outcome.error);
                Q_EMIT commitFailed();
                return;
            }
            rememberMessage(text);
            loadHistoryChoice();
            amendMessage_.clear();
            draftBeforeAmend_.clear();
            {
                QSignalBlocker quiet(amend_);
                amend_->setChecked(false);
            }
            setMessage({});
            Q_EMIT committed();
            if (outcome.push) {
                startPush(*outcome.push);
            }
        });
    return true;
}

void VNCommitPane::startPush(const PushTarget& target) {
    VNTaskList tasks;
    if (git_) {
        VNGitPushBranchEntry entry;
        entry.push = true;
        entry.localBranch = target.localBranch;
        entry.remoteBranch = target.remoteBranch;
        entry.track =
            target.setUpstream ? VNGitPushBranchEntry::TrackSet : VNGitPushBranchEntry::TrackKeep;
        tasks = git_->pushTasks(path_, target.remote, {entry}, false);
    } else {
        tasks = {hg_->pushTask(path_, target.remote)};
    }
    if (pushProgress_) {
        pushProgress_->close();
    }
    QString remote = QString::fromStdString(target.remote);
    pushProgress_ = new VNProgressWindow(path_, tr("Pushing To %1").arg(remote), window());
    pushProgress_->setAttribute(Qt::WA_DeleteOnClose);
    busy_ = true;
    commitButton_->setEnabled(false);
    connect(pushProgress_, &VNProgressWindow::runFinished, this, [this, remote](int result) {
        busy_ = false;
        commitButton_->setEnabled(true);
        if (result == VNProgressWindow::ResultSuccess) {
            pushProgress_->close();
        } else {
            // The commit stays; git's words on the push stay in its window.
            setError(result == VNProgressWindow::ResultCancelled
                         ? tr("Committed; the push to %1 was cancelled.").arg(remote)
                         : tr("Committed, but the push to %1 failed.").arg(remote));
        }
        Q_EMIT pushFinished(result);
    });
    pushProgress_->open();
    pushProgress_->run(std::move(tasks), {"push"});
}

}  // namespace vn::desktop
