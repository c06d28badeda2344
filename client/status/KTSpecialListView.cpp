#include "client/status/KTSpecialListView.h"

#include <QScrollBar>
#include <QVBoxLayout>

KTSpecialListView::KTSpecialListView(const char* name, QWidget* parent) : QScrollArea(parent) {
    setObjectName(name);
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(QFrame::NoFrame);
    fContent = new QWidget;
    fLayout = new QVBoxLayout(fContent);
    fLayout->addStretch(1);
    setWidget(fContent);
    UpdateVScrollBar();
}

void KTSpecialListView::AddView(QWidget* view) {
    fLayout->insertWidget(CountViews(), view);
    view->show();
    UpdateVScrollBar();
}

bool KTSpecialListView::RemoveView(QWidget* view) {
    if (IndexOfView(view) < 0) return false;
    fLayout->removeWidget(view);
    view->hide();
    view->setParent(nullptr);
    UpdateVScrollBar();
    return true;
}

void KTSpecialListView::RemoveViews(int index, int count) {
    for (; count > 0; --count) {
        QWidget* view = ViewAt(index);
        if (!RemoveView(view)) break;
        delete view;
    }
}

int KTSpecialListView::CountViews() const {
    return fLayout->count() - 1;  // the stretch behind them
}

int KTSpecialListView::IndexOfView(const QWidget* view) const {
    return view ? fLayout->indexOf(view) : -1;
}

QWidget* KTSpecialListView::ViewAt(int index) const {
    if (index < 0 || index >= CountViews()) return nullptr;
    return fLayout->itemAt(index)->widget();
}

void KTSpecialListView::resizeEvent(QResizeEvent* event) {
    QScrollArea::resizeEvent(event);
    UpdateVScrollBar();
}

void KTSpecialListView::UpdateVScrollBar() {
    // Views are never narrower than they can be; the list is at least that wide instead.
    fLayout->activate();
    setMinimumWidth(fContent->minimumSizeHint().width() + verticalScrollBar()->sizeHint().width());
    verticalScrollBar()->setSingleStep(fontMetrics().lineSpacing() * 3);
}
