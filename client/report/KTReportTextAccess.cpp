#include "client/report/KTReportTextAccess.h"

#include <QAccessible>
#include <QAccessibleWidget>

#include "client/report/KTReportTextView.h"

namespace {

class Access : public QAccessibleWidget, public QAccessibleTextInterface {
public:
    explicit Access(KTReportTextView* view)
        : QAccessibleWidget(view, QAccessible::EditableText), fView(view) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::TextInterface) return static_cast<QAccessibleTextInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }
    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        state.readOnly = true;
        state.selectableText = true;
        return state;
    }
    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Value ? Line() : QAccessibleWidget::text(kind);
    }

    // --- the text -------------------------------------------------------------------------------
    QString Line() const {
        return fView->Text().IsEmpty() ? QString() : fView->Text().LineAt(fView->Caret().line);
    }
    int selectionCount() const override { return fView->HasSelection() ? 1 : 0; }
    void selection(int index, int* begin, int* end) const override {
        *begin = *end = 0;
        if (index != 0 || !fView->HasSelection()) return;
        // As much of it as lies in this line.
        const int line = fView->Caret().line;
        const KTTextPlace first = fView->SelectionBegin(), last = fView->SelectionEnd();
        *begin = first.line < line ? 0 : first.column;
        *end = last.line > line ? characterCount() : last.column;
    }
    void addSelection(int begin, int end) override { setSelection(0, begin, end); }
    void removeSelection(int) override { setCursorPosition(fView->Caret().column); }
    void setSelection(int, int begin, int end) override {
        const int line = fView->Caret().line;
        fView->Select({line, InLine(begin)}, {line, InLine(end)});
    }
    int cursorPosition() const override { return fView->Caret().column; }
    void setCursorPosition(int position) override { setSelection(0, position, position); }
    QString text(int begin, int end) const override { return Line().mid(begin, end - begin); }
    int characterCount() const override { return static_cast<int>(Line().size()); }
    // Where a character is on the screen is not told.
    QRect characterRect(int) const override { return {}; }
    int offsetAtPoint(const QPoint&) const override { return -1; }
    void scrollToSubstring(int begin, int) override { setCursorPosition(begin); }
    QString attributes(int, int* begin, int* end) const override {
        *begin = 0;
        *end = characterCount();
        return {};
    }

private:
    int InLine(int position) const { return std::clamp(position, 0, characterCount()); }
    KTReportTextView* fView;
};

QAccessibleInterface* Make(const QString& className, QObject* object) {
    if (className != QLatin1String(KTReportTextView::staticMetaObject.className())) return nullptr;
    auto* view = qobject_cast<KTReportTextView*>(object);
    return view ? new Access(view) : nullptr;
}

}  // namespace

void KTReportTextAccess::Install() {
    [[maybe_unused]] static const bool once = (QAccessible::installFactory(Make), true);
}

void KTReportTextAccess::TellText(KTReportTextView* view) {
    if (!QAccessible::isActive()) return;
    const QString line =
        view->Text().IsEmpty() ? QString() : view->Text().LineAt(view->Caret().line);
    QAccessibleTextInsertEvent changed(view, 0, line);
    QAccessible::updateAccessibility(&changed);
}

void KTReportTextAccess::TellCaret(KTReportTextView* view) {
    if (!QAccessible::isActive()) return;
    QAccessibleTextCursorEvent moved(view, view->Caret().column);
    QAccessible::updateAccessibility(&moved);
}
