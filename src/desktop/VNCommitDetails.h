#pragma once

#include <QWidget>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Record.h"

class QListWidget;
class QListWidgetItem;
class QSplitter;
class QTextBrowser;
class VNDiffModel;
class VNRepoHandler;

namespace vn::desktop {

// The details of one commit: its message, parents and labels, the files it changed, and the
// diff of the file chosen among them.
class VNCommitDetails : public QWidget {
    Q_OBJECT
  public:
    VNCommitDetails(std::shared_ptr<VNRepoHandler> handler, std::string path,
                    QWidget* parent = nullptr);

    // Reads the commit's details and files off the GUI thread; the first file's diff follows.
    void showRevision(const std::string& rev);
    void clear();
    const std::string& revision() const { return revision_; }
    // Whether everything asked for has arrived: the details, and the diff of the chosen file.
    bool settled() const { return detailsLoaded_ && !diffPending_; }

    // Where a file's parsed diff goes (the diff view); it is given null while one loads.
    void setDiffPresenter(std::function<void(std::shared_ptr<VNDiffModel>)> presenter) {
        presentDiff_ = std::move(presenter);
    }
    void setDiffWidget(QWidget* widget);

    QTextBrowser* summary() const { return summary_; }
    QListWidget* fileList() const { return files_; }
    QSplitter* splitter() const { return splitter_; }
    const std::shared_ptr<VNDiffModel>& diff() const { return diff_; }

  Q_SIGNALS:
    // A parent's hash was clicked.
    void revisionActivated(const QString& revision);
    void detailsLoaded();
    void diffLoaded();

  private:
    void showFile(QListWidgetItem* item);
    void render(const vn::Record& details);

    std::shared_ptr<VNRepoHandler> handler_;
    std::string path_;
    std::string revision_;
    uint64_t generation_ = 0;
    uint64_t diffGeneration_ = 0;
    bool detailsLoaded_ = true;
    bool diffPending_ = false;
    QTextBrowser* summary_;
    QListWidget* files_;
    QSplitter* splitter_;
    QWidget* diffHost_;
    std::shared_ptr<VNDiffModel> diff_;
    std::function<void(std::shared_ptr<VNDiffModel>)> presentDiff_;
};

}  // namespace vn::desktop
