#include "handler/VNTask.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <iterator>

#include "base/Format.h"
#include "base/Record.h"
#include "base/TextEncoding.h"
#include "handler/GitSettings.h"
#include "handler/ToolPaths.h"
#include "platform/FileSystem.h"
#include "platform/Localized.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"
#include "platform/NotificationCenter.h"
#include "platform/Preferences.h"
#include "platform/Resources.h"
#include "platform/SecretRedaction.h"
#include "platform/UserInterface.h"

namespace {

bool startsWith(std::string_view s, std::string_view prefix) {
    return s.substr(0, prefix.size()) == prefix;
}

bool containsCaseInsensitive(std::string_view haystack, std::string_view needle) {
    auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                          [](char a, char b) {
                              return std::tolower(static_cast<unsigned char>(a)) ==
                                     std::tolower(static_cast<unsigned char>(b));
                          });
    return it != haystack.end();
}

std::string buildDisplayCommand(const std::string& command,
                                const std::vector<std::string>& givenArgs) {
    std::string name = vn::fs::lastPathComponent(command);
    // Shown to the user and written to logs: never with a secret in it.
    std::vector<std::string> args = vn::SecretRedaction::redactArguments(givenArgs);
    std::string display;
    if (startsWith(name, "hg")) {
        display = "hg ";
    } else if (startsWith(name, "git")) {
        display = "git ";
    } else if (startsWith(name, "svn")) {
        display = "svn ";
    } else {
        display = name + " ";
    }
    bool isGit = startsWith(name, "git");
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--no-pager" || startsWith(arg, "--exec-path") ||
            startsWith(arg, "--template") || startsWith(arg, "--config") ||
            startsWith(arg, "web.cacerts=")) {
            continue;
        }
        // Colour settings, and the settings every git command line pins, are noise in a
        // command line shown to the user.
        auto quiet = [](const std::string& setting) {
            return startsWith(setting, "color.") || vn::GitSettings::isPinned(setting);
        };
        if (isGit && (arg == vn::GitSettings::LiteralPathspecs ||
                      (startsWith(arg, "-c") && i + 1 < args.size() && quiet(args[i + 1])) ||
                      (i > 0 && startsWith(args[i - 1], "-c") && quiet(arg)))) {
            continue;
        }
        if (arg.find(' ') != std::string::npos) {
            display += "\"" + arg + "\" ";
        } else {
            display += arg + " ";
        }
    }
    return display;
}

// Variables that would point git at another repository, index, object store or configuration,
// run other programs for its diffs and pager, change how it reads paths, or add trace output
// to what is parsed. A run that needs one sets it through its environment customisations.
constexpr std::string_view RedirectingGitVariables[] = {
    "GIT_DIR",
    "GIT_WORK_TREE",
    "GIT_INDEX_FILE",
    "GIT_OBJECT_DIRECTORY",
    "GIT_ALTERNATE_OBJECT_DIRECTORIES",
    "GIT_NAMESPACE",
    "GIT_COMMON_DIR",
    "GIT_CEILING_DIRECTORIES",
    "GIT_DISCOVERY_ACROSS_FILESYSTEM",
    "GIT_IMPLICIT_WORK_TREE",
    "GIT_SHALLOW_FILE",
    "GIT_GRAFT_FILE",
    "GIT_REPLACE_REF_BASE",
    "GIT_NO_REPLACE_OBJECTS",
    "GIT_QUARANTINE_PATH",
    "GIT_CONFIG",
    "GIT_CONFIG_PARAMETERS",
    "GIT_CONFIG_COUNT",
    "GIT_PREFIX",
    "GIT_SUPER_PREFIX",
    "GIT_EXTERNAL_DIFF",
    "GIT_DIFF_OPTS",
    "GIT_DIFF_PATH_COUNTER",
    "GIT_DIFF_PATH_TOTAL",
    "GIT_PAGER",
    "PAGER",
    "GIT_PAGER_IN_USE",
    "GIT_LITERAL_PATHSPECS",
    "GIT_GLOB_PATHSPECS",
    "GIT_NOGLOB_PATHSPECS",
    "GIT_ICASE_PATHSPECS",
    "GIT_NOTES_REF",
    "GIT_NOTES_DISPLAY_REF",
    "GIT_PRINT_SHA1_ELLIPSIS",
    "GIT_ATTR_SOURCE",
};
// Whole families: GIT_CONFIG_KEY_<n> and GIT_CONFIG_VALUE_<n>, and every trace switch.
constexpr std::string_view RedirectingGitVariablePrefixes[] = {
    "GIT_CONFIG_KEY_",
    "GIT_CONFIG_VALUE_",
    "GIT_TRACE",
    "GIT_INTERNAL_",
};

