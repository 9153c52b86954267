#pragma once

#include "DesktopSupport.h"

#include <QAbstractButton>
#include <QAbstractItemModelTester>
#include <QApplication>
#include <QEventLoop>
#include <QMessageBox>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>

// Failed comparisons of QString print the text, not its bytes.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace vn::test {

// Runs QAbstractItemModelTester on a model for as long as it lives and fails the test for every
// warning the tester prints meanwhile.
class CheckedModel {
  public:
    explicit CheckedModel(QAbstractItemModel* model) {
        messages() = {};
        previous_ = qInstallMessageHandler(&CheckedModel::handle);
        tester_ = std::make_unique<QAbstractItemModelTester>(
            model, QAbstractItemModelTester::FailureReportingMode::Warning);
    }
    ~CheckedModel() {
        tester_.reset();
        qInstallMessageHandler(previous_);
        EXPECT_TRUE(messages().isEmpty()) << messages().join(QStringLiteral("\n")).toStdString();
    }
    CheckedModel(const CheckedModel&) = delete;
    CheckedModel& operator=(const CheckedModel&) = delete;

  private:
    static QStringList& messages() {
        static QStringList list;
        return list;
    }
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text) {
        // The tester's own category; the offscreen platform's notes about windows are not the
        // model's business.
        if (type != QtDebugMsg && type != QtInfoMsg && context.category &&
            QByteArray(context.category).startsWith("qt.modeltest")) {
            messages().append(QString::fromUtf8(context.category ? context.category : "") +
                              QStringLiteral(": ") + text);
        }
    }
    QtMessageHandler previous_ = nullptr;
    std::unique_ptr<QAbstractItemModelTester> tester_;
};

// Spins a real event loop until `done` holds or the time is up; answers `done()`.
inline bool waitUntil(const std::function<bool()>& done, int timeoutMs = 20000) {
    return vn::test::desktop::waitInLoop(done, timeoutMs);
}

// Clicks the button of the next message box that opens, once it is up; answers the box's text
// through `text`.
inline void answerNextMessageBox(const QString& button, QString* text) {
    auto* timer = new QTimer;
    QObject::connect(timer, &QTimer::timeout, timer, [timer, button, text] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) {
            return;
        }
        *text = box->text();
        for (QAbstractButton* candidate : box->buttons()) {
            if (candidate->text() == button) {
                candidate->click();
            }
        }
        timer->deleteLater();
    });
    timer->start(10);
}

// Answers the message boxes that open while it lives, in turn, each with the button of that
// text, and keeps their texts. Boxes beyond the answers given are cancelled and counted too.
class MessageBoxAnswers {
  public:
    explicit MessageBoxAnswers(QStringList buttons) : buttons_(std::move(buttons)) {
        QObject::connect(&timer_, &QTimer::timeout, [this] { answer(); });
        timer_.start(10);
    }
    const QStringList& texts() const { return texts_; }

  private:
    void answer() {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        // A box just answered is hidden before its exec() returns.
        if (!box || !box->isVisible()) {
            return;
        }
        texts_.append(box->text());
        QString wanted = buttons_.isEmpty() ? QString() : buttons_.takeFirst();
        for (QAbstractButton* candidate : box->buttons()) {
            if (!wanted.isEmpty() && candidate->text() == wanted) {
                candidate->click();
                return;
            }
        }
        box->reject();
    }
    QStringList buttons_;
    QStringList texts_;
    QTimer timer_;
};

}  // namespace vn::test
