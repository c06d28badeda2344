#include "client/mainwindow/KTStartView.h"

#include <QPainter>
#include <QPushButton>
#include <QResizeEvent>
#include <algorithm>

#include "client/app/Product.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTIcons.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/protocol/Texts.h"

namespace {

constexpr QSize kLogoSize(201, 105);
constexpr qreal kLogoTop = 70;
constexpr int kFontSize = 12;
constexpr qreal kMakerBaseline = 185;
constexpr qreal kVersionBaseline = 200;
constexpr QSize kButtonSize(80, 20);
constexpr int kButtonMargin = 15;
constexpr QSize kLeastSize(kLogoSize.width(), 250);  // below it the button would lie on the version

float gLastWidth = 0;

}  // namespace

KTStartView::KTStartView(const BHandler* window, QWidget* parent) : KTView("start", parent) {
    setAttribute(Qt::WA_StaticContents);
    setAutoFillBackground(true);
    setMinimumSize(kLeastSize);
    setAccessibleName(QString::fromLatin1(client::kProductName));
    fQuit = new QPushButton(KTControl::LabelText(core::text::kQuit), this);
    KTControl::Name(fQuit, "btn_quit");
    KTControl::Bind(fQuit, BMessage(B_QUIT_REQUESTED), window);
}

void KTStartView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QRectF bounds = rect();
    if (fLogo.devicePixelRatio() != devicePixelRatioF() || fLogo.isNull())
        fLogo = KTIcons::Picture("logo", kLogoSize, devicePixelRatioF());
    painter.drawPixmap(QPointF((bounds.width() - (kLogoSize.width() - 1)) * 0.5, kLogoTop), fLogo);
    QFont font = painter.font();
    font.setPixelSize(kFontSize);
    painter.setFont(font);
    painter.setPen(palette().color(QPalette::WindowText));
    CenterString(painter, bounds, kMakerBaseline, QString::fromLatin1(client::kMaker));
    CenterString(painter, bounds, kVersionBaseline,
                 QStringLiteral("Version %1.%2 RELEASE %3")
                     .arg(client::kMajorVersion)
                     .arg(client::kMinorVersion)
                     .arg(QLatin1String(client::kBuildDate)));
}

void KTStartView::resizeEvent(QResizeEvent* event) {
    PlaceButton();
    const auto width = static_cast<float>(event->size().width());
    if (width != gLastWidth) update();
    gLastWidth = width;
}

void KTStartView::PlaceButton() {
    // The size that every text of ours fits in, but for a user who has chosen a large font.
    const QFontMetrics metrics = fQuit->fontMetrics();
    const QSize size = kButtonSize.expandedTo(
        {metrics.horizontalAdvance(fQuit->text()) + 2 * metrics.averageCharWidth(),
         metrics.height()});
    fQuit->setGeometry(QRect(
        QPoint((width() - size.width()) / 2, std::max(0, height() - kButtonMargin - size.height())),
        size));
}
