#include "credentials/PasswordPrompt.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstring>

#include "handler/VNTask.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"

namespace vn {

namespace {

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

std::string firstLine(std::string_view text) {
    std::string line(text.substr(0, text.find('\n')));
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(n));
    }
}

// The terminal's settings while echo is off, put back if a signal ends the program meanwhile.
int gTerminalFd = -1;
struct termios gSavedTerminal;

void restoreTerminalAndReraise(int signal) {
    if (gTerminalFd >= 0) {
        ::tcsetattr(gTerminalFd, TCSAFLUSH, &gSavedTerminal);
        if (::write(gTerminalFd, "\n", 1) < 0) {
            // Nothing more can be done while the program is ending.
        }
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

std::string PasswordPrompt::variable(const char* name) const {
    auto it = environment_.find(name);
    return it == environment_.end() ? std::string() : it->second;
}

bool PasswordPrompt::promptsSuppressed() const {
    std::string value = variable("AUTH_NO_PROMPTS");
    return !value.empty() && value != "0";
}

PasswordPrompt::Kind PasswordPrompt::classify(std::string_view question) {
    std::string text = lowercase(question);
    if (text.find("passphrase") != std::string::npos) {
        return Kind::Passphrase;
    }
    if (text.find("password") != std::string::npos) {
        return Kind::Password;
    }
    if (text.rfind("username", 0) == 0 || text.find("username for") != std::string::npos) {
        return Kind::Username;
    }
    return Kind::Other;
}

std::optional<std::string> PasswordPrompt::ask(const std::string& question, bool secret) {
    if (promptsSuppressed()) {
        return std::nullopt;
    }
    std::string answers = variable("VARNEL_LOGIN_ANSWER_FILE");
    if (!answers.empty()) {
        return askAnswerFile(answers, question);
    }
    std::string prompter = variable("VARNEL_LOGIN_PROMPTER");
    if (!prompter.empty()) {
        return askPrompter(prompter, question);
    }
    return askTerminal(question, secret);
}

std::optional<std::string> PasswordPrompt::askAnswerFile(const std::string& path,
                                                         const std::string& question) {
    std::string asked = fs::readFile(path + ".asked").value_or("");
    fs::writeFileAtomically(path + ".asked", asked + firstLine(question) + "\n", nullptr, 0600);
    auto text = fs::readFile(path);
    if (!text || text->empty()) {
        return std::nullopt;
    }
    std::size_t end = text->find('\n');
    std::string answer = firstLine(*text);
    std::string rest = end == std::string::npos ? "" : text->substr(end + 1);
    fs::writeFileAtomically(path, rest, nullptr, 0600);
    return answer;
}

std::optional<std::string> PasswordPrompt::askPrompter(const std::string& program,
                                                       const std::string& question) {
    auto task = VNTask::taskWithCommand(program, fs::homeDirectory(), {question});
    task->setEnvironmentCustomisations(environment_);
    if (!task->run()) {
        return std::nullopt;
    }
    return firstLine(task->output());
}

std::optional<std::string> PasswordPrompt::askTerminal(const std::string& question, bool secret) {
    int fd = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        Log::warning("No terminal to ask for credentials on");
        return std::nullopt;
    }
    writeAll(fd, question);
    bool echoOff = false;
    struct sigaction previous[3];
    const int signals[3] = {SIGINT, SIGTERM, SIGHUP};
    if (secret && ::tcgetattr(fd, &gSavedTerminal) == 0) {
        struct termios quiet = gSavedTerminal;
        quiet.c_lflag &= static_cast<tcflag_t>(~(ECHO | ECHONL));
        quiet.c_lflag |= ICANON;
        gTerminalFd = fd;
        struct sigaction handler {};
        handler.sa_handler = restoreTerminalAndReraise;
        sigemptyset(&handler.sa_mask);
        for (int i = 0; i < 3; ++i) {
            ::sigaction(signals[i], &handler, &previous[i]);
        }
        echoOff = ::tcsetattr(fd, TCSAFLUSH, &quiet) == 0;
    }
    std::string answer;
    bool ended = false;
    for (;;) {
        char c;
        ssize_t n = ::read(fd, &c, 1);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        if (c == '\n') {
            ended = true;
            break;
        }
        answer.push_back(c);
    }
    if (secret && gTerminalFd == fd) {
        if (echoOff) {
            ::tcsetattr(fd, TCSAFLUSH, &gSavedTerminal);
            writeAll(fd, "\n");
        }
        for (int i = 0; i < 3; ++i) {
            ::sigaction(signals[i], &previous[i], nullptr);
        }
        gTerminalFd = -1;
    }
    ::close(fd);
    // End of input before a line (Ctrl-D) is a cancel.
    if (!ended) {
        return std::nullopt;
    }
    if (!answer.empty() && answer.back() == '\r') {
        answer.pop_back();
    }
    return answer;
}

int runAskpass(const std::string& question, PasswordPrompt& prompt, CredentialStore& store,
               const Environment& environment, std::string& out) {
    auto variable = [&](const char* name) {
        auto it = environment.find(name);
        return it == environment.end() ? std::string() : it->second;
    };
    std::string url = variable("AUTH_URL");
    std::string user = variable("AUTH_USERNAME");
    // Passwords are filed only for a remote that names a host: a local path has none to share.
    bool filed = !url.empty() && !CredentialStore::hostFromURL(url).empty();
    std::optional<std::string> answer;
    switch (PasswordPrompt::classify(question)) {
        case PasswordPrompt::Kind::Username:
            answer = user.empty() ? prompt.ask(question, false) : std::optional<std::string>(user);
            break;
        case PasswordPrompt::Kind::Password:
            if (filed) {
                if (auto stored = store.credentialForURL(url, user)) {
                    out = stored->password;
                    return 0;
                }
            }
            answer = prompt.ask(question, true);
            if (answer && filed) {
                // Kept until the remote refuses it: the failed run drops it again.
                store.setPasswordForURL(url, user, *answer);
            }
            break;
        case PasswordPrompt::Kind::Passphrase:
            answer = prompt.ask(question, true);
            break;
        case PasswordPrompt::Kind::Other:
            answer = prompt.ask(question, lowercase(question).find("yes/no") == std::string::npos);
            break;
    }
    if (!answer) {
        return 1;
    }
    out = *answer;
    return 0;
}

}  // namespace vn
