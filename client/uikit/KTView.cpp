#include "client/uikit/KTView.h"

#include <QFontMetricsF>
#include <QPainter>

KTView::KTView(const char* name, QWidget* parent) : QWidget(parent) {
    setObjectName(QString::fromLatin1(name));
}

void KTView::CenterString(QPainter& painter, const QRectF& rect, qreal y, const QString& text,
                          int length) {
    const QString shown = length > 0 ? text.left(length) : text;
    const qreal width = QFontMetricsF(painter.font()).horizontalAdvance(shown);
    painter.drawText(QPointF((rect.right() - width) * 0.5, y), shown);
}
