#pragma once

#include <QDialog>
#include <QString>

#include <memory>
#include <string>
#include <vector>

#include "handler/VNRepoHandler.h"
#include "platform/NotificationCenter.h"

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace vn::desktop {

// Runs a list of tasks one after the other on the GUI thread's main loop and shows what git
// prints while they run, its progress lines ("\r"-terminated) overwriting each other as on a
// terminal. The run stops at the first failure; Cancel stops the running command. The window
// stays open after a failure so that git's own words can be read.
class VNProgressWindow : public QDialog {
    Q_OBJECT
  public:
    // How a run ended, in the task runner's numbers: 1 when every task succeeded.
    static constexpr int ResultSuccess = 1;
    static constexpr int ResultFailed = 0;
    static constexpr int ResultCancelled = -1;

    VNProgressWindow(std::string repositoryPath, const QString& title, QWidget* parent = nullptr);
    ~VNProgressWindow() override;

    // Starts the tasks; git commands among `progressCommands` (for example "push") get
    // "--progress" so that they report progress into a pipe too. Posts "longTaskStarted" now
    // and "longTaskFinished" when the run ends.
    void run(VNTaskList tasks, const std::vector<std::string>& progressCommands = {});

    bool running() const { return running_; }
    int result() const { return result_; }
    QString transcript() const;
    // Stops the running command and the tasks after it.
    void cancel();

  Q_SIGNALS:
    void runFinished(int result);

  protected:
    void reject() override;

  private:
    void startNext();
    void taskCompleted();
    void append(const std::string& text);
    void finish(int result);

    std::string path_;
    QLabel* status_;
    QPlainTextEdit* output_;
    QPushButton* cancelButton_;
    QPushButton* closeButton_;
    VNTaskList tasks_;
    std::vector<std::string> progressCommands_;
    std::size_t next_ = 0;
    std::shared_ptr<VNTask> current_;
    std::vector<vn::NotificationCenter::Observation> observations_;
    // Text after the last line end, rewritten while git updates a progress line.
    QString pendingLine_;
    QString finishedText_;
    bool running_ = false;
    bool cancelled_ = false;
    int result_ = ResultFailed;
};

// The notifications that bracket a long run for a repository (userInfo "path").
void postLongTaskNotification(const char* name, const std::string& path);

}  // namespace vn::desktop
