#include "desktop/VNDiffView.h"

#include <QAction>
#include <QClipboard>
#include <QEvent>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QPainter>
#include <QStackedLayout>
#include <QStyledItemDelegate>

#include <algorithm>

#include "desktop/VNDiffLineModel.h"
#include "model/VNDiffModel.h"

namespace {

using RowKind = VNDiffLineModel::RowKind;

QColor blend(const QColor& under, const QColor& over, qreal amount) {
    return QColor::fromRgbF(under.redF() + (over.redF() - under.redF()) * amount,
                            under.greenF() + (over.greenF() - under.greenF()) * amount,
                            under.blueF() + (over.blueF() - under.blueF()) * amount);
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Base).lightnessF() < 0.5;
}

int digits(int64_t number) {
    int count = 1;
    while (number >= 10) {
        number /= 10;
        ++count;
    }
    return count;
}

constexpr int TabWidth = 4;

}  // namespace

// The colours of a row, from the palette so that light and dark themes both read well: the
// tints are mixed into the base colour, strongly enough on a dark base to be seen, lightly on a
// light one so that the text keeps its contrast.
struct DiffColours {
    QColor base, text, faint, added, removed, gutter, hunk, fileHeader, fileHeaderText, selection;
    explicit DiffColours(const QPalette& palette) {
        base = palette.color(QPalette::Base);
        text = palette.color(QPalette::Text);
        faint = blend(base, text, 0.45);
        bool dark = isDark(palette);
        added = blend(base, QColor(46, 160, 67), dark ? 0.35 : 0.22);
        removed = blend(base, QColor(218, 54, 51), dark ? 0.35 : 0.20);
        gutter = blend(base, text, 0.05);
        hunk = blend(base, palette.color(QPalette::Highlight), dark ? 0.25 : 0.12);
        fileHeader = palette.color(QPalette::Button);
        fileHeaderText = palette.color(QPalette::ButtonText);
        selection = palette.color(QPalette::Highlight);
    }
};

class VNDiffView::LineDelegate : public QStyledItemDelegate {
  public:
    explicit LineDelegate(VNDiffView* view) : QStyledItemDelegate(view), view_(view) {}

    void setMetrics(const QFontMetrics& metrics, int numberDigits, std::size_t longestLine) {
        charWidth_ = std::max(1, metrics.horizontalAdvance(QLatin1Char('0')));
        rowHeight_ = metrics.height() + 2;
        numberWidth_ = charWidth_ * (numberDigits + 1);
        // Room for the longest line, with tabs at their widest; capped so that an extreme line
        // does not make the scroll range useless.
        std::size_t columns = std::min<std::size_t>(longestLine + 2, 2000);
        width_ = textStart() + static_cast<int>(columns) * charWidth_;
    }
    int textStart() const { return 2 * numberWidth_ + charWidth_ * 3; }

    QSize sizeHint(const QStyleOptionViewItem& /*option*/,
                   const QModelIndex& /*index*/) const override {
        return {width_, rowHeight_};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        const VNDiffLineModel* model = view_->lineModel();
        VNDiffLineModel::RowView row = model->rowAt(index.row());
        DiffColours colours(option.palette);
        bool selected = option.state & QStyle::State_Selected;
        QRect rect = option.rect;
        painter->save();
        painter->setFont(option.font);
        switch (row.kind) {
            case RowKind::FileHeader: {
                painter->fillRect(rect, colours.fileHeader);
                QFont bold = option.font;
                bold.setBold(true);
                painter->setFont(bold);
                painter->setPen(colours.fileHeaderText);
                painter->drawText(rect.adjusted(charWidth_, 0, 0, 0),
                                  Qt::AlignVCenter | Qt::AlignLeft, model->headerText(index.row()));
                break;
            }
            case RowKind::HunkHeader:
                painter->fillRect(rect, colours.hunk);
                painter->setPen(colours.faint);
                painter->drawText(rect.adjusted(textStart(), 0, 0, 0),
                                  Qt::AlignVCenter | Qt::AlignLeft, model->headerText(index.row()));
                break;
            case RowKind::Placeholder: {
                painter->fillRect(rect, colours.base);
                QFont italic = option.font;
                italic.setItalic(true);
                painter->setFont(italic);
                painter->setPen(colours.faint);
                painter->drawText(rect.adjusted(textStart(), 0, 0, 0),
                                  Qt::AlignVCenter | Qt::AlignLeft, model->headerText(index.row()));
                break;
            }
            case RowKind::Line:
                paintLine(painter, rect, row, colours, selected);
                break;
        }
        painter->restore();
    }

