#include "client/report/KTReportPrinter.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPageLayout>
#include <QPrinter>
#include <QScreen>
#include <QTextLayout>
#include <QTimerEvent>
#include <cmath>

#include "client/uikit/KTControl.h"

namespace {

constexpr int kSlice = 20;        // milliseconds at a time
constexpr float kLargest = 5000;  // mm, of a page or a margin

bool IsSensible(float millimetres) {
    return std::isfinite(millimetres) && millimetres >= 0 && millimetres <= kLargest;
}

}  // namespace

// --- page set-up --------------------------------------------------------------------------------

BMessage KTPageSetup::ToMessage(const QPageLayout& layout) {
    BMessage setup;
    const QSizeF size = layout.pageSize().size(QPageSize::Millimeter);
    const QMarginsF margins = layout.margins(QPageLayout::Millimeter);
    setup.Add("paper", KTControl::ToBytes(layout.pageSize().key()));
    setup.Add("width", static_cast<float>(size.width()));
    setup.Add("height", static_cast<float>(size.height()));
    setup.Add("landscape", int32_t{layout.orientation() == QPageLayout::Landscape});
    setup.Add("left", static_cast<float>(margins.left()));
    setup.Add("top", static_cast<float>(margins.top()));
    setup.Add("right", static_cast<float>(margins.right()));
    setup.Add("bottom", static_cast<float>(margins.bottom()));
    return setup;
}

void KTPageSetup::Apply(const BMessage& setup, QPrinter* printer) {
    const float width = setup.Get("width", 0.0F), height = setup.Get("height", 0.0F);
    if (width > 0 && height > 0 && IsSensible(width) && IsSensible(height)) {
        const QSizeF size(width, height);
        const QPageSize::PageSizeId known = QPageSize::id(size, QPageSize::Millimeter);
        printer->setPageSize(known == QPageSize::Custom ? QPageSize(size, QPageSize::Millimeter)
                                                        : QPageSize(known));
    }
    if (const auto landscape = setup.Find<int32_t>("landscape"))
        printer->setPageOrientation(*landscape ? QPageLayout::Landscape : QPageLayout::Portrait);
    const float left = setup.Get("left", -1.0F), top = setup.Get("top", -1.0F),
                right = setup.Get("right", -1.0F), bottom = setup.Get("bottom", -1.0F);
    // Margins that the paper does not have are refused by the printer itself.
    if (IsSensible(left) && IsSensible(top) && IsSensible(right) && IsSensible(bottom))
        printer->setPageMargins({left, top, right, bottom}, QPageLayout::Millimeter);
}

// --- the job ------------------------------------------------------------------------------------

KTReportPrinter::KTReportPrinter(std::unique_ptr<QPrinter> printer, Sheet sheet,
                                 std::function<void(int)> page, std::function<void(bool)> done,
                                 QObject* parent)
    : QObject(parent),
      fPrinter(std::move(printer)),
      fSheet(std::move(sheet)),
      fTellPage(std::move(page)),
      fDone(std::move(done)) {
    fNext.start(0, this);
}

KTReportPrinter::~KTReportPrinter() {
    if (!fPainter.isActive()) return;
    fPrinter->abort();
    fPainter.end();
}

void KTReportPrinter::timerEvent(QTimerEvent*) {
    if (!fPainter.isActive()) {
        if (!fPainter.begin(fPrinter.get())) return End(false);
        Measure();
    }
    QElapsedTimer slice;
    slice.start();
    while (slice.elapsed() < kSlice) {
        if (fPrinter->printerState() == QPrinter::Error) return End(false);
        if (fLine == fSheet.text.CountLines() || IsBehindWantedPages()) return End(fPainter.end());
        if (!NextLine()) return End(false);
    }
}

void KTReportPrinter::Measure() {
    fPainter.setFont(fSheet.font);
    const QFontMetricsF metrics(fSheet.font, fPrinter.get());
    fLineHeight = metrics.lineSpacing();
    // Tab stops are told in the screen's resolution; the layout scales them to the printer's.
    fCharWidth = metrics.averageCharWidth() *
                 std::round(QGuiApplication::primaryScreen()->logicalDotsPerInchY()) /
                 fPrinter->logicalDpiY();
    fMargin = fLineHeight;
    const QRect page = fPrinter->pageLayout().paintRectPixels(fPrinter->resolution());
    fWidth = std::max(page.width() - fMargin, fLineHeight);
    fHeight = std::max(page.height() - 2 * fLineHeight, fLineHeight);  // without the foot
    fY = fHeight;  // the first line begins a page
}

bool KTReportPrinter::IsOnWantedPage() const {
    return fPrinter->printRange() != QPrinter::PageRange ||
           (fPage >= fPrinter->fromPage() && fPage <= fPrinter->toPage());
}

bool KTReportPrinter::IsBehindWantedPages() const {
    return fPrinter->printRange() == QPrinter::PageRange && fPage > fPrinter->toPage();
}

bool KTReportPrinter::BeginPage() {
    ++fPage;
    fY = 0;
    fTellPage(fPage);
    if (!IsOnWantedPage()) return true;
    if (std::exchange(fDrawn, true) && !fPrinter->newPage()) return false;
    DrawFoot();
    return true;
}

void KTReportPrinter::DrawFoot() {
    const QFontMetricsF metrics(fSheet.font, fPrinter.get());
    const QString number = QString::number(fPage);
    const qreal room = fWidth - metrics.horizontalAdvance(number) - fLineHeight;
    const QRectF foot(fMargin, fHeight + fLineHeight, fWidth, fLineHeight);
    fPainter.drawText(foot, Qt::AlignLeft | Qt::TextSingleLine,
                      metrics.elidedText(fSheet.heading, Qt::ElideRight, room));
    fPainter.drawText(foot, Qt::AlignRight | Qt::TextSingleLine, number);
}

// Told apart without any colour.
void KTReportPrinter::DrawSign(qreal y, qreal height) {
    fPainter.drawText(QRectF(0, y, fMargin * 0.8, height), Qt::AlignHCenter | Qt::AlignTop,
                      QStringLiteral("!"));
}

bool KTReportPrinter::NextLine() {
    QTextLayout layout(fSheet.text.LineAt(fLine), fSheet.font, fPrinter.get());
    layout.setTextOption(
        KTReportLineOption(layout.text(), fCharWidth, QTextOption::WrapAtWordBoundaryOrAnywhere));
    layout.beginLayout();
    for (QTextLine part = layout.createLine(); part.isValid(); part = layout.createLine())
        part.setLineWidth(fWidth);
    layout.endLayout();
    // A line that is too long for the paper goes on below, if need be on the next page.
    for (int i = 0; i < layout.lineCount(); ++i) {
        if (fY + fLineHeight > fHeight && !BeginPage()) return false;
        if (IsOnWantedPage()) {
            if (i == 0 && fSheet.text.IsProblem(fLine)) DrawSign(fY, fLineHeight);
            layout.lineAt(i).draw(&fPainter, QPointF(fMargin, fY - layout.lineAt(i).y()));
        }
        fY += fLineHeight;
    }
    ++fLine;
    return true;
}

void KTReportPrinter::End(bool good) {
    fNext.stop();
    if (fPainter.isActive()) {
        fPrinter->abort();
        fPainter.end();
    }
    deleteLater();
    fDone(good);
}
