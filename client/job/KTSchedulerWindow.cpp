#include "client/job/KTSchedulerWindow.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>

#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "core/schedule/ScheduleWords.h"

namespace {

constexpr uint32_t kTimeChanged = "TIME"_code;
constexpr uint32_t kDateChanged = "DATE"_code;
constexpr uint32_t kIntervalChanged = "REPE"_code;
constexpr uint32_t kDayChanged = "EXCL"_code;
constexpr char kRepeatTitle[] = "Repeat";
constexpr char kTimeTitle[] = "Time";  // of the date's alert, too
constexpr std::chrono::seconds kTick{20};
constexpr int kDayColumns = 4;

BMessage FromSource(uint32_t code, QWidget* source) {
    BMessage message(code);
    message.Add("source", static_cast<void*>(source));
    return message;
}

}  // namespace

KTSchedulerWindow::KTSchedulerWindow(const QString& title, QWidget* parentWindow,
                                     const BMessage& record, uint32_t replyCode, BMessenger target,
                                     KTSchedulerClock clock)
    : KTSetWindow(title, parentWindow, record, replyCode, target), fClock(std::move(clock)) {
    MakeControls();
    SetScheduler(record);
    fTick.callOnTimeout([this] { ShowNextRun(); });
    fTick.start(kTick);
    fTime->setFocus();
    fTime->selectAll();
}

// --- controls -----------------------------------------------------------------------------------

QLineEdit* KTSchedulerWindow::MakeField(const char* name, uint32_t code) {
    auto* field = new QLineEdit;
    KTControl::Name(field, name);
    KTControl::Bind(field, FromSource(code, field), this);
    KeepReturn(field);
    connect(field, &QLineEdit::textChanged, this, &KTSchedulerWindow::ShowNextRun);
    return field;
}

void KTSchedulerWindow::MakeControls() {
    using namespace core;
    const auto label = [](int32_t text, QWidget* field) {
        auto* made = new QLabel(KTControl::LabelText(text));
        made->setBuddy(field);
        return made;
    };
    auto* run = new QGroupBox(KTControl::LabelText(text::kRunJob));
    fTime = MakeField("TIME", kTimeChanged);
    fDate = MakeField("DATE", kDateChanged);
    auto* when = new QHBoxLayout(run);
    when->addWidget(label(text::kAt, fTime));
    when->addWidget(fTime);
    when->addWidget(label(text::kOn, fDate));
    when->addWidget(fDate);

    auto* repeat = new QGroupBox(KTControl::LabelText(text::kRepeatInterval));
    auto* intervals = new QGridLayout(repeat);
    for (size_t i = 0; i < fIntervals.size(); ++i) {
        const int column = static_cast<int>(i);
        fIntervals[i] = MakeField(client::kIntervals[i], kIntervalChanged);
        fIntervals[i]->setMinimumWidth(fontMetrics().horizontalAdvance("0000000"));
        intervals->addWidget(label(text::kMonths + column, fIntervals[i]), 0, column);
        intervals->addWidget(fIntervals[i], 1, column);
    }

    auto* exclude = new QGroupBox(KTControl::LabelText(text::kExcludeDays));
    auto* days = new QGridLayout(exclude);
    for (size_t i = 0; i < fDays.size(); ++i) {
        const int place = static_cast<int>(i);
        fDays[i] = new QCheckBox(KTControl::LabelText(text::kSunday + place));
        KTControl::Name(fDays[i], client::kWeekdays[i]);
        KTControl::Bind(fDays[i], FromSource(kDayChanged, fDays[i]), this);
        connect(fDays[i], &QCheckBox::toggled, this, &KTSchedulerWindow::ShowNextRun);
        days->addWidget(fDays[i], place / kDayColumns, place % kDayColumns);
    }

    fNextRun = new QLabel;
    KTControl::Name(fNextRun, "str_nextrun");
    fNextRun->setTextFormat(Qt::PlainText);
    fNextRun->setWordWrap(true);
    // Its place is kept whatever it says, so that typing does not move the dialog.
    fNextRun->setMinimumHeight(3 * fNextRun->fontMetrics().lineSpacing());
    fNextRun->setAlignment(Qt::AlignTop | Qt::AlignLeft);

    auto* layout = new QVBoxLayout(BkgView());
    for (QGroupBox* group : {run, repeat, exclude})
        layout->addWidget(group);
    layout->addWidget(fNextRun);
    layout->addStretch(1);
}