  private:
    void paintLine(QPainter* painter, const QRect& rect, const VNDiffLineModel::RowView& row,
                   const DiffColours& colours, bool selected) const {
        QColor background = row.prefix == '+'   ? colours.added
                            : row.prefix == '-' ? colours.removed
                                                : colours.base;
        QRect gutter(rect.left(), rect.top(), 2 * numberWidth_ + charWidth_, rect.height());
        painter->fillRect(rect, background);
        painter->fillRect(gutter, selected ? colours.selection : colours.gutter);
        if (selected) {
            painter->fillRect(rect.adjusted(gutter.width(), 0, 0, 0),
                              blend(background, colours.selection, 0.35));
        }
        painter->setPen(selected ? blend(colours.selection, colours.base, 0.9) : colours.faint);
        auto number = [&](int64_t value, int left) {
            if (value >= 0) {
                painter->drawText(
                    QRect(left, rect.top(), numberWidth_ - charWidth_ / 2, rect.height()),
                    Qt::AlignVCenter | Qt::AlignRight, QString::number(value));
            }
        };
        number(row.beforeLineNumber, rect.left());
        number(row.afterLineNumber, rect.left() + numberWidth_);

        int x = rect.left() + 2 * numberWidth_ + charWidth_ * 2;
        painter->setPen(colours.text);
        if (row.prefix != ' ') {
            painter->drawText(QRect(x - charWidth_, rect.top(), charWidth_, rect.height()),
                              Qt::AlignVCenter | Qt::AlignLeft,
                              QString(QChar::fromLatin1(row.prefix)));
        }
        x += charWidth_;

        // Tabs become a faint arrow padded to the next stop and trailing blanks faint dots, so
        // that a change in white space alone can be seen.
        QString text = QString::fromUtf8(row.text.data(), static_cast<qsizetype>(row.text.size()));
        qsizetype trailing = text.size();
        while (trailing > 0 && (text[trailing - 1] == QLatin1Char(' ') ||
                                text[trailing - 1] == QLatin1Char('\t'))) {
            --trailing;
        }
        QString shown;
        shown.reserve(text.size());
        std::vector<std::pair<qsizetype, QChar>> marks;
        int column = 0;
        for (qsizetype i = 0; i < text.size(); ++i) {
            QChar c = text[i];
            if (c == QLatin1Char('\t')) {
                marks.emplace_back(shown.size(), QChar(0x2192));
                int pad = TabWidth - column % TabWidth;
                shown.append(QString(pad, QLatin1Char(' ')));
                column += pad;
            } else {
                if (c == QLatin1Char(' ') && i >= trailing) {
                    marks.emplace_back(shown.size(), QChar(0x00B7));
                }
                shown.append(c);
                ++column;
            }
        }
        QRect textRect(x, rect.top(), rect.right() - x, rect.height());
        painter->drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine, shown);
        if (!marks.empty()) {
            painter->setPen(colours.faint);
            QFontMetrics metrics(painter->font());
            for (const auto& [position, mark] : marks) {
                int left = x + metrics.horizontalAdvance(shown.left(position));
                painter->drawText(QRect(left, rect.top(), charWidth_ * 2, rect.height()),
                                  Qt::AlignVCenter | Qt::AlignLeft, QString(mark));
            }
        }
    }

    VNDiffView* view_;
    int charWidth_ = 8;
    int rowHeight_ = 16;
    int numberWidth_ = 32;
    int width_ = 400;
};

