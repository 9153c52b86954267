#include "desktop/VNPasswordDialog.h"

#include <QApplication>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "credentials/PasswordPrompt.h"

namespace vn::desktop {

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
