#include "desktop/VNPasswordDialog.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "credentials/PasswordPrompt.h"

namespace vn::desktop {

namespace {

// Automated tests answer the dialog as a user would: once it is up, the first line of the file
// VARNEL_ASKPASS_TEST_REPLIES is typed into it and OK pressed (a line "<cancel>" presses
// Cancel); what the dialog showed is appended to the file's ".shown" companion as
// "label<TAB>password|normal". Without the variable nothing happens.
void answerForTests(QInputDialog& dialog) {
    const char* replies = std::getenv("VARNEL_ASKPASS_TEST_REPLIES");
    if (!replies || !*replies) {
        return;
    }
    QString path = QString::fromLocal8Bit(replies);
    QTimer::singleShot(0, &dialog, [&dialog, path] {
        QFile file(path);
        QString reply;
        QStringList rest;
        if (file.open(QIODevice::ReadOnly)) {
            rest = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
            file.close();
            reply = rest.isEmpty() ? QString() : rest.takeFirst();
        }
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            file.write(rest.join(QLatin1Char('\n')).toUtf8());
            file.close();
        }
        auto* field = dialog.findChild<QLineEdit*>();
        QFile shown(path + QStringLiteral(".shown"));
        if (shown.open(QIODevice::Append)) {
            bool hidden = field && field->echoMode() == QLineEdit::Password;
            shown.write((dialog.labelText() + QLatin1Char('\t') +
                         (hidden ? QStringLiteral("password") : QStringLiteral("normal")) +
                         QLatin1Char('\n'))
                            .toUtf8());
            shown.close();
        }
        auto* buttons = dialog.findChild<QDialogButtonBox*>();
        if (!field || !buttons || reply == QStringLiteral("<cancel>")) {
            dialog.reject();
            return;
        }
        field->setText(reply);
        buttons->button(QDialogButtonBox::Ok)->click();
    });
}

}  // namespace

int askPasswordMain(int argc, char** argv) {
    // "varnel-askpass QUESTION" or "varnel --ask-password QUESTION".
    int first = 1;
    if (argc > 1 && std::string_view(argv[1]) == "--ask-password") {
        first = 2;
    }
    if (argc != first + 1) {
        std::cerr << "usage: " << AskPasswordProgram << " QUESTION\n";
        return 2;
    }
    std::string question = argv[first];
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Varnel"));
    auto kind = vn::PasswordPrompt::classify(question);
    bool secret =
        kind == vn::PasswordPrompt::Kind::Password || kind == vn::PasswordPrompt::Kind::Passphrase;
    QInputDialog dialog;
    dialog.setWindowTitle(QObject::tr("Varnel: Authentication"));
    dialog.setLabelText(QString::fromStdString(question).trimmed());
    dialog.setTextEchoMode(secret ? QLineEdit::Password : QLineEdit::Normal);
    dialog.setInputMode(QInputDialog::TextInput);
    dialog.resize(420, dialog.sizeHint().height());
    answerForTests(dialog);
    if (dialog.exec() != QDialog::Accepted) {
        return 1;
    }
    std::cout << dialog.textValue().toStdString() << "\n" << std::flush;
    return 0;
}

void installPasswordPrompter(const QString& applicationDir) {
    if (std::getenv("VARNEL_LOGIN_PROMPTER")) {
        return;
    }
    QString program = applicationDir + QLatin1Char('/') + QLatin1String(AskPasswordProgram);
    if (QFileInfo(program).isExecutable()) {
        setenv("VARNEL_LOGIN_PROMPTER", program.toLocal8Bit().constData(), 1);
    }
}

}  // namespace vn::desktop