void removeRedirectingGitVariables(vn::Environment& env) {
    for (std::string_view name : RedirectingGitVariables) {
        env.erase(std::string(name));
    }
    for (auto it = env.begin(); it != env.end();) {
        bool family = false;
        for (std::string_view prefix : RedirectingGitVariablePrefixes) {
            family = family || startsWith(it->first, prefix);
        }
        it = family ? env.erase(it) : std::next(it);
    }
}

void appendToPath(vn::Environment& env, const std::string& folder) {
    auto it = env.find("PATH");
    if (it == env.end()) {
        env["PATH"] = folder;
    } else {
        it->second += ":" + folder;
    }
}

// A word as a shell would need it to read it back unchanged.
std::string shellQuoted(const std::string& word) {
    bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) ||
               std::string_view("_@%+=:,./-^~{}").find(c) != std::string_view::npos;
    });
    if (plain) {
        return word;
    }
    std::string quoted = "'";
    for (char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

int logContextFor(const std::string& command) {
    std::string name = vn::fs::lastPathComponent(command);
    if (startsWith(name, "git")) {
        return vn::Log::Git;
    }
    return startsWith(name, "hg") ? vn::Log::Mercurial : vn::Log::General;
}

}  // namespace

std::shared_ptr<VNTask> VNTask::taskWithCommand(std::string command, std::string workingDir,
                                                std::vector<std::string> args) {
    return std::make_shared<VNTask>(std::move(command), std::move(workingDir), std::move(args));
}

std::shared_ptr<VNTask> VNTask::taskWithCommand(std::string command, std::string workingDir,
                                                std::vector<std::string> args,
                                                std::string pipeStdoutToFile) {
    return std::make_shared<VNTask>(std::move(command), std::move(workingDir), std::move(args),
                                    std::move(pipeStdoutToFile));
}

VNTask::VNTask(std::string command, std::string workingDir, std::vector<std::string> args,
               std::optional<std::string> pipeStdoutToFile)
    : command_(std::move(command)),
      workingDir_(std::move(workingDir)),
      args_(std::move(args)),
      pipeOutputToFile_(std::move(pipeStdoutToFile)) {
    displayCommand_ = buildDisplayCommand(command_, args_);
}

VNTask::~VNTask() = default;

void VNTask::post(const char* name) {
    vn::NotificationCenter::defaultCenter().post(name, this);
}

void VNTask::addStandardEnvironment(vn::Environment& env) const {
    if (vn::fs::isDirectory("/Developer/usr/bin")) {
        appendToPath(env, "/Developer/usr/bin");
    }
    std::string name = vn::fs::lastPathComponent(command_);
    if (startsWith(name, "hg")) {
        addStandardHgEnvironment(env);
    } else if (startsWith(name, "git")) {
        addStandardGitEnvironment(env);
    }
    for (const std::string& folder : additionalPathComponents_) {
        appendToPath(env, folder);
    }
}

void VNTask::addStandardGitEnvironment(vn::Environment& env) const {
    std::string gitDir = vn::fs::deletingLastPathComponent(vn::ToolPaths::gitPath());
    std::string flowDir = vn::fs::deletingLastPathComponent(vn::ToolPaths::gitFlowPath());
    std::string lfsDir = vn::fs::deletingLastPathComponent(vn::ToolPaths::gitLfsPath());
    std::string path = gitDir;
    // Only equality with the git folder is tested; git-flow and git-lfs sharing a folder puts it
    // in twice, which is harmless.
    if (flowDir != gitDir) {
        path += ":" + flowDir;
    }
    if (lfsDir != gitDir) {
        path += ":" + lfsDir;
    }
    if (auto it = env.find("PATH"); it != env.end()) {
        path += ":" + it->second;
    }
    path = vn::Resources::pathFor("bin") + ":" + path;
    vn::Preferences& prefs = vn::Preferences::standard();
    std::string gpg = prefs.stringForKey("gpgProgram");
    if (!gpg.empty()) {
        path += ":" + gpg;
    }
    env["PATH"] = path;
    env["PERL5LIB"] = vn::Resources::pathFor("git_local/lib/perl5/site_perl");
    env["PYTHONPATH"] = vn::Resources::pathFor("git_local/lib/python2.6/site-packages");
    env["PYTHONDONTWRITEBYTECODE"] = "1";
    if (prefs.boolForKey("gitDisableSSLCheck")) {
        env["GIT_SSL_NO_VERIFY"] = "1";
    }
    if (prefs.integerForKey("gitWhichOne") == 0) {
        env["GIT_EXEC_PATH"] = vn::Resources::pathFor("git_local/libexec/git-core");
    }
    removeRedirectingGitVariables(env);
    // Messages in the C locale, so that what is read from them (states, failures, prompts for
    // credentials) is the same for every user; names and contents stay UTF-8. Git's output that
    // the user reads is English too, which is also what a search for a message finds.
    env["LC_ALL"] = "C.UTF-8";
    env.erase("LANGUAGE");
}

