#include "client/uikit/KTElidedLabel.h"

#include <QHelpEvent>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

KTElidedLabel::KTElidedLabel(Qt::TextElideMode mode, QWidget* parent)
    : QLabel(parent), fMode(mode) {
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize KTElidedLabel::minimumSizeHint() const {
    const QSize whole = QLabel::minimumSizeHint();
    return {std::min(whole.width(), fontMetrics().averageCharWidth() * 6), whole.height()};
}

QString KTElidedLabel::Cut() const {
    return fontMetrics().elidedText(text(), fMode, contentsRect().width());
}

void KTElidedLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    style()->drawItemText(&painter, contentsRect(),
                          QStyle::visualAlignment(layoutDirection(), alignment()), palette(),
                          isEnabled(), Cut(), foregroundRole());
}

bool KTElidedLabel::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QLabel::event(event);
    if (Cut() != text())
        // Escaped: a tool tip would take tags in a file's name for its own.
        QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(),
                           "<span>" + text().toHtmlEscaped() + "</span>", this);
    else
        QToolTip::hideText();
    return true;
}
