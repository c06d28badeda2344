// KTReportTextView: a report to read. It holds no words: a line is made when it is painted, so that
// a report of any length opens at once and scrolls line by line. Text is selected by mouse and
// keyboard, copied and searched as in any text view. A line that tells of a problem has a sign in
// the margin and a tinted ground. Main thread.
#pragma once

#include <QAbstractScrollArea>
#include <QBasicTimer>
#include <QElapsedTimer>

#include "client/report/KTReportText.h"

class QMenu;
class QTextLayout;

class KTReportTextView : public QAbstractScrollArea {
    Q_OBJECT
    Q_PROPERTY(QString text READ WholeText)
    Q_PROPERTY(QString selectedText READ SelectedText)
public:
    KTReportTextView(const char* name, QWidget* parent);

    void SetText(KTReportText text);  // from the top, nothing selected
    const KTReportText& Text() const { return fText; }
    QString WholeText() const { return fText.Text({}, fText.End()); }
    // Shown in the middle while there are no lines.
    void SetEmptyText(const QString& text);

    KTTextPlace Caret() const { return fCaret; }
    // The selection, its ends in order; the same place twice: none.
    KTTextPlace SelectionBegin() const { return std::min(fAnchor, fCaret); }
    KTTextPlace SelectionEnd() const { return std::max(fAnchor, fCaret); }
    bool HasSelection() const { return fAnchor != fCaret; }
    QString SelectedText() const;
    // Selects and scrolls there, with some lines around it. `to` is where the caret is then.
    void Select(KTTextPlace from, KTTextPlace to);
    void SelectLine(int line);
    void SelectAll();
    void Copy() const;  // to the clipboard

    QMenu* Menu() const { return fMenu; }  // of the secondary button

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    int FirstLine() const;
    int VisibleLines() const;  // whole ones, at least 1
    int LengthOf(int line) const;
    void LayOut(QTextLayout& layout) const;
    int TextLeft() const;  // where a line begins in the viewport
    KTTextPlace PlaceAt(QPoint point) const;
    KTTextPlace PlaceAfter(const QKeyEvent& key) const;  // where a key moves the caret
    void MoveCaret(KTTextPlace place, bool keepAnchor);
    void ShowCaret(int around);
    void DragTo(QPoint point);
    void PaintLine(QPainter& painter, int line, int top);
    void PaintSign(QPainter& painter, int top) const;
    void UpdateMetrics();
    void UpdateScrollBars();

    KTReportText fText;
    QString fEmptyText;
    QMenu* fMenu;
    KTTextPlace fCaret, fAnchor;
    int fLineHeight = 1, fMargin = 1;  // pixels
    int fWidest = 0;                   // of the lines painted so far, pixels
    bool fDragging = false;
    QPoint fDragPoint;
    QBasicTimer fDragScroll;
    QElapsedTimer fDoubleClicked;
};
