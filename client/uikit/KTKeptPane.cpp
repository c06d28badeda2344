#include "client/uikit/KTKeptPane.h"

#include <QEvent>
#include <QSplitter>
#include <algorithm>

KTKeptPane::KTKeptPane(QSplitter* splitter, int pane, float size, std::function<void(float)> keep)
    : QObject(splitter), fSplitter(splitter), fPane(pane), fSize(size), fKeep(std::move(keep)) {
    connect(splitter, &QSplitter::splitterMoved, this,
            [this] { fKeep(static_cast<float>(fSplitter->sizes()[fPane])); });
    // Only then it has the room that is to be shared.
    if (fSize > 0) splitter->widget(pane)->installEventFilter(this);
}

bool KTKeptPane::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show) {
        watched->removeEventFilter(this);
        Apply();
    }
    return false;
}

void KTKeptPane::Apply() {
    const QSize room = fSplitter->contentsRect().size();
    const int all =
        std::max(0, (fSplitter->orientation() == Qt::Vertical ? room.height() : room.width()) -
                        fSplitter->handleWidth());
    const int wanted = static_cast<int>(std::min(fSize, static_cast<float>(all)));
    const int rest = all - wanted;
    fSplitter->setSizes(fPane == 0 ? QList{wanted, rest} : QList{rest, wanted});
}
