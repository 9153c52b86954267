#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Value.h"
#include "platform/Process.h"

// Told when a command failed for want of credentials, with the working folder and the remote the
// command talked to.
class VNAuthenticationDelegate {
  public:
    virtual ~VNAuthenticationDelegate() = default;
    virtual void authenticationFailed(const std::string& path, const std::string& remote) = 0;
};

// One run of an external tool: its environment, its output decoded as text, progress while it
// runs, the result by exit status, and re-runs after authentication failures.
//
// Launched on the main thread the run is asynchronous and reports through the notifications
// "VNTaskOutputReceived", "VNTaskErrorOutputReceived" and "VNTaskCompleted" (sender: the task) on
// the main loop; launched on any other thread, or through `run`, it runs to its end on the calling
// thread, posting the same notifications there. Tasks are shared objects: make them with
// `taskWithCommand` so that an asynchronous run keeps its task alive.
class VNTask : public vn::Object, public std::enable_shared_from_this<VNTask> {
  public:
    struct Range {
        uint64_t location = 0;
        uint64_t length = 0;
    };
    // How the last run ended.
    enum class Termination { NotRun, CouldNotStart, Exited, Signalled };
    using Sanitizer = std::function<std::string(const std::string&)>;

    static constexpr const char* OutputReceivedNotification = "VNTaskOutputReceived";
    static constexpr const char* ErrorOutputReceivedNotification = "VNTaskErrorOutputReceived";
    static constexpr const char* CompletedNotification = "VNTaskCompleted";

    static std::shared_ptr<VNTask> taskWithCommand(std::string command, std::string workingDir,
                                                   std::vector<std::string> args);
    static std::shared_ptr<VNTask> taskWithCommand(std::string command, std::string workingDir,
                                                   std::vector<std::string> args,
                                                   std::string pipeStdoutToFile);

    VNTask(std::string command, std::string workingDir, std::vector<std::string> args,
           std::optional<std::string> pipeStdoutToFile = std::nullopt);
    ~VNTask() override;
    VNTask(const VNTask&) = delete;
    VNTask& operator=(const VNTask&) = delete;

    void launch();
    // Runs to completion on the calling thread, with authentication re-runs; answers `success`.
    bool run();
    bool isRunning() const;
    void terminate();

    // Text appended since the previous call.
    std::string newOutput();
    std::string newErrorOutput();

    bool success() const { return success_; }
    int64_t exitCode() const { return exitCode_; }
    // Read these once the task has completed, or from the thread its notifications arrive on.
    const std::string& output() const { return output_; }
    const std::string& errorOutput() const { return errorOutput_; }
    const std::string& displayCommand() const { return displayCommand_; }
    Termination termination() const { return termination_; }
    // The signal that ended the process when `termination()` is Signalled; `exitCode()` is then
    // 128 plus the signal, as a shell reports it.
    int terminationSignal() const { return terminationSignal_; }
    Range newOutputRange() const { return newOutputRange_; }
    Range newErrorOutputRange() const { return newErrorOutputRange_; }
    int64_t authRetryCount() const { return authRetryCount_; }

    // Re-runs the command when the run failed for want of credentials; see
    // `checkForAuthenticationError`.
    bool relaunchIfAuthenticationError();
    bool checkForAuthenticationError();

    void configureSSHAskpassForUser(const std::string& user, const std::string& host,
                                    const std::string& url, bool setSSHAskpassEnvVar);
    void setSuppressUserPrompts(bool suppress);
    bool suppressUserPrompts() const { return suppressUserPrompts_; }
    const std::optional<vn::Environment>& askpassEnvironment() const { return askpassEnvironment_; }
    // One variable more in the prompt environment, which takes no customisations; nothing when
    // the task has none.
    void setAskpassEnvironmentValue(const std::string& name, const std::string& value);

    void addStandardEnvironment(vn::Environment& env) const;
    void addStandardGitEnvironment(vn::Environment& env) const;
    void addStandardHgEnvironment(vn::Environment& env) const;
    // The environment the next launch will give the process.
    vn::Environment preparedEnvironment() const;

    // Shows the out-of-descriptors alert.
    void nullPipeError();

