#include "client/report/KTReportTextView.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QTextBoundaryFinder>
#include <QTextLayout>
#include <cmath>

#include "client/report/KTReportTextAccess.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace {

constexpr int kGap = 4;              // pixels between the margin and the text
constexpr int kLinesAround = 3;      // what is found is not at the very edge
constexpr int kDragScrollTime = 40;  // milliseconds between two lines
const QColor kProblemGround(220, 40, 40, 40);
const QColor kProblemSign(200, 30, 30);

}  // namespace

KTReportTextView::KTReportTextView(const char* name, QWidget* parent)
    : QAbstractScrollArea(parent) {
    KTReportTextAccess::Install();
    KTControl::Name(this, name);
    setFocusPolicy(Qt::StrongFocus);
    viewport()->setCursor(Qt::IBeamCursor);
    viewport()->setBackgroundRole(QPalette::Base);
    fMenu = new QMenu(this);
    QAction* copy =
        fMenu->addAction(KTControl::LabelText(core::kMoreCopy), this, &KTReportTextView::Copy);
    copy->setShortcut(QKeySequence::Copy);  // shown only; the key is handled below
    copy->setShortcutContext(Qt::WidgetShortcut);
    fMenu->addAction(KTControl::LabelText(core::text::kSelectAll), this,
                     &KTReportTextView::SelectAll);
    connect(fMenu, &QMenu::aboutToShow, this, [this, copy] { copy->setEnabled(HasSelection()); });
    UpdateMetrics();
}

void KTReportTextView::SetText(KTReportText text) {
    fText = std::move(text);
    fCaret = fAnchor = {};
    fWidest = 0;
    horizontalScrollBar()->setValue(0);
    verticalScrollBar()->setValue(0);
    UpdateScrollBars();
    viewport()->update();
    KTReportTextAccess::TellText(this);
}

void KTReportTextView::SetEmptyText(const QString& text) {
    fEmptyText = text;
    viewport()->update();
}

// --- selection ----------------------------------------------------------------------------------

QString KTReportTextView::SelectedText() const {
    return HasSelection() ? fText.Text(SelectionBegin(), SelectionEnd()) : QString();
}

void KTReportTextView::Select(KTTextPlace from, KTTextPlace to) {
    fAnchor = from;
    MoveCaret(to, true);
    ShowCaret(kLinesAround);
}

void KTReportTextView::SelectLine(int line) {
    Select({line, LengthOf(line)}, {line, 0});
}

void KTReportTextView::SelectAll() {
    fAnchor = {};
    fCaret = fText.End();
    viewport()->update();
}

void KTReportTextView::Copy() const {
    if (HasSelection()) QApplication::clipboard()->setText(SelectedText());
}

void KTReportTextView::MoveCaret(KTTextPlace place, bool keepAnchor) {
    const bool otherLine = place.line != fCaret.line;
    fCaret = place;
    if (!keepAnchor) fAnchor = place;
    viewport()->update();
    if (otherLine) KTReportTextAccess::TellText(this);
    KTReportTextAccess::TellCaret(this);
}

void KTReportTextView::ShowCaret(int around) {
    QScrollBar* bar = verticalScrollBar();
    const int least = fCaret.line + around - VisibleLines() + 1, most = fCaret.line - around;
    if (bar->value() > most)
        bar->setValue(most);
    else if (bar->value() < least)
        bar->setValue(std::min(least, std::max(most, 0)));

    if (fText.IsEmpty()) return;
    QTextLayout layout(fText.LineAt(fCaret.line), font());
    LayOut(layout);
    const int x = static_cast<int>(layout.lineAt(0).cursorToX(fCaret.column));
    const int room = viewport()->width() - fMargin - 2 * kGap;
    fWidest = std::max(fWidest, static_cast<int>(layout.lineAt(0).naturalTextWidth()));
    UpdateScrollBars();
    QScrollBar* across = horizontalScrollBar();
    if (x < across->value()) across->setValue(x < room ? 0 : x - room / 2);
    if (x > across->value() + room) across->setValue(x - room / 2);
}