VNDiffView::VNDiffView(QWidget* parent) : QWidget(parent) {
    stack_ = new QStackedLayout(this);
    stack_->setContentsMargins(0, 0, 0, 0);
    list_ = new QListView(this);
    model_ = new VNDiffLineModel(this);
    delegate_ = new LineDelegate(this);
    list_->setUniformItemSizes(true);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setSelectionBehavior(QAbstractItemView::SelectRows);
    list_->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    list_->setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
    list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    list_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    list_->setItemDelegate(delegate_);
    list_->setModel(model_);
    connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { emit selectionChanged(); });
    auto* copy = new QAction(tr("Copy"), list_);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(copy, &QAction::triggered, this, [this] {
        QString text = selectedText();
        if (!text.isEmpty()) {
            QGuiApplication::clipboard()->setText(text);
        }
    });
    list_->addAction(copy);
    list_->setContextMenuPolicy(Qt::ActionsContextMenu);
    placeholder_ = new QLabel(this);
    placeholder_->setAlignment(Qt::AlignCenter);
    placeholder_->setWordWrap(true);
    placeholder_->setForegroundRole(QPalette::PlaceholderText);
    placeholder_->setBackgroundRole(QPalette::Base);
    placeholder_->setAutoFillBackground(true);
    stack_->addWidget(list_);
    stack_->addWidget(placeholder_);
    updateMetrics();
    showPlaceholder(tr("No file selected"));
}

VNDiffView::~VNDiffView() = default;

void VNDiffView::updateMetrics() {
    delegate_->setMetrics(QFontMetrics(list_->font()),
                          std::max(3, digits(model_->largestLineNumber())), model_->longestLine());
}

void VNDiffView::setDiff(std::shared_ptr<VNDiffModel> diff) {
    bool empty = !diff || diff->fileEntries().empty();
    model_->setDiff(empty ? nullptr : std::move(diff));
    updateMetrics();
    if (empty) {
        showPlaceholder(tr("No changes"));
        return;
    }
    // A single file with nothing but its placeholder says so across the whole view.
    if (model_->rowCount() == 2 && model_->rowAt(1).kind == RowKind::Placeholder) {
        placeholder_->setText(model_->headerText(0) + QStringLiteral("\n\n") +
                              model_->headerText(1));
        stack_->setCurrentWidget(placeholder_);
        return;
    }
    list_->scrollToTop();
    stack_->setCurrentWidget(list_);
    emit selectionChanged();
}

void VNDiffView::clear() {
    model_->setDiff(nullptr);
    updateMetrics();
    showPlaceholder(tr("No file selected"));
}

void VNDiffView::showPlaceholder(const QString& text) {
    placeholder_->setText(text);
    stack_->setCurrentWidget(placeholder_);
}

bool VNDiffView::isShowingPlaceholder() const {
    return stack_->currentWidget() == placeholder_;
}

QString VNDiffView::placeholderText() const {
    return placeholder_->text();
}

std::vector<int> VNDiffView::selectedRows() const {
    std::vector<int> rows;
    if (isShowingPlaceholder()) {
        return rows;
    }
    for (const QModelIndex& index : list_->selectionModel()->selectedIndexes()) {
        if (model_->rowAt(index.row()).kind == RowKind::Line) {
            rows.push_back(index.row());
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

QString VNDiffView::selectedText() const {
    QString text;
    for (int row : selectedRows()) {
        VNDiffLineModel::RowView line = model_->rowAt(row);
        if (line.prefix == '\\') {
            continue;
        }
        text += QString::fromUtf8(line.text.data(), static_cast<qsizetype>(line.text.size()));
        text += QLatin1Char('\n');
    }
    return text;
}

void VNDiffView::changeEvent(QEvent* event) {
    if (event->type() == QEvent::FontChange || event->type() == QEvent::PaletteChange) {
        updateMetrics();
        list_->viewport()->update();
    }
    QWidget::changeEvent(event);
}
