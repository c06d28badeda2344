// Printing a report: the page set-up as the settings keep it, and the job that draws the pages, a
// few at a time, so that the window goes on while a long report is printed. Main thread.
#pragma once

#include <QBasicTimer>
#include <QObject>
#include <QPainter>
#include <functional>
#include <memory>

#include "client/report/KTReportText.h"

class QPageLayout;
class QPrinter;

inline constexpr char kReportPrintName[] = "KTBackupReport";  // of the print job

namespace KTPageSetup {

// "paper" (string, Qt's key of the size), "width" and "height" (float, mm), "landscape" (int32 0 or
// 1), "left", "top", "right", "bottom" (float, margins in mm). What is missing or makes no sense
// stays as it is.
BMessage ToMessage(const QPageLayout& layout);
void Apply(const BMessage& setup, QPrinter* printer);

}  // namespace KTPageSetup

class KTReportPrinter : public QObject {
    Q_OBJECT
public:
    struct Sheet {
        KTReportText text;
        QFont font;
        QString heading;  // at the foot of each page, beside its number
    };
    // `done` is told once whether all of it was printed; not when it is deleted before. `page` is
    // told each page that is begun.
    KTReportPrinter(std::unique_ptr<QPrinter> printer, Sheet sheet, std::function<void(int)> page,
                    std::function<void(bool)> done, QObject* parent);
    ~KTReportPrinter() override;  // what is not printed yet is not printed

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    void Measure();
    bool NextLine();   // false when there is none left, or the printer failed
    bool BeginPage();  // draws the foot
    bool IsOnWantedPage() const;
    bool IsBehindWantedPages() const;
    void DrawFoot();
    void DrawSign(qreal y, qreal height);
    void End(bool good);

    std::unique_ptr<QPrinter> fPrinter;
    const Sheet fSheet;
    const std::function<void(int)> fTellPage;
    const std::function<void(bool)> fDone;
    QPainter fPainter;
    QBasicTimer fNext;
    qreal fWidth = 0, fHeight = 0, fMargin = 0, fLineHeight = 0;  // printer's units
    qreal fCharWidth = 0;                                         // screen's units
    qreal fY = 0;
    int fLine = 0;
    int fPage = 0;        // the one at hand, from 1
    bool fDrawn = false;  // a wanted page was begun
};
