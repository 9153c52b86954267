#include "desktop/VNRefsModel.h"

#include <QFont>
#include <QStringList>

#include "git/VNGitLogParser.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/WorkQueue.h"

namespace {

QString qs(const std::string& text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// "git submodule status" lines: a state character, the recorded commit, the path and, when
// checked out, a description in parentheses.
std::vector<VNRefsModel::Item> parseSubmoduleStatus(const std::string& output) {
    std::vector<VNRefsModel::Item> items;
    std::size_t start = 0;
    while (start < output.size()) {
        std::size_t end = output.find('\n', start);
        if (end == std::string::npos) {
            end = output.size();
        }
        std::string line = output.substr(start, end - start);
        start = end + 1;
        std::size_t space = line.find(' ', 1);
        if (line.size() < 3 || space == std::string::npos) {
            continue;
        }
        char state = line[0];
        std::string commit = line.substr(1, space - 1);
        std::string rest = line.substr(space + 1);
        if (!rest.empty() && rest.back() == ')') {
            std::size_t open = rest.rfind(" (");
            if (open != std::string::npos) {
                rest.erase(open);
            }
        }
        VNRefsModel::Item item;
        item.name = rest;
        item.detail = commit.substr(0, 10);
        if (state == '-') {
            item.detail += " (not checked out)";
        } else if (state == '+') {
            item.detail += " (checked out at another commit)";
        } else if (state == 'U') {
            item.detail += " (conflicted)";
        }
        items.push_back(std::move(item));
    }
    return items;
}

}  // namespace

VNRefsModel::VNRefsModel(QObject* parent) : QAbstractItemModel(parent) {}

VNRefsModel::Contents VNRefsModel::load(VNRepoHandler& handler, const std::string& path) {
    Contents contents;
    auto* git = dynamic_cast<VNRepoHandlerGit*>(&handler);
    auto* hg = dynamic_cast<VNRepoHandlerMercurial*>(&handler);
    std::vector<std::string> branches, tags, remotes, bookmarks;
    std::string activeBookmark;
    std::vector<vn::Record> stashes;
    vn::Record aheadBehind, upstreams;
    std::string current, submoduleStatus;
    vn::WorkGroup group;
    vn::WorkQueue& queue = vn::WorkQueue::global();
    queue.async(group, [&] { branches = handler.branches(path); });
    queue.async(group, [&] { tags = handler.tags(path); });
    queue.async(group, [&] { stashes = handler.listStashes(path); });
    if (git) {
        queue.async(group, [&] { remotes = git->remoteBranches(path); });
        queue.async(group, [&] { aheadBehind = git->branchesWithCommitsAheadBehind(path); });
        queue.async(group, [&] { current = git->currentBranch(path); });
        queue.async(group, [&] {
            auto args = git->defaultArgsForPath(path, "submodule");
            args.push_back("status");
            auto task = VNTask::taskWithCommand(git->gitPath(), path, std::move(args));
            if (task->run()) {
                submoduleStatus = task->output();
            }
        });
        upstreams = git->trackingBranchesForPull(path);
    }
    if (hg) {
        queue.async(group, [&] { bookmarks = hg->bookmarks(path, &activeBookmark); });
        queue.async(group, [&] { current = hg->currentBranch(path); });
    }
    group.wait();

    for (const std::string& branch : branches) {
        Item item;
        item.name = branch;
        item.revision = branch;
        item.current = branch == current;
        if (const vn::Value* upstream = upstreams.find(branch)) {
            item.upstream = upstream->toString();
        }
        if (const vn::Value* counts = aheadBehind.find(branch); counts && counts->array()) {
            const auto& pair = *counts->array();
            if (pair.size() == 2) {
                item.ahead = static_cast<int>(pair[0].toInt());
                item.behind = static_cast<int>(pair[1].toInt());
            }
        }
        contents[Branches].push_back(std::move(item));
    }
    for (const std::string& remote : remotes) {
        contents[RemoteBranches].push_back({remote, remote, {}, {}, 0, 0, false});
    }
    for (const std::string& tag : tags) {
        contents[Tags].push_back({tag, tag, {}, {}, 0, 0, false});
    }
    for (const vn::Record& stash : stashes) {
        std::string message = stash.string("msg");
        while (!message.empty() && message.front() == ' ') {
            message.erase(0, 1);
        }
        contents[Stashes].push_back(
            {stash.string("name"), stash.string("name"), message, {}, 0, 0, false});
    }
    contents[Submodules] = parseSubmoduleStatus(submoduleStatus);
    for (const std::string& bookmark : bookmarks) {
        contents[Bookmarks].push_back({bookmark,
                                       bookmark,
                                       {},
                                       {},
                                       0,
                                       0,
                                       !activeBookmark.empty() && bookmark == activeBookmark});
    }
    return contents;
}

void VNRefsModel::setContents(Contents contents) {
    beginResetModel();
    contents_ = std::move(contents);
    endResetModel();
}

bool VNRefsModel::sectionApplies(Section section, const VNRepoHandler& handler) {
    bool mercurial = handler.repositoryType() == VNRepositoryTypeMercurial;
    switch (section) {
        case RemoteBranches:
        case Submodules:
            return !mercurial;
        case Bookmarks:
            return mercurial;
        default:
            return true;
    }
}

QString VNRefsModel::sectionTitle(Section section) const {
    switch (section) {
        case Branches:
            return tr("Branches");
        case RemoteBranches:
            return tr("Remote branches");
        case Tags:
            return tr("Tags");
        case Stashes:
            return stashesAreShelves_ ? tr("Shelves") : tr("Stashes");
        case Submodules:
            return tr("Submodules");
        case Bookmarks:
            return tr("Bookmarks");
        case SectionCount:
            break;
    }
    return {};
}

QModelIndex VNRefsModel::index(int row, int column, const QModelIndex& parent) const {
    if (!hasIndex(row, column, parent)) {
        return {};
    }
    if (!parent.isValid()) {
        return createIndex(row, column, NoSection);
    }
    return createIndex(row, column, static_cast<quintptr>(parent.row() + 1));
}

QModelIndex VNRefsModel::parent(const QModelIndex& child) const {
    if (!child.isValid() || child.internalId() == NoSection) {
        return {};
    }
    return createIndex(static_cast<int>(child.internalId() - 1), 0, NoSection);
}

int VNRefsModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid()) {
        return SectionCount;
    }
    if (parent.column() != 0 || parent.internalId() != NoSection) {
        return 0;
    }
    return static_cast<int>(contents_[static_cast<std::size_t>(parent.row())].size());
}