// --- geometry -----------------------------------------------------------------------------------

int KTReportTextView::FirstLine() const {
    return verticalScrollBar()->value();
}

int KTReportTextView::VisibleLines() const {
    return std::max(viewport()->height() / fLineHeight, 1);
}

int KTReportTextView::LengthOf(int line) const {
    return fText.IsEmpty() ? 0 : static_cast<int>(fText.LineAt(line).size());
}

int KTReportTextView::TextLeft() const {
    return fMargin + kGap - horizontalScrollBar()->value();
}

void KTReportTextView::LayOut(QTextLayout& layout) const {
    layout.setTextOption(KTReportLineOption(layout.text(), QFontMetricsF(font()).averageCharWidth(),
                                            QTextOption::NoWrap));
    layout.beginLayout();
    layout.createLine();
    layout.endLayout();
}

KTTextPlace KTReportTextView::PlaceAt(QPoint point) const {
    if (fText.IsEmpty()) return {};
    const int row = static_cast<int>(std::floor(point.y() / double(fLineHeight)));
    const int line = std::clamp(FirstLine() + row, 0, fText.CountLines() - 1);
    QTextLayout layout(fText.LineAt(line), font());
    LayOut(layout);
    return {line, layout.lineAt(0).xToCursor(point.x() - TextLeft())};
}

void KTReportTextView::UpdateMetrics() {
    const QFontMetricsF metrics(font());
    fLineHeight = std::max(static_cast<int>(std::ceil(metrics.lineSpacing())), 1);
    fMargin = fLineHeight + 2;
    fWidest = 0;
    UpdateScrollBars();
    viewport()->update();
}

void KTReportTextView::UpdateScrollBars() {
    const int page = VisibleLines();
    verticalScrollBar()->setRange(0, std::max(fText.CountLines() - page, 0));
    verticalScrollBar()->setPageStep(page);
    const int room = viewport()->width() - fMargin - 2 * kGap;
    horizontalScrollBar()->setRange(0, std::max(fWidest - room, 0));
    horizontalScrollBar()->setPageStep(std::max(room, 1));
    horizontalScrollBar()->setSingleStep(fLineHeight);
}

void KTReportTextView::resizeEvent(QResizeEvent*) {
    UpdateScrollBars();
}

void KTReportTextView::changeEvent(QEvent* event) {
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        UpdateMetrics();
}

// --- painting -----------------------------------------------------------------------------------

void KTReportTextView::paintEvent(QPaintEvent*) {
    QPainter painter(viewport());
    painter.fillRect(viewport()->rect(), palette().base());
    if (fText.IsEmpty()) {
        painter.setFont(QApplication::font());
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(viewport()->rect().adjusted(12, 12, -12, -12),
                         Qt::AlignCenter | Qt::TextWordWrap, fEmptyText);
        return;
    }
    painter.fillRect(0, 0, fMargin, viewport()->height(), palette().alternateBase());
    const int before = fWidest;
    const int end = std::min(FirstLine() + VisibleLines() + 1, fText.CountLines());
    for (int line = FirstLine(); line < end; ++line)
        PaintLine(painter, line, (line - FirstLine()) * fLineHeight);
    // How wide the lines are is known of those that were seen.
    if (fWidest > before)
        QMetaObject::invokeMethod(this, &KTReportTextView::UpdateScrollBars, Qt::QueuedConnection);
}

