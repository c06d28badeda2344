// KTElidedLabel: a line of plain text that is cut where the window is too narrow, instead of
// widening it. text() stays whole; a tool tip shows it when it is cut.
#pragma once

#include <QLabel>

class KTElidedLabel : public QLabel {
    Q_OBJECT
public:
    explicit KTElidedLabel(Qt::TextElideMode mode = Qt::ElideRight, QWidget* parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    QString Cut() const;
    Qt::TextElideMode fMode;
};