int VNRefsModel::columnCount(const QModelIndex& /*parent*/) const {
    return 1;
}

QVariant VNRefsModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return {};
    }
    if (index.internalId() == NoSection) {
        auto section = static_cast<Section>(index.row());
        switch (role) {
            case Qt::DisplayRole:
                return QStringLiteral("%1 (%2)")
                    .arg(sectionTitle(section))
                    .arg(contents_[static_cast<std::size_t>(index.row())].size());
            case Qt::FontRole: {
                QFont font;
                font.setBold(true);
                return font;
            }
            case SectionRole:
                return index.row();
            default:
                return {};
        }
    }
    auto section = static_cast<std::size_t>(index.internalId() - 1);
    const Item& item = contents_[section][static_cast<std::size_t>(index.row())];
    switch (role) {
        case Qt::DisplayRole:
            return qs(item.name);
        case DetailRole: {
            QStringList parts;
            if (item.ahead > 0) {
                parts << QStringLiteral("\u2191%1").arg(item.ahead);
            }
            if (item.behind > 0) {
                parts << QStringLiteral("\u2193%1").arg(item.behind);
            }
            if (!item.upstream.empty()) {
                parts << qs(item.upstream);
            }
            if (!item.detail.empty()) {
                parts << qs(item.detail);
            }
            return parts.join(QStringLiteral("  "));
        }
        case Qt::ToolTipRole: {
            QString tip = qs(item.name);
            if (!item.upstream.empty()) {
                tip += QStringLiteral("\n") + tr("Upstream: %1").arg(qs(item.upstream));
                tip += QStringLiteral("\n") +
                       qs(VNGitLogParser::aheadBehindAnnotation(item.ahead, item.behind));
            }
            if (!item.detail.empty()) {
                tip += QStringLiteral("\n") + qs(item.detail);
            }
            return tip;
        }
        case Qt::FontRole:
            if (item.current) {
                QFont font;
                font.setBold(true);
                return font;
            }
            return {};
        case RevisionRole:
            return qs(item.revision);
        case SectionRole:
            return static_cast<int>(section);
        case CurrentRole:
            return item.current;
        case UpstreamRole:
            return qs(item.upstream);
        case AheadRole:
            return item.ahead;
        case BehindRole:
            return item.behind;
        default:
            return {};
    }
}

Qt::ItemFlags VNRefsModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    if (index.internalId() == NoSection) {
        return Qt::ItemIsEnabled;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}
