#include "desktop/VNCommitDetails.h"

#include <QLabel>
#include <QListWidget>
#include <QSplitter>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>

#include "desktop/VNAsync.h"
#include "desktop/VNDescriptionCell.h"
#include "desktop/VNHistoryModel.h"
#include "handler/VNRepoHandler.h"
#include "model/VNDiffModel.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"

namespace vn::desktop {

namespace {

constexpr int FileRole = Qt::UserRole + 1;

struct Loaded {
    vn::Record details;
    std::vector<vn::Record> files;
};

// The status letter git would show for a status record's bits.
QString statusLetter(uint64_t status) {
    if (status & 512) {
        return QStringLiteral("R");
    }
    if (status & 4) {
        return QStringLiteral("A");
    }
    if (status & 8) {
        return QStringLiteral("D");
    }
    if (status & 16) {
        return QStringLiteral("U");
    }
    return QStringLiteral("M");
}

}  // namespace

VNCommitDetails::VNCommitDetails(std::shared_ptr<VNRepoHandler> handler, std::string path,
                                 QWidget* parent)
    : QWidget(parent), handler_(std::move(handler)), path_(std::move(path)) {
    summary_ = new QTextBrowser(this);
    summary_->setOpenLinks(false);
    summary_->setObjectName(QStringLiteral("commitSummary"));
    files_ = new QListWidget(this);
    files_->setObjectName(QStringLiteral("commitFiles"));
    files_->setUniformItemSizes(true);
    diffHost_ = new QWidget(this);
    auto* hostLayout = new QVBoxLayout(diffHost_);
    hostLayout->setContentsMargins(0, 0, 0, 0);
    hostLayout->addWidget(new QLabel(tr("Choose a file to see its changes."), diffHost_));

    auto* left = new QSplitter(Qt::Vertical, this);
    left->addWidget(summary_);
    left->addWidget(files_);
    splitter_ = new QSplitter(Qt::Horizontal, this);
    splitter_->setObjectName(QStringLiteral("detailsSplitter"));
    splitter_->addWidget(left);
    splitter_->addWidget(diffHost_);
    splitter_->setStretchFactor(0, 2);
    splitter_->setStretchFactor(1, 3);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(splitter_);

    connect(summary_, &QTextBrowser::anchorClicked, this,
            [this](const QUrl& url) { Q_EMIT revisionActivated(url.path()); });
    connect(files_, &QListWidget::currentItemChanged, this,
            [this](QListWidgetItem* item) { showFile(item); });
}

void VNCommitDetails::setDiffWidget(QWidget* widget) {
    auto* layout = diffHost_->layout();
    while (QLayoutItem* item = layout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    layout->addWidget(widget);
}

void VNCommitDetails::clear() {
    ++generation_;
    ++diffGeneration_;
    revision_.clear();
    detailsLoaded_ = true;
    diffPending_ = false;
    summary_->clear();
    files_->clear();
    diff_.reset();
    if (presentDiff_) {
        presentDiff_(nullptr);
    }
}

void VNCommitDetails::showRevision(const std::string& rev) {
    clear();
    revision_ = rev;
    detailsLoaded_ = false;
    uint64_t generation = generation_;
    auto handler = handler_;
    std::string path = path_;
    runAsync<Loaded>(
        this,
        [handler, path, rev] {
            Loaded loaded;
            loaded.details = handler->revisionDetails(path, rev);
            loaded.files = handler->revisionFileChanges(path, rev);
            return loaded;
        },
        [this, generation](Loaded loaded) {
            if (generation != generation_) {
                return;
            }
            detailsLoaded_ = true;
            render(loaded.details);
            for (const vn::Record& file : loaded.files) {
                // Status records keep the folder ("path") apart from the name in it.
                std::string folder = file.string("path");
                std::string name = file.string("filename");
                if (!folder.empty()) {
                    name = folder + "/" + name;
                }
                QString shown = statusLetter(static_cast<uint64_t>(file.integer("status"))) +
                                QStringLiteral("  ") + QString::fromStdString(name);
                std::string previous = file.string("previousName");
                if (!previous.empty()) {
                    shown += QStringLiteral("  ← ") + QString::fromStdString(previous);
                }
                auto* item = new QListWidgetItem(shown, files_);
                // The name's exact bytes go back to git, whatever they look like decoded.
                item->setData(FileRole, QByteArray::fromStdString(name));
            }
            Q_EMIT detailsLoaded();
            if (files_->count() > 0) {
                files_->setCurrentRow(0);
            }
        });
}

void VNCommitDetails::render(const vn::Record& details) {
    auto esc = [](const std::string& text) { return QString::fromStdString(text).toHtmlEscaped(); };
    if (details.empty()) {
        summary_->setPlainText(
            tr("The commit %1 could not be read.").arg(QString::fromStdString(revision_)));
        return;
    }
    QString html = QStringLiteral("<p><b>%1</b></p>").arg(esc(details.string("changeset")));
    html += QStringLiteral("<p>%1<br>").arg(esc(details.string("user")));
    VNHistoryRow row = VNHistoryRow::fromRecord(details);
    html += QStringLiteral("%1</p>").arg(VNHistoryModel::dateText(row.time, row.offset));
    if (const vn::Value::Array* parents = details["parents"].array();
        parents && !parents->empty()) {
        html += tr("Parents:");
        for (const vn::Value& parent : *parents) {
            std::string hash = parent.toString();
            html += QStringLiteral(" <a href=\"rev:%1\">%2</a>")
                        .arg(esc(hash), esc(hash.substr(0, 10)));
        }
        html += QStringLiteral("<br>");
    }
    if (auto entry = details["descriptionentry"].objectAs<VNLogDescriptionEntry>()) {
        for (const auto& label : entry->labels()) {
            if (label) {
                QColor fill = VNDescriptionCell::chipColour(*label, palette());
                html += QStringLiteral("<span style=\"background-color:%1\">&nbsp;%2&nbsp;</span> ")
                            .arg(fill.name(), VNDescriptionCell::chipText(*label).toHtmlEscaped());
            }
        }
    }
    html += QStringLiteral("<pre style=\"white-space: pre-wrap\">%1</pre>")
                .arg(esc(details.string("message")));
    summary_->setHtml(html);
}

void VNCommitDetails::showFile(QListWidgetItem* item) {
    uint64_t generation = ++diffGeneration_;
    diff_.reset();
    if (presentDiff_) {
        presentDiff_(nullptr);
    }
    diffPending_ = false;
    if (!item || revision_.empty()) {
        return;
    }
    diffPending_ = true;
    std::string file = item->data(FileRole).toByteArray().toStdString();
    auto handler = handler_;
    std::string path = path_;
    std::string rev = revision_;
    runAsync<std::shared_ptr<VNDiffModel>>(
        this,
        [handler, path, rev, file]() -> std::shared_ptr<VNDiffModel> {
            auto task = handler->revisionFileDiffTask(path, rev, {file}, 0, 3);
            if (!task || !task->run()) {
                return nullptr;
            }
            auto model = std::make_shared<VNDiffModel>(1);
            handler->parseDiffToModel(task->output(), model->fileEntries(), 1);
            return model;
        },
        [this, generation](std::shared_ptr<VNDiffModel> model) {
            if (generation != diffGeneration_) {
                return;
            }
            diff_ = model;
            diffPending_ = false;
            if (presentDiff_) {
                presentDiff_(model);
            }
            Q_EMIT diffLoaded();
        });
}

}  // namespace vn::desktop