void KTReportTextView::PaintLine(QPainter& painter, int line, int top) {
    const QString text = fText.LineAt(line);
    QTextLayout layout(text, font());
    LayOut(layout);
    const int width = static_cast<int>(std::ceil(layout.lineAt(0).naturalTextWidth()));
    fWidest = std::max(fWidest, width);
    if (fText.IsProblem(line)) {
        painter.fillRect(0, top, viewport()->width(), fLineHeight, kProblemGround);
        PaintSign(painter, top);
    }
    painter.setClipRect(fMargin, top, viewport()->width() - fMargin, fLineHeight);
    const auto group = hasFocus() ? QPalette::Active : QPalette::Inactive;
    QList<QTextLayout::FormatRange> selections;
    const KTTextPlace begin = SelectionBegin(), end = SelectionEnd();
    if (HasSelection() && line >= begin.line && line <= end.line) {
        QTextLayout::FormatRange range;
        range.start = line == begin.line ? begin.column : 0;
        range.length =
            (line == end.line ? end.column : static_cast<int>(text.size())) - range.start;
        range.format.setBackground(palette().brush(group, QPalette::Highlight));
        range.format.setForeground(palette().brush(group, QPalette::HighlightedText));
        selections.append(range);
        // The line feed is selected as well.
        if (line < end.line)
            painter.fillRect(TextLeft() + width, top, fLineHeight / 3, fLineHeight,
                             palette().brush(group, QPalette::Highlight));
    }
    painter.setPen(palette().color(QPalette::Text));
    layout.draw(&painter, QPointF(TextLeft(), top), selections);
    if (hasFocus() && line == fCaret.line)
        layout.drawCursor(&painter, QPointF(TextLeft(), top), fCaret.column);
    painter.setClipping(false);
}

void KTReportTextView::PaintSign(QPainter& painter, int top) const {
    const qreal side = fLineHeight * 0.8;
    const QRectF place((fMargin - side) / 2, top + (fLineHeight - side) / 2, side, side);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(kProblemSign);
    painter.drawEllipse(place);
    QFont sign = font();
    sign.setBold(true);
    sign.setPixelSize(std::max(static_cast<int>(side * 0.75), 1));
    painter.setFont(sign);
    painter.setPen(Qt::white);
    painter.drawText(place, Qt::AlignCenter, QStringLiteral("!"));
    painter.restore();
}

void KTReportTextView::focusInEvent(QFocusEvent* event) {
    QAbstractScrollArea::focusInEvent(event);
    viewport()->update();
}

void KTReportTextView::focusOutEvent(QFocusEvent* event) {
    QAbstractScrollArea::focusOutEvent(event);
    viewport()->update();
}

// --- keyboard -----------------------------------------------------------------------------------

KTTextPlace KTReportTextView::PlaceAfter(const QKeyEvent& key) const {
    const bool control = key.modifiers() & Qt::ControlModifier;
    const int last = fText.CountLines() - 1;
    const auto onLine = [&](int line) {
        line = std::clamp(line, 0, last);
        return KTTextPlace{line, std::min(fCaret.column, LengthOf(line))};
    };
    const auto word = [&](bool forward) {
        const QString text = fText.LineAt(fCaret.line);
        QTextBoundaryFinder finder(QTextBoundaryFinder::Word, text);
        finder.setPosition(fCaret.column);
        const auto next = forward ? finder.toNextBoundary() : finder.toPreviousBoundary();
        return KTTextPlace{fCaret.line, static_cast<int>(next)};
    };
    switch (key.key()) {
        case Qt::Key_Up:
            return onLine(fCaret.line - 1);
        case Qt::Key_Down:
            return onLine(fCaret.line + 1);
        case Qt::Key_PageUp:
            return onLine(fCaret.line - VisibleLines());
        case Qt::Key_PageDown:
            return onLine(fCaret.line + VisibleLines());
        case Qt::Key_Home:
            return control ? KTTextPlace{} : KTTextPlace{fCaret.line, 0};
        case Qt::Key_End:
            return control ? fText.End() : KTTextPlace{fCaret.line, LengthOf(fCaret.line)};
        case Qt::Key_Left:
            if (fCaret.column > 0)
                return control ? word(false) : KTTextPlace{fCaret.line, fCaret.column - 1};
            return fCaret.line > 0 ? KTTextPlace{fCaret.line - 1, LengthOf(fCaret.line - 1)}
                                   : fCaret;
        case Qt::Key_Right:
            if (fCaret.column < LengthOf(fCaret.line))
                return control ? word(true) : KTTextPlace{fCaret.line, fCaret.column + 1};
            return fCaret.line < last ? KTTextPlace{fCaret.line + 1, 0} : fCaret;
        default:
            return fCaret;
    }
}

