#include "client/status/KTStatusView.h"

#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QProgressBar>
#include <QStyle>
#include <QToolButton>
#include <algorithm>
#include <array>

#include "client/app/ServerLink.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTElidedLabel.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "kit/support/KTPulseUtil.h"

namespace {

constexpr uint32_t kRemove = "svrm"_code;
constexpr QColor kPanelColor(232, 232, 232);
constexpr QColor kGoodColor(0, 167, 0);
constexpr QColor kBadColor(255, 0, 0);
constexpr QColor kAbnormalColor(255, 163, 0);
constexpr int kBarSteps = 1000;
constexpr int kLabelGap = 4;

// Only a text that differs is set, so that an unchanged field is not drawn anew.
void SetText(QLabel* label, const std::string& text) {
    const QString shown = KTControl::Shown(text);
    if (label->text() != shown) label->setText(shown);
}

int BarPosition(int64_t value, int64_t maximum) {
    if (maximum <= 0) return 0;
    const double share = static_cast<double>(value) / static_cast<double>(maximum);
    return static_cast<int>(std::clamp(share, 0.0, 1.0) * kBarSteps);
}

}  // namespace

KTStatusView::KTStatusView(const BMessage& jobStart, const BHandler* window, ServerLink* server)
    : fText(jobStart), fWindow(window), fServer(server) {
    WindowLooper()->AddHandler(this);
    setObjectName(QString::fromStdString(NameFor(jobStart.Get<int32_t>("job_id", 0))));
    setAutoFillBackground(true);
    MakeContents();
    SetColors();
    Show();
}

KTStatusView::~KTStatusView() = default;

QLabel* KTStatusView::AddRow(QGridLayout* grid, int row, int column, const QString& label,
                             const char* name) {
    auto* caption = new QLabel(label);
    caption->setTextFormat(Qt::PlainText);
    auto* value = new QLabel;
    value->setTextFormat(Qt::PlainText);
    KTControl::Name(value, (std::string("str_") + name).c_str());
    // Room for any value, so that nothing moves with the next one.
    value->setMinimumWidth(value->fontMetrics().horizontalAdvance("000000.0 MB"));
    grid->addWidget(caption, row, column);
    grid->addWidget(value, row, column + 1);
    return value;
}

void KTStatusView::MakeContents() {
    using namespace core::text;
    fBox = new QGroupBox(QString(KTControl::Shown(fText.BoxTitle())).replace('&', "&&"));
    auto* frame = new QVBoxLayout(this);
    frame->setContentsMargins(6, 6, 6, 6);
    frame->addWidget(fBox);

    auto* title = new KTElidedLabel;
    KTControl::Name(title, "str_title");
    title->setText(KTControl::Shown(fText.Title()));
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    fClose = new QToolButton;
    KTControl::Name(fClose, "btn_close", KTControl::Text(core::kMoreRemovePanel));
    fClose->setToolTip(KTControl::Text(core::kMoreRemovePanel));
    fClose->setIcon(style()->standardIcon(QStyle::SP_TitleBarCloseButton));
    fClose->setAutoRaise(true);
    KTControl::Bind(fClose, BMessage(kRemove), this);
    QSizePolicy keep = fClose->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    fClose->setSizePolicy(keep);
    fClose->hide();
    auto* head = new QHBoxLayout;
    head->addWidget(title, 1);
    head->addWidget(fClose);

    auto* grid = new QGridLayout;
    const auto label = [](int32_t id) { return KTControl::Text(id); };
    auto* statusLabel = new QLabel(label(kStatusLabel));
    fStatusLine = new KTElidedLabel(Qt::ElideMiddle);
    KTControl::Name(fStatusLine, "str_status");
    grid->addWidget(statusLabel, 0, 0);
    grid->addWidget(fStatusLine, 0, 1, 1, 3);
    fFilesDone = AddRow(grid, 1, 0, KTControl::Shown(fText.FilesLabel()), "files");
    fFilesTotal = AddRow(grid, 1, 2, label(kFilesToReadLabel), "maxfiles");
    fBytesDone = AddRow(grid, 2, 0, KTControl::Shown(fText.BytesLabel()), "bytes");
    fBytesTotal = AddRow(grid, 2, 2, label(kBytesToReadLabel), "maxbytes");
    fElapsed = AddRow(grid, 3, 0, label(kTimeElapsedLabel), "elapsed");
    fRemain = AddRow(grid, 3, 2, label(kTimeRemainLabel), "remain");
    int widest = 0;
    for (int row = 0; row < grid->rowCount(); ++row)
        widest = std::max(widest, grid->itemAtPosition(row, 0)->widget()->sizeHint().width());
    grid->setColumnMinimumWidth(0, widest + kLabelGap);
    for (const int column : {1, 3})
        grid->setColumnStretch(column, 1);

    fFileName = new KTElidedLabel(Qt::ElideMiddle);
    KTControl::Name(fFileName, "str_file");
    fBar = new QProgressBar;
    KTControl::Name(fBar, "bar_progress", KTControl::Text(core::kMoreProgress));
    fBar->setRange(0, kBarSteps);
    fBar->setTextVisible(false);
    fSpeed = new QLabel;
    KTControl::Name(fSpeed, "str_speed");
    fSpeed->setTextFormat(Qt::PlainText);
    // Wide enough for any speed, so that the bar does not move with every update.
    fSpeed->setMinimumWidth(fSpeed->fontMetrics().horizontalAdvance(
        QString::fromStdString(core::SpeedText(1e3 * 1024))));
    auto* bar = new QHBoxLayout;
    bar->addWidget(fFileName, 1);
    bar->addWidget(fBar, 1);
    bar->addWidget(fSpeed);

    auto* layout = new QVBoxLayout(fBox);
    layout->addLayout(head);
    layout->addLayout(grid);
    layout->addLayout(bar);
}

