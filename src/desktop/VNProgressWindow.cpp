#include "desktop/VNProgressWindow.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

#include "handler/VNTask.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"

namespace vn::desktop {

void postLongTaskNotification(const char* name, const std::string& path) {
    vn::NotificationCenter::defaultCenter().post(name, nullptr, vn::Record{{"path", path}});
}

VNProgressWindow::VNProgressWindow(std::string repositoryPath, const QString& title,
                                   QWidget* parent)
    : QDialog(parent), path_(std::move(repositoryPath)) {
    setWindowTitle(title);
    setObjectName(QStringLiteral("progressWindow"));
    status_ = new QLabel(title, this);
    QFont bold = status_->font();
    bold.setBold(true);
    status_->setFont(bold);
    output_ = new QPlainTextEdit(this);
    output_->setReadOnly(true);
    output_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    output_->setLineWrapMode(QPlainTextEdit::NoWrap);
    cancelButton_ = new QPushButton(tr("Cancel"), this);
    closeButton_ = new QPushButton(tr("Close"), this);
    closeButton_->setEnabled(false);
    connect(cancelButton_, &QPushButton::clicked, this, &VNProgressWindow::cancel);
    connect(closeButton_, &QPushButton::clicked, this, &QDialog::accept);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cancelButton_);
    buttons->addWidget(closeButton_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(status_);
    layout->addWidget(output_, 1);
    layout->addLayout(buttons);
    resize(620, 320);
}

VNProgressWindow::~VNProgressWindow() {
    observations_.clear();
    if (current_ && running_) {
        current_->terminate();
    }
}

QString VNProgressWindow::transcript() const {
    return finishedText_ + pendingLine_;
}

void VNProgressWindow::run(VNTaskList tasks, const std::vector<std::string>& progressCommands) {
    tasks_ = std::move(tasks);
    progressCommands_ = progressCommands;
    next_ = 0;
    running_ = true;
    cancelled_ = false;
    cancelButton_->setEnabled(true);
    closeButton_->setEnabled(false);
    postLongTaskNotification("longTaskStarted", path_);
    // Started from the event loop, so that a caller can connect to runFinished first.
    QTimer::singleShot(0, this, &VNProgressWindow::startNext);
}

void VNProgressWindow::startNext() {
    if (!running_) {
        return;
    }
    if (cancelled_) {
        finish(ResultCancelled);
        return;
    }
    if (next_ >= tasks_.size()) {
        finish(ResultSuccess);
        return;
    }
    current_ = tasks_[next_++];
    if (!current_) {
        append("The command could not be prepared.\n");
        finish(ResultFailed);
        return;
    }
    auto args = current_->args();
    // Only git takes the option; hg would refuse the whole command.
    bool git = vn::fs::lastPathComponent(current_->command()).rfind("git", 0) == 0;
    for (auto it = args.begin(); git && it != args.end(); ++it) {
        if (std::find(progressCommands_.begin(), progressCommands_.end(), *it) !=
            progressCommands_.end()) {
            if (std::find(args.begin(), args.end(), "--progress") == args.end()) {
                args.insert(it + 1, "--progress");
            }
            break;
        }
    }
    current_->setArgs(std::move(args));
    current_->setReturnProgressiveOutput(true);

    auto& center = vn::NotificationCenter::defaultCenter();
    VNTask* task = current_.get();
    observations_.clear();
    observations_.push_back(
        center.addObserver(VNTask::OutputReceivedNotification, task,
                           [this, task](const vn::Notification&) { append(task->newOutput()); }));
    observations_.push_back(center.addObserver(
        VNTask::ErrorOutputReceivedNotification, task,
        [this, task](const vn::Notification&) { append(task->newErrorOutput()); }));
    observations_.push_back(
        center.addObserver(VNTask::CompletedNotification, task, [this](const vn::Notification&) {
            // Leaves the notification's delivery before the observers are dropped.
            QTimer::singleShot(0, this, &VNProgressWindow::taskCompleted);
        }));
    status_->setText(QStringLiteral("%1 (%2/%3)").arg(windowTitle()).arg(next_).arg(tasks_.size()));
    current_->launch();
}

void VNProgressWindow::taskCompleted() {
    if (!current_ || !running_) {
        return;
    }
    observations_.clear();
    // What arrived after the last notification.
    append(current_->newOutput());
    append(current_->newErrorOutput());
    if (!current_->success()) {
        if (!cancelled_ && current_->errorOutput().empty()) {
            append(tr("%1 failed with code %2.\n")
                       .arg(QString::fromStdString(current_->displayCommand()).trimmed())
                       .arg(current_->exitCode())
                       .toStdString());
        }
        finish(cancelled_ ? ResultCancelled : ResultFailed);
        return;
    }
    startNext();
}

void VNProgressWindow::append(const std::string& text) {
    if (text.empty()) {
        return;
    }
    // A URL with a password in it must not reach the screen either.
    QString incoming = QString::fromUtf8(vn::CredentialStore::redactURLPasswords(text));
    for (QChar c : incoming) {
        if (c == QLatin1Char('\n')) {
            finishedText_ += pendingLine_ + c;
            pendingLine_.clear();
        } else if (c == QLatin1Char('\r')) {
            // The next progress report replaces this line, unless a line end follows.
            pendingLine_ += c;
        } else {
            if (pendingLine_.endsWith(QLatin1Char('\r'))) {
                pendingLine_.clear();
            }
            pendingLine_ += c;
        }
    }
    QString shown = finishedText_ + pendingLine_;
    shown.remove(QLatin1Char('\r'));
    output_->setPlainText(shown);
    output_->verticalScrollBar()->setValue(output_->verticalScrollBar()->maximum());
}

void VNProgressWindow::cancel() {
    if (!running_) {
        reject();
        return;
    }
    cancelled_ = true;
    cancelButton_->setEnabled(false);
    status_->setText(tr("Cancelling…"));
    if (current_ && current_->isRunning()) {
        current_->terminate();
    } else {
        QTimer::singleShot(0, this, &VNProgressWindow::startNext);
    }
}

void VNProgressWindow::reject() {
    if (running_) {
        cancel();
        return;
    }
    QDialog::reject();
}

void VNProgressWindow::finish(int result) {
    running_ = false;
    result_ = result;
    current_.reset();
    cancelButton_->setEnabled(false);
    closeButton_->setEnabled(true);
    status_->setText(result == ResultSuccess     ? tr("%1: done").arg(windowTitle())
                     : result == ResultCancelled ? tr("%1: cancelled").arg(windowTitle())
                                                 : tr("%1: failed").arg(windowTitle()));
    postLongTaskNotification("longTaskFinished", path_);
    Q_EMIT runFinished(result);
}

}  // namespace vn::desktop
