#pragma once

#include <QString>

namespace vn::desktop {

// The desktop's answer to a question git or ssh puts through the password-prompt companion: a
// small dialog, the answer printed on standard output (nothing is printed when the user
// cancels). Answers the exit status: 0 answered, 1 cancelled, 2 for a wrong command line.
int askPasswordMain(int argc, char** argv);

// The name of the prompt program next to the desktop executable.
inline constexpr const char* AskPasswordProgram = "varnel-askpass";

// Points VARNEL_LOGIN_PROMPTER at the prompt program beside `applicationDir` unless something
// else was chosen already, so that git's questions reach the user as dialogs.
void installPasswordPrompter(const QString& applicationDir);

}  // namespace vn::desktop