void KTStatusView::SetTimeout(int32_t seconds) {
    fRemoveDelay = std::chrono::seconds(std::max(seconds, 1));
}

void KTStatusView::EnableTimeout(bool enable) {
    fAutoRemove = enable;
    if (!enable)
        fTimer.reset();
    else if (IsFinished() && !fTimer)
        StartTimer();
}

void KTStatusView::ServerGone() {
    if (!IsFinished()) Finish(static_cast<int32_t>(core::JobEnd::Abnormal));
}

void KTStatusView::MessageReceived(BMessage& message) {
    static constexpr std::array<KTDispatchEntry<KTStatusView>, 4> kTable = {
        {{core::code::kJobStarted, &KTStatusView::JobStart},
         {core::code::kJobProgress, &KTStatusView::UpdateStatus},
         {core::code::kJobFinished, &KTStatusView::JobFinished},
         {kRemove, &KTStatusView::Remove}}};
    if (!KTDispatch<KTStatusView>(this, kTable, message)) BHandler::MessageReceived(message);
}

void KTStatusView::JobStart(BMessage& message) {
    const auto id = message.Find<int32_t>("job_id");
    if (!id) return;
    BMessage accept(core::code::kAcceptStatus);
    accept.Add("job_id", *id);
    accept.Add("user", BMessenger(this));
    // A notice that nobody waits for is accepted by a message of its own.
    if (!message.SendReply(accept)) fServer->PostServer(std::move(accept));
}

void KTStatusView::UpdateStatus(BMessage& message) {
    fText.Update(message);
    Show();
}

void KTStatusView::JobFinished(BMessage& message) {
    if (!IsFinished()) Finish(message.Get<int32_t>("status", -1));
}

void KTStatusView::Finish(int32_t status) {
    fText.Finish(status);
    fClose->show();
    SetColors();
    Show();
    if (fAutoRemove) StartTimer();
}

void KTStatusView::Remove(BMessage& message) {
    // Only the panel's own timer and button: it is no message of the protocol.
    if (message.IsSourceRemote()) return;
    BMessage remove(kRemove);
    remove.Add("name", objectName().toStdString());
    WindowLooper()->PostMessage(std::move(remove), fWindow);
    fTimer.reset();
}

void KTStatusView::StartTimer() {
    fTimer = std::make_unique<KTPulseUtil>(fRemoveDelay, kRemove, BMessenger(this),
                                           KTPulseUtil::Mode::Once);
}

void KTStatusView::Show() {
    SetText(fStatusLine, fText.StatusLine());
    SetText(fFilesDone, fText.FilesDone());
    SetText(fFilesTotal, fText.FilesTotal());
    SetText(fBytesDone, fText.BytesDone());
    SetText(fBytesTotal, fText.BytesTotal());
    SetText(fElapsed, fText.Elapsed());
    SetText(fRemain, fText.Remain());
    SetText(fFileName, fText.FileName());
    SetText(fSpeed, fText.Speed());
    fBar->setValue(BarPosition(fText.BarValue(), fText.BarMaximum()));
}

void KTStatusView::SetColors() {
    // A dark desktop keeps its own ground: a light card there would blind.
    QPalette panel;
    const bool dark = panel.color(QPalette::Window).lightness() < 128;
    if (!dark) panel.setColor(QPalette::Window, kPanelColor);
    setPalette(panel);
    QPalette bar = panel;
    switch (fText.Ended()) {
        case KTStatusText::Outcome::Running:
            break;
        case KTStatusText::Outcome::Good:
            bar.setColor(QPalette::Highlight, kGoodColor);
            break;
        case KTStatusText::Outcome::Canceled:
        case KTStatusText::Outcome::Errors:
            bar.setColor(QPalette::Highlight, kBadColor);
            break;
        case KTStatusText::Outcome::Abnormal:
            bar.setColor(QPalette::Highlight, kAbnormalColor);
            break;
    }
    fBar->setPalette(bar);
}

void KTStatusView::changeEvent(QEvent* event) {
    QFrame::changeEvent(event);
    if (event->type() == QEvent::ThemeChange || event->type() == QEvent::ApplicationPaletteChange)
        SetColors();
}