void VNTask::addStandardHgEnvironment(vn::Environment& env) const {
    env["HGENCODING"] = "UTF-8";
    env["HGPLAIN"] = "1";
    // A user's own exceptions would bring aliases and colour back into what the parsers read.
    env["HGPLAINEXCEPT"] = "";
    env["HGRCPATH"] = vn::format("~/.hgrc:%@:%@", vn::AppData::pathFor("hgrc_userext_disable"),
                                 vn::AppData::pathFor("hgrc_varnel"));
    env["PYTHONDONTWRITEBYTECODE"] = "1";
    std::string svnDir = vn::fs::deletingLastPathComponent(vn::ToolPaths::svnPath());
    auto it = env.find("PATH");
    if (it == env.end() || it->second.empty()) {
        env["PATH"] = svnDir;
    } else {
        // Appended piecewise: `":" + svnDir` trips a false -Wrestrict in optimised g++ 12 builds.
        it->second.append(":").append(svnDir);
    }
    addStandardGitEnvironment(env);
}

vn::Environment VNTask::preparedEnvironment() const {
    if (askpassEnvironment_) {
        // Deliberately whole: customisations do not reach a run that uses the password prompt.
        return *askpassEnvironment_;
    }
    vn::Environment env = vn::processEnvironment();
    addStandardEnvironment(env);
    if (environmentCustomisations_) {
        for (const auto& [key, value] : *environmentCustomisations_) {
            env[key] = value;
        }
    }
    return env;
}

void VNTask::configureSSHAskpassForUser(const std::string& user, const std::string& host,
                                        const std::string& url, bool setSSHAskpassEnvVar) {
    vn::Environment env = vn::processEnvironment();
    env["DISPLAY"] = "NONE";
    env["AUTH_USERNAME"] = user;
    env["AUTH_HOSTNAME"] = host;
    env["AUTH_URL"] = url;
    if (setSSHAskpassEnvVar) {
        env["SSH_ASKPASS"] = vn::ToolPaths::askpassPath();
    }
    addStandardEnvironment(env);
    if (suppressUserPrompts_) {
        env["AUTH_NO_PROMPTS"] = "1";
    }
    askpassEnvironment_ = std::move(env);
}

void VNTask::setAskpassEnvironmentValue(const std::string& name, const std::string& value) {
    if (askpassEnvironment_) {
        (*askpassEnvironment_)[name] = value;
    }
}

void VNTask::setSuppressUserPrompts(bool suppress) {
    suppressUserPrompts_ = suppress;
    if (!askpassEnvironment_) {
        return;
    }
    if (suppress) {
        askpassEnvironment_->emplace("AUTH_NO_PROMPTS", "1");
    } else {
        askpassEnvironment_->erase("AUTH_NO_PROMPTS");
    }
}

void VNTask::nullPipeError() {
    vn::Alert alert;
    alert.title = "System error";
    alert.message =
        "It appears that the system has run out of file descriptors as described in this bug "
        "report: https://github.com/tuist/Command/pull/275. The only way to resolve this is to "
        "reboot your Mac.\n\nThis is not a Varnel error but a problem with file descriptor "
        "management either in another app, or a bug in OS X.";
    alert.buttons = {"OK"};
    alert.critical = true;
    vn::UserInterface::current()->showAlert(alert);
}

void VNTask::launch() {
    launchAttempt();
}

