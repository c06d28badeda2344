// KTView: a plain view that can draw a text centred.
#pragma once

#include <QWidget>

class QPainter;

class KTView : public QWidget {
    Q_OBJECT
public:
    explicit KTView(const char* name, QWidget* parent = nullptr);

    // Draws `text` (its first `length` characters; 0: all of it) in the painter's font so that it
    // lies in the middle between 0 and the rectangle's right edge, on the baseline `y`. One that is
    // too wide begins left of 0: it is cut on both sides.
    static void CenterString(QPainter& painter, const QRectF& rect, qreal y, const QString& text,
                             int length = 0);
};