void KTReportTextView::keyPressEvent(QKeyEvent* event) {
    if (event->matches(QKeySequence::Copy)) return Copy();
    if (event->matches(QKeySequence::SelectAll)) return SelectAll();
    switch (event->key()) {
        case Qt::Key_Up:
        case Qt::Key_Down:
        case Qt::Key_PageUp:
        case Qt::Key_PageDown:
        case Qt::Key_Home:
        case Qt::Key_End:
        case Qt::Key_Left:
        case Qt::Key_Right:
            break;
        default:
            return event->ignore();
    }
    if ((event->modifiers() & Qt::AltModifier) || fText.IsEmpty()) return event->ignore();
    MoveCaret(PlaceAfter(*event), event->modifiers() & Qt::ShiftModifier);
    ShowCaret(0);
}

// --- mouse --------------------------------------------------------------------------------------

void KTReportTextView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return event->ignore();
    const QPoint point = event->position().toPoint();
    const bool third =
        fDoubleClicked.isValid() && fDoubleClicked.elapsed() < QApplication::doubleClickInterval();
    fDoubleClicked.invalidate();
    fDragging = true;
    if (!third) return MoveCaret(PlaceAt(point), event->modifiers() & Qt::ShiftModifier);
    const int line = PlaceAt(point).line;
    fAnchor = {line, 0};
    MoveCaret({line, LengthOf(line)}, true);
}

void KTReportTextView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || fText.IsEmpty()) return event->ignore();
    const KTTextPlace place = PlaceAt(event->position().toPoint());
    const QString text = fText.LineAt(place.line);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Word, text);
    finder.setPosition(place.column);
    auto begin = finder.isAtBoundary() ? finder.position() : finder.toPreviousBoundary();
    auto end = finder.toNextBoundary();
    fAnchor = {place.line, static_cast<int>(std::max<qsizetype>(begin, 0))};
    MoveCaret({place.line, static_cast<int>(end < 0 ? text.size() : end)}, true);
    fDoubleClicked.start();
}

void KTReportTextView::DragTo(QPoint point) {
    MoveCaret(PlaceAt(point), true);
    // Beyond the edge it goes on by itself.
    const bool outside = point.y() < 0 || point.y() >= viewport()->height();
    if (outside && !fDragScroll.isActive()) fDragScroll.start(kDragScrollTime, this);
    if (!outside) fDragScroll.stop();
}

void KTReportTextView::mouseMoveEvent(QMouseEvent* event) {
    if (!fDragging) return;
    fDragPoint = event->position().toPoint();
    DragTo(fDragPoint);
}

void KTReportTextView::mouseReleaseEvent(QMouseEvent*) {
    fDragScroll.stop();
    QClipboard* clipboard = QApplication::clipboard();
    if (std::exchange(fDragging, false) && HasSelection() && clipboard->supportsSelection())
        clipboard->setText(SelectedText(), QClipboard::Selection);
}

void KTReportTextView::timerEvent(QTimerEvent* event) {
    if (event->timerId() != fDragScroll.timerId()) return QAbstractScrollArea::timerEvent(event);
    verticalScrollBar()->setValue(FirstLine() + (fDragPoint.y() < 0 ? -1 : 1));
    DragTo(fDragPoint);
}

void KTReportTextView::contextMenuEvent(QContextMenuEvent* event) {
    fMenu->popup(event->globalPos());
    event->accept();
}