void KTSchedulerWindow::SetScheduler(const BMessage& record) {
    SetPref(record);
    fShownAt = fClock.now();
    const client::ScheduleFields fields = client::FieldsOf(record, fShownAt, fClock.zone);
    fTime->setText(QString::fromStdString(fields.time));
    fDate->setText(QString::fromStdString(fields.date));
    for (size_t i = 0; i < fIntervals.size(); ++i)
        fIntervals[i]->setText(QString::fromStdString(fields.intervals[i]));
    for (size_t i = 0; i < fDays.size(); ++i)
        fDays[i]->setChecked(fields.excluded[i]);
    ShowNextRun();
}

client::ScheduleFields KTSchedulerWindow::Typed() const {
    client::ScheduleFields fields;
    fields.time = KTControl::ToBytes(fTime->text());
    fields.date = KTControl::ToBytes(fDate->text());
    for (size_t i = 0; i < fIntervals.size(); ++i)
        fields.intervals[i] = KTControl::ToBytes(fIntervals[i]->text());
    for (size_t i = 0; i < fDays.size(); ++i)
        fields.excluded[i] = fDays[i]->isChecked();
    return fields;
}

void KTSchedulerWindow::Save(BMessage& settings) {
    client::SaveFields(Typed(), &settings, fShownAt, fClock.zone);
}

void KTSchedulerWindow::ShowNextRun() {
    const client::ScheduleFields typed = Typed();
    std::string words;
    if (client::InstantOf(typed, fClock.zone)) {
        BMessage record;
        GetPref(&record);
        client::SaveFields(typed, &record, fShownAt, fClock.zone);
        words = core::NextRunText(core::Schedule::FromRecord(record), fClock.now(), fClock.zone);
    } else {
        words = KTControl::ToBytes(KTControl::Text(core::kMoreScheduleUnreadable));
    }
    fNextRun->setText(QString::fromStdString(words));
}

// --- what was typed -----------------------------------------------------------------------------

QLineEdit* KTSchedulerWindow::SourceOf(const BMessage& message) const {
    const void* source = message.Get<void*>("source", nullptr);
    for (QLineEdit* field : findChildren<QLineEdit*>())
        if (field == source) return field;
    return nullptr;
}

void KTSchedulerWindow::Warn(const char* title, int32_t textId) {
    KTAlert(this, title, KTControl::Text(textId), {KTControl::Text(core::text::kOk)},
            KTAlertRequest::Kind::Warning);
}

void KTSchedulerWindow::MessageReceived(BMessage& message) {
    const auto text = [this, &message]() -> std::optional<std::string> {
        const QLineEdit* field = SourceOf(message);
        return field ? std::optional(KTControl::ToBytes(field->text())) : std::nullopt;
    };
    switch (message.what) {
        case kIntervalChanged:
            if (const auto typed = text(); typed && !client::IsNumber(*typed))
                Warn(kRepeatTitle, core::text::kWrongNumber);
            break;
        case kDateChanged:
            if (const auto typed = text(); typed && !client::IsDate(*typed))
                Warn(kTimeTitle, core::text::kWrongDate);
            break;
        case kTimeChanged:
            if (const auto typed = text(); typed && !client::IsTime(*typed))
                Warn(kTimeTitle, core::text::kWrongTime);
            break;
        case kDayChanged:
            break;  // told by the line in words
        default:
            KTSetWindow::MessageReceived(message);
    }
}