void VNTask::traceRun(std::string_view outcome) const {
    if (!vn::Log::isEnabled(vn::Log::Debug)) {
        return;
    }
    std::string line = "ran " + shellQuoted(command_);
    for (const std::string& arg : vn::SecretRedaction::redactArguments(args_)) {
        line.append(" ").append(shellQuoted(arg));
    }
    auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - launchTime_);
    line.append(" (in ").append(workingDir_).append("): ").append(outcome);
    long long micros = static_cast<long long>(elapsed.count());
    line.append(vn::format(" after %lld.%lld ms", micros / 1000, micros % 1000 / 100));
    vn::Log::debug(line, logContextFor(command_));
}

void VNTask::fail(const std::string& description) {
    {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        errorOutput_ += description + "\n";
        newErrorOutputRange_.length += description.size() + 1;
        termination_ = Termination::CouldNotStart;
    }
    post(ErrorOutputReceivedNotification);
    output_.clear();
    post(CompletedNotification);
    vn::Log::error(vn::format("Task '%@' threw exception: %@", displayCommand_, description));
    traceRun("could not start");
}

void VNTask::launchAttempt() {
    success_ = false;
    exitCode_ = -1;
    termination_ = Termination::NotRun;
    terminationSignal_ = 0;
    nextPromptCheckLocation_ = 0;
    lastDetectedAuthError_ = 0;
    lastDetectedAuthErrorInOutput_ = 0;
    pendingOutputData_.reset();
    stderrBuffer_.clear();
    pendingErrorData_.clear();

    launchTime_ = std::chrono::steady_clock::now();
    if (!vn::fs::exists(workingDir_)) {
        traceRun("not started, the folder does not exist");
        errorOutput_ = "Path does not exist";
        output_.clear();
        post(CompletedNotification);
        return;
    }

    vn::Process::Options options;
    options.executable = command_;
    options.args = args_;
    options.workingDir = workingDir_;

    vn::OutputPipe stderrPipe = vn::OutputPipe::open();
    if (!stderrPipe.readEnd.valid()) {
        nullPipeError();
        return;
    }
    vn::OutputPipe stdoutPipe;
    vn::FileHandle outputFile;
    if (pipeOutputToFile_) {
        outputFile = vn::FileHandle::openOutputFile(*pipeOutputToFile_, appendPipedOutput_);
        if (!outputFile.valid()) {
            errorOutput_ = vn::localizedFormat("TaskCantCreateOutputFile", *pipeOutputToFile_);
            newErrorOutputRange_ = {0, errorOutput_.size()};
            post(ErrorOutputReceivedNotification);
            post(CompletedNotification);
            return;
        }
        options.stdoutFd = outputFile.fd();
    } else {
        stdoutPipe = vn::OutputPipe::open();
        if (!stdoutPipe.readEnd.valid()) {
            stderrPipe = {};
            nullPipeError();
            return;
        }
        options.stdoutPipe = &stdoutPipe;
    }
    options.stderrPipe = &stderrPipe;

    if (!authenticationDelegate_.expired() && askpassEnvironment_) {
        vn::internalAssertion("Choose one or the other of authenticationDelegate and askpass");
    }
    if (attachStdin_) {
        vn::PseudoTerminal pty = vn::PseudoTerminal::open();
        if (pty.master.valid()) {
            ttyFileHandle_ = std::move(pty.master);
            stdinFileHandle_ = std::move(pty.slave);
            options.stdinFd = stdinFileHandle_.fd();
        } else {
            vn::Log::error(vn::format(
                "TTY creation for stdin failed, this may cause knock-on effects. Error code: %d",
                pty.error));
        }
    }
    options.environment = preparedEnvironment();

    {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        output_.clear();
        errorOutput_.clear();
        newOutputRange_ = {};
        newErrorOutputRange_ = {};
        internalTask_ = std::make_unique<vn::Process>();
    }

    // An asynchronous run keeps its task alive until it has reported.
    std::shared_ptr<VNTask> keepAlive = weak_from_this().lock();
    bool asynchronous = !blocking_ && vn::MainLoop::isMainThread();

    vn::Process::Callbacks callbacks;
    callbacks.stdoutData = [this](std::string_view chunk) { handleOutputChunk(chunk, false); };
    callbacks.stderrData = [this, asynchronous](std::string_view chunk) {
        if (asynchronous) {
            handleErrorChunk(chunk, false);
        } else {
            // A synchronous run reads standard error to its end in one final read.
            stderrBuffer_.append(chunk);
        }
    };
    callbacks.finished = [this, keepAlive, asynchronous](int64_t status, int signal) {
        taskTerminated(status, signal);
        if (asynchronous) {
            finishRun();
        }
    };

    int rc;
    vn::Process* process = internalTask_.get();
    if (asynchronous) {
        rc = process->start(vn::MainLoop::main()->uvLoop(), options, std::move(callbacks));
    } else {
        rc = process->runToCompletion(options, std::move(callbacks));
    }
    outputFile.reset();
    if (rc != 0) {
        ttyFileHandle_.reset();
        stdinFileHandle_.reset();
        fail(vn::format("Cannot run %@: %@", command_, vn::Process::errorDescription(rc)));
    } else if (!asynchronous) {
        // Decided here rather than inside the loop's callback, so that a re-run starts after the
        // previous process's loop has finished.
        finishRun();
    }
}

