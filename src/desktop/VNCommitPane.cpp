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
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "platform/Preferences.h"

namespace vn::desktop {

namespace {

struct CommitOutcome {
    bool ok = false;
    QString error;
};

QString firstLineOf(const QString& text) {
    return text.section(QLatin1Char('\n'), 0, 0);
}

}  // namespace

VNCommitPane::VNCommitPane(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                           QWidget* parent)
    : QWidget(parent), handler_(std::move(handler)), path_(std::move(path)) {
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
    auto* options = new QHBoxLayout;
    options->addWidget(new QLabel(tr("Author:"), this));
    options->addWidget(author_, 1);
    options->addWidget(amend_);
    options->addWidget(signoff_);
    options->addWidget(bypassHooks_);
    options->addWidget(sign_);
    options->addWidget(keys_);
    options->addWidget(commitButton_);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->addWidget(error_);
    layout->addLayout(subjectRow);
    layout->addWidget(body_, 1);
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
    loadKeys();
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
    auto handler = handler_;
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
    auto handler = handler_;
    std::string path = path_;
    runAsync<std::optional<std::string>>(
        this,
        [handler, path]() -> std::optional<std::string> {
            auto args = handler->defaultArgsForPath(path, "log");
            args.insert(args.end(), {"-1", "--format=%B", "HEAD", "--"});
            auto task = VNTask::taskWithCommand(handler->gitPath(), path, std::move(args));
            if (!task->run()) {
                return std::nullopt;
            }
            return task->output();
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
    if (stagedCount_ == 0 && !amend) {
        if (!confirm(nullptr, tr("No Staged Changes"),
                     tr("Nothing is staged. Commit every change to the tracked files instead? "
                        "Untracked files stay out of the commit."),
                     tr("Commit All"))) {
            return false;
        }
        all = true;
    }
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
    std::string path = path_;
    std::string messageText = text.toStdString();
    // What is staged is committed as staged: naming the files would commit their whole
    // working-copy content and lose a partial staging.
    runAsync<CommitOutcome>(
        this,
        [handler, path, messageText, author, key, options] {
            CommitOutcome outcome;
            auto task = handler->commitTask(path, messageText, author, key, options);
            if (!task) {
                outcome.error = QObject::tr("The commit message could not be written.");
                return outcome;
            }
            outcome.ok = task->run();
            if (!outcome.ok) {
                std::string words = task->errorOutput();
                if (words.empty()) {
                    words = task->output();
                }
                outcome.error = QString::fromStdString(words).trimmed();
                if (outcome.error.isEmpty()) {
                    outcome.error =
                        QObject::tr("git commit failed with code %1.").arg(task->exitCode());
                }
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
        });
    return true;
}

}  // namespace vn::desktop