    // Plain properties.
    const std::string& command() const { return command_; }
    void setCommand(std::string c) { command_ = std::move(c); }
    const std::string& workingDir() const { return workingDir_; }
    void setWorkingDir(std::string d) { workingDir_ = std::move(d); }
    const std::vector<std::string>& args() const { return args_; }
    void setArgs(std::vector<std::string> a) { args_ = std::move(a); }
    const std::optional<std::string>& pipeOutputToFile() const { return pipeOutputToFile_; }
    bool appendPipedOutput() const { return appendPipedOutput_; }
    void setAppendPipedOutput(bool v) { appendPipedOutput_ = v; }
    bool lossyUTF8Output() const { return lossyUTF8Output_; }
    void setLossyUTF8Output(bool v) { lossyUTF8Output_ = v; }
    // Standard output kept as the bytes the tool wrote, for output that carries file names: a
    // name must reach the next command unchanged, so its parser decodes the text fields itself.
    bool rawOutput() const { return rawOutput_; }
    void setRawOutput(bool v) { rawOutput_ = v; }
    bool returnProgressiveOutput() const { return returnProgressiveOutput_; }
    void setReturnProgressiveOutput(bool v) { returnProgressiveOutput_ = v; }
    bool attachStdin() const { return attachStdin_; }
    void setAttachStdin(bool v) { attachStdin_ = v; }
    const std::optional<vn::Environment>& environmentCustomisations() const {
        return environmentCustomisations_;
    }
    void setEnvironmentCustomisations(std::optional<vn::Environment> e) {
        environmentCustomisations_ = std::move(e);
    }
    std::vector<std::string>& additionalPathComponents() { return additionalPathComponents_; }
    void setOutputSanitizer(Sanitizer s) { outputSanitizer_ = std::move(s); }
    // Hands standard output to `consumer` in pieces as it arrives (each ending on a whole
    // character, decoded as the run asks) instead of keeping it in `output()`, so that a long
    // listing is read in constant memory.
    using OutputConsumer = std::function<void(std::string_view)>;
    void setOutputConsumer(OutputConsumer consumer) { outputConsumer_ = std::move(consumer); }
    void setErrorOutputSanitizer(Sanitizer s) { errorOutputSanitizer_ = std::move(s); }
    const std::string& remoteInfo() const { return remoteInfo_; }
    void setRemoteInfo(std::string r) { remoteInfo_ = std::move(r); }
    void setAuthenticationDelegate(std::weak_ptr<VNAuthenticationDelegate> d) {
        authenticationDelegate_ = std::move(d);
    }
    void setAuthenticationFailedDelegate(std::weak_ptr<VNAuthenticationDelegate> d) {
        authenticationFailedDelegate_ = std::move(d);
    }
    bool blocking() const { return blocking_; }
    // Keeps `resource` as long as the task lives: a file the command reads, removed with it.
    void holdUntilReleased(std::shared_ptr<void> resource) {
        heldResources_.push_back(std::move(resource));
    }
    // The master side of the pseudo-terminal given as standard input (-1 without one).
    int ttyFileDescriptor() const { return ttyFileHandle_.fd(); }

    vn::Value jsonValue() const override;

  private:
    void launchAttempt();
    void fail(const std::string& description);
    void handleOutputChunk(std::string_view data, bool final);
    void consumeOutputChunk(std::string_view data, bool final);
    void handleErrorChunk(std::string_view data, bool final);
    void taskTerminated(int64_t exitStatus, int termSignal);
    void finishRun();
    std::string fullDecode(const std::string& bytes) const;
    void post(const char* name);
    // Logs the run (at the debug level) with its arguments, secrets masked, and how long it took.
    void traceRun(std::string_view outcome) const;

    std::string command_;
    std::string workingDir_;
    std::vector<std::string> args_;
    std::string displayCommand_;
    std::optional<std::string> pipeOutputToFile_;
    bool appendPipedOutput_ = false;

    bool success_ = false;
    int64_t exitCode_ = -1;
    Termination termination_ = Termination::NotRun;
    int terminationSignal_ = 0;
    std::string output_;
    std::string errorOutput_;
    Range newOutputRange_;
    Range newErrorOutputRange_;

    std::weak_ptr<VNAuthenticationDelegate> authenticationDelegate_;
    std::weak_ptr<VNAuthenticationDelegate> authenticationFailedDelegate_;
    std::string remoteInfo_;
    bool blocking_ = false;
    uint64_t nextPromptCheckLocation_ = 0;
    uint64_t lastDetectedAuthError_ = 0;
    uint64_t lastDetectedAuthErrorInOutput_ = 0;
    int64_t authRetryCount_ = 0;
    std::optional<vn::Environment> askpassEnvironment_;
    std::optional<vn::Environment> environmentCustomisations_;
    std::optional<std::string> pendingOutputData_;
    std::string stderrBuffer_;
    // The end of a standard-error chunk that may be a character cut in two.
    std::string pendingErrorData_;
    bool suppressUserPrompts_ = false;
    bool lossyUTF8Output_ = false;
    bool rawOutput_ = false;
    bool returnProgressiveOutput_ = false;
    std::vector<std::string> additionalPathComponents_;
    bool attachStdin_ = false;
    Sanitizer outputSanitizer_;
    Sanitizer errorOutputSanitizer_;
    OutputConsumer outputConsumer_;

    vn::FileHandle ttyFileHandle_;
    vn::FileHandle stdinFileHandle_;
    std::unique_ptr<vn::Process> internalTask_;
    std::chrono::steady_clock::time_point launchTime_;
    mutable std::recursive_mutex mutex_;
    std::vector<std::shared_ptr<void>> heldResources_;
};