std::string VNTask::fullDecode(const std::string& bytes) const {
    // Line by line: one line in another encoding leaves the others as they are.
    return vn::decodeToolOutput(bytes, lossyUTF8Output_);
}

void VNTask::handleOutputChunk(std::string_view data, bool final) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (pipeOutputToFile_) {
        return;
    }
    if (outputConsumer_) {
        consumeOutputChunk(data, final);
        return;
    }
    if (!data.empty()) {
        if (!pendingOutputData_) {
            pendingOutputData_.emplace();
        }
        pendingOutputData_->append(data);
    }
    if (!pendingOutputData_ || (!final && !returnProgressiveOutput_)) {
        return;
    }
    std::string& pending = *pendingOutputData_;
    std::string text;
    if (rawOutput_) {
        text = std::move(pending);
        pendingOutputData_.reset();
    } else if (final) {
        // Valid UTF-8 is its own decoding: moved, not copied (tool output can be hundreds of MB).
        text = vn::isValidUTF8(pending) ? std::move(pending) : fullDecode(pending);
        pendingOutputData_.reset();
    } else {
        // Whole lines are decided now, each by itself. Of the line still arriving, what is valid
        // UTF-8 so far goes too; a character cut at the chunk's end, or a line that is not
        // UTF-8, waits for more.
        std::size_t lineEnd = pending.rfind('\n');
        std::size_t cut = lineEnd == std::string::npos ? 0 : lineEnd + 1;
        std::string_view tail = std::string_view(pending).substr(cut);
        std::size_t keep = vn::completeUTF8PrefixLength(tail);
        if (!vn::isValidUTF8(tail.substr(0, keep))) {
            keep = 0;
        }
        text = vn::decodeToolOutput(std::string_view(pending).substr(0, cut), lossyUTF8Output_);
        text.append(tail.substr(0, keep));
        pending.erase(0, cut + keep);
        if (pending.empty()) {
            pendingOutputData_.reset();
        }
    }
    if (outputSanitizer_) {
        text = outputSanitizer_(text);
    }
    if (text.empty()) {
        return;
    }
    if (output_.empty()) {
        output_ = std::move(text);
        newOutputRange_.length += output_.size();
    } else {
        newOutputRange_.length += text.size();
        output_ += text;
    }
    post(OutputReceivedNotification);
}

void VNTask::consumeOutputChunk(std::string_view data, bool final) {
    if (!pendingOutputData_) {
        pendingOutputData_.emplace();
    }
    std::string& pending = *pendingOutputData_;
    pending.append(data);
    // A character cut at the chunk's end waits for its remaining bytes.
    std::size_t complete = final ? pending.size() : vn::completeUTF8PrefixLength(pending);
    if (complete == 0) {
        return;
    }
    std::string_view piece(pending.data(), complete);
    if (vn::isValidUTF8(piece)) {
        outputConsumer_(piece);
    } else {
        outputConsumer_(lossyUTF8Output_ ? vn::repairUTF8(std::string(piece))
                                         : fullDecode(std::string(piece)));
    }
    pending.erase(0, complete);
}

void VNTask::handleErrorChunk(std::string_view data, bool final) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    std::string bytes = std::move(pendingErrorData_);
    pendingErrorData_.clear();
    bytes.append(data);
    if (!final) {
        // A character cut at the chunk's end waits for the rest of its bytes.
        std::size_t complete = vn::completeUTF8PrefixLength(bytes);
        pendingErrorData_ = bytes.substr(complete);
        bytes.resize(complete);
    }
    std::string text = fullDecode(bytes);
    if (errorOutputSanitizer_) {
        text = errorOutputSanitizer_(text);
    }
    if (text.empty()) {
        return;
    }
    errorOutput_ += text;
    newErrorOutputRange_.length += text.size();
    post(ErrorOutputReceivedNotification);
}

void VNTask::taskTerminated(int64_t exitStatus, int termSignal) {
    {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        handleOutputChunk({}, true);
        if (!stderrBuffer_.empty() || !pendingErrorData_.empty()) {
            std::string bytes = std::move(stderrBuffer_);
            stderrBuffer_.clear();
            handleErrorChunk(bytes, true);
        }
        if (termSignal != 0) {
            termination_ = Termination::Signalled;
            terminationSignal_ = termSignal;
            exitCode_ = 128 + termSignal;
        } else {
            termination_ = Termination::Exited;
            exitCode_ = exitStatus;
        }
        success_ = termination_ == Termination::Exited && exitCode_ == 0;
        ttyFileHandle_.reset();
        stdinFileHandle_.reset();
    }
    traceRun(termSignal != 0 ? vn::format("killed by signal %d", termSignal)
                             : vn::format("exit status %lld", static_cast<long long>(exitStatus)));
}

void VNTask::finishRun() {
    if (!success_ && !blocking_ && relaunchIfAuthenticationError()) {
        return;
    }
    post(CompletedNotification);
}

bool VNTask::checkForAuthenticationError() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    bool errorGrew = errorOutput_.size() > lastDetectedAuthError_;
    bool outputGrew = output_.size() > lastDetectedAuthErrorInOutput_;
    if (!errorGrew && !outputGrew) {
        return false;
    }
    std::string_view newError =
        errorGrew ? std::string_view(errorOutput_).substr(lastDetectedAuthError_) : "";
    std::string_view newOutput =
        outputGrew ? std::string_view(output_).substr(lastDetectedAuthErrorInOutput_) : "";
    lastDetectedAuthError_ = errorOutput_.size();
    lastDetectedAuthErrorInOutput_ = output_.size();

    auto delegate = authenticationDelegate_.lock();
    auto failedDelegate = authenticationFailedDelegate_.lock();
    if (!delegate && !failedDelegate) {
        return false;
    }
    bool hit = containsCaseInsensitive(newError, "authorization failed") ||
               containsCaseInsensitive(newError, "Authentication failed") ||
               containsCaseInsensitive(newOutput, "Permission denied") ||
               containsCaseInsensitive(newError, "Permission denied") ||
               containsCaseInsensitive(newError, "svn: Network connection closed unexpectedly");
    if (!hit || authRetryCount_ > 2) {
        return false;
    }
    if (errorOutput_.find("User cancelled password prompt.") != std::string::npos) {
        return false;
    }
    ++authRetryCount_;
    if (delegate) {
        delegate->authenticationFailed(workingDir_, remoteInfo_);
    } else {
        failedDelegate->authenticationFailed(workingDir_, remoteInfo_);
    }
    return true;
}

bool VNTask::relaunchIfAuthenticationError() {
    if (!checkForAuthenticationError() || suppressUserPrompts_) {
        return false;
    }
    {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        output_.clear();
        errorOutput_.clear();
        newOutputRange_ = {};
        newErrorOutputRange_ = {};
    }
    launchAttempt();
    return true;
}

bool VNTask::run() {
    blocking_ = true;
    launchAttempt();
    if (success_) {
        return true;
    }
    while (relaunchIfAuthenticationError()) {
        if (success_) {
            break;
        }
    }
    return success_;
}

bool VNTask::isRunning() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return internalTask_ && internalTask_->isRunning();
}

void VNTask::terminate() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (internalTask_) {
        internalTask_->terminate();
    }
}

std::string VNTask::newOutput() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    std::string text = output_.substr(std::min<uint64_t>(newOutputRange_.location, output_.size()),
                                      newOutputRange_.length);
    newOutputRange_ = {newOutputRange_.location + newOutputRange_.length, 0};
    return text;
}

std::string VNTask::newErrorOutput() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    std::string text =
        errorOutput_.substr(std::min<uint64_t>(newErrorOutputRange_.location, errorOutput_.size()),
                            newErrorOutputRange_.length);
    newErrorOutputRange_ = {newErrorOutputRange_.location + newErrorOutputRange_.length, 0};
    return text;
}

vn::Value VNTask::jsonValue() const {
    vn::Value::Array args;
    for (const std::string& a : args_) {
        args.emplace_back(a);
    }
    return vn::Record{
        {"command", command_},       {"args", std::move(args)},
        {"workingDir", workingDir_}, {"displayCommand", displayCommand_},
        {"success", success_},       {"exitCode", exitCode_},
        {"output", output_},         {"errorOutput", errorOutput_},
    };
}
