#include "client/report/KTLogSettingWindow.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <algorithm>
#include <limits>

#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kFamilyKey[] = "logtextfamily";
constexpr char kStyleKey[] = "logtextstyle";
constexpr char kSizeKey[] = "logtextsize";
constexpr char kFilterKey[] = "logfilter";
constexpr uint32_t kFontChosen = "RFON"_code;
constexpr uint32_t kSizeChosen = "RFSZ"_code;
constexpr uint32_t kFilterChosen = "RFLT"_code;
constexpr uint32_t kModeCodes[] = {"denv"_code, "deol"_code, "decn"_code};
constexpr uint32_t kDaysChanged = "dedy"_code;
constexpr uint32_t kCountChanged = "denb"_code;
constexpr uint32_t kOverwriteSwitched = "deov"_code;
constexpr uint32_t kConfirm = " ok "_code;
constexpr int32_t kSizes[] = {6, 7, 8, 9, 10, 11, 12, 13, 14, 16, 18, 20, 24, 28, 32};
constexpr int kFontColumns = 24;
enum FontRole { kFamilyRole = Qt::UserRole, kStyleRole };

bool IsNumber(const QString& text) {
    return !text.isEmpty() &&
           std::ranges::all_of(text, [](QChar c) { return c >= u'0' && c <= u'9'; });
}

// As far as the digits go.
int32_t NumberOf(const QString& text) {
    constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
    int64_t number = 0;
    for (const QChar c : text) {
        if (c < u'0' || c > u'9') break;
        number = std::min(number * 10 + (c.unicode() - u'0'), kMost);
    }
    return static_cast<int32_t>(number);
}

}  // namespace

KTLogSettingWindow::KTLogSettingWindow(QWidget* parentWindow, const BMessage& settings,
                                       uint32_t replyCode, const BMessenger& target,
                                       ServerLink* server)
    : KTSetWindow(KTControl::Text(core::kMoreReportSettings), parentWindow, settings, replyCode,
                  target),
      fFormer(settings),
      fReport(target),
      fServer(server),
      fInquiry(server) {
    auto* layout = new QVBoxLayout(BkgView());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(MakeTextBox());
    layout->addWidget(MakeDeletionBox());
    layout->addStretch(1);
    UpdateDeleteStatus();
    // Until the server has said how it is nothing can be changed, and nothing is sent.
    fDeletionBox->setEnabled(false);
    fInquiry.Ask(BMessage(core::code::kGetReportDeletion),
                 [this](const std::optional<BMessage>& answer) {
                     if (answer && answer->what != core::code::kNone) ShowDeletion(*answer);
                 });
}

// --- how reports are shown ----------------------------------------------------------------------

QWidget* KTLogSettingWindow::MakeTextBox() {
    using namespace core::text;
    auto* box = new QGroupBox(KTControl::LabelText(kReportText));
    auto* rows = new QFormLayout(box);
    const auto menu = [&](const QString& name, int32_t label) {
        auto* made = new QComboBox;
        made->setObjectName(name);
        made->setAccessibleName(KTControl::Text(label));
        rows->addRow(KTControl::LabelText(label), made);
        return made;
    };
    fFonts = menu(QStringLiteral("mnu_font"), kFont);
    fFonts->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    fFonts->setMinimumContentsLength(kFontColumns);
    FillFonts();
    connect(fFonts, &QComboBox::activated, this, [this](int index) {
        BMessage chosen(kFontChosen);
        chosen.Add("font", KTControl::ToBytes(fFonts->itemData(index, kFamilyRole).toString()));
        chosen.Add("style", KTControl::ToBytes(fFonts->itemData(index, kStyleRole).toString()));
        fReport.SendMessage(std::move(chosen));
    });
    fSizes = menu(QStringLiteral(u"Gr\u00f6\u00dfe"), kSize);
    FillSizes();
    connect(fSizes, &QComboBox::activated, this, [this](int index) {
        BMessage chosen(kSizeChosen);
        chosen.Add("size", static_cast<int32_t>(fSizes->itemData(index).toInt()));
        fReport.SendMessage(std::move(chosen));
    });
    fFilters = menu(QStringLiteral("mnu_filter"), kFilter);
    for (const int32_t text : {kVolumes, kDirectories, kFiles})
        fFilters->addItem(KTControl::Text(text));
    fFilters->setCurrentIndex(std::clamp(fFormer.Get<int32_t>(kFilterKey, 0), 0, 2));
    connect(fFilters, &QComboBox::activated, this, [this](int index) {
        BMessage chosen(kFilterChosen);
        chosen.Add("index", static_cast<int32_t>(index));
        fReport.SendMessage(std::move(chosen));
    });
    return box;
}

void KTLogSettingWindow::FillFonts() {
    const QString family = QString::fromStdString(fFormer.Get(kFamilyKey, std::string()));
    const QString style = QString::fromStdString(fFormer.Get(kStyleKey, std::string()));
    const auto add = [this](int index, const QString& itsFamily, const QString& itsStyle) {
        fFonts->insertItem(index, QStringLiteral("%1 %2").arg(itsFamily, itsStyle));
        fFonts->setItemData(index, itsFamily, kFamilyRole);
        fFonts->setItemData(index, itsStyle, kStyleRole);
    };
    int current = -1;
    for (const QString& each : QFontDatabase::families()) {
        for (const QString& its : QFontDatabase::styles(each)) {
            if (each == family && its == style) current = fFonts->count();
            add(fFonts->count(), each, its);
        }
    }
    // A font that was there when it was chosen.
    if (current < 0) add(current = 0, family, style);
    fFonts->setCurrentIndex(current);
}

void KTLogSettingWindow::FillSizes() {
    const int32_t size = fFormer.Get<int32_t>(kSizeKey, 0);
    const auto add = [this](int32_t points) {
        fSizes->addItem(QString::number(points), static_cast<int>(points));
    };
    for (const int32_t each : kSizes) {
        if (size > 0 && size < each && fSizes->findData(size) < 0) add(size);
        add(each);
    }
    if (fSizes->findData(size) < 0) add(size);
    fSizes->setCurrentIndex(fSizes->findData(size));
}

void KTLogSettingWindow::TakeBack() {
    if (fFonts->currentData(kFamilyRole).toString().toStdString() !=
            fFormer.Get(kFamilyKey, std::string()) ||
        fFonts->currentData(kStyleRole).toString().toStdString() !=
            fFormer.Get(kStyleKey, std::string())) {
        BMessage font(kFontChosen);
        font.Add("font", fFormer.Get(kFamilyKey, std::string()));
        font.Add("style", fFormer.Get(kStyleKey, std::string()));
        fReport.SendMessage(std::move(font));
    }
    if (const int32_t former = fFormer.Get<int32_t>(kSizeKey, 0);
        fSizes->currentData().toInt() != former) {
        BMessage size(kSizeChosen);
        size.Add("size", former);
        fReport.SendMessage(std::move(size));
    }
    if (const int32_t former = fFormer.Get<int32_t>(kFilterKey, 0);
        fFilters->currentIndex() != std::clamp(former, 0, 2)) {
        BMessage filter(kFilterChosen);
        filter.Add("index", former);
        fReport.SendMessage(std::move(filter));
    }
}

// --- when reports are deleted -------------------------------------------------------------------

QWidget* KTLogSettingWindow::MakeDeletionBox() {
    using namespace core::text;
    fDeletionBox = new QGroupBox(KTControl::LabelText(kReports));
    auto* rows = new QVBoxLayout(fDeletionBox);
    rows->addWidget(new QLabel(KTControl::LabelText(core::kMoreDeleteReportsWhen)));
    constexpr int32_t kLabels[] = {kNever, kOlderThan, kMoreThan};
    for (int mode = kKeep; mode <= kByCount; ++mode) {
        fModes[mode] = new QRadioButton(KTControl::LabelText(kLabels[mode]));
        KTControl::Name(fModes[mode], qPrintable(QString("rbtn_delete_%1").arg(mode)));
        KTControl::Bind(fModes[mode], BMessage(kModeCodes[mode]), this);
    }
    const auto number = [&](const char* name, Mode mode, int32_t unit, uint32_t code) {
        auto* field = new QLineEdit;
        KTControl::Name(field, name, KTControl::Text(kLabels[mode]) + ", " + KTControl::Text(unit));
        field->setMaximumWidth(field->fontMetrics().horizontalAdvance("0") * 12);
        KTControl::Bind(field, BMessage(code), this);
        KeepReturn(field);
        auto* row = new QHBoxLayout;
        row->addWidget(fModes[mode]);
        row->addWidget(field);
        row->addWidget(new QLabel(KTControl::LabelText(unit)));
        row->addStretch(1);
        rows->addLayout(row);
        return field;
    };
    rows->addWidget(fModes[kKeep]);
    fDays = number("txt_deleteolder", kByAge, core::kMoreDaysUnit, kDaysChanged);
    fCount = number("txt_deletecount", kByCount, core::kMoreReportsUnit, kCountChanged);
    fOverwrite = new QCheckBox(KTControl::LabelText(kWhenBackupDeleted));
    KTControl::Name(fOverwrite, "chk_deloverwrite");
    KTControl::Bind(fOverwrite, BMessage(kOverwriteSwitched), this);
    rows->addWidget(fOverwrite);
    return fDeletionBox;
}

void KTLogSettingWindow::ShowDeletion(const BMessage& deletion) {
    fDeletionKnown = true;
    fDeletionBox->setEnabled(true);
    fDays->setText(QString::number(deletion.Get<int32_t>("days", 0)));
    fCount->setText(QString::number(deletion.Get<int32_t>("count", 0)));
    fOverwrite->setChecked(deletion.Get<int32_t>("overwrite", 0) != 0);
    const int32_t mode = deletion.Get<int32_t>("mode", kKeep);
    SetMode(mode == kByAge || mode == kByCount ? static_cast<Mode>(mode) : kKeep);
}

void KTLogSettingWindow::SetMode(Mode mode) {
    fMode = mode;
    UpdateDeleteStatus();
}

void KTLogSettingWindow::UpdateDeleteStatus() {
    fModes[fMode]->setChecked(true);
    fDays->setEnabled(fMode == kByAge);
    fCount->setEnabled(fMode == kByCount);
}

bool KTLogSettingWindow::CheckNumber(const QLineEdit* field) {
    if (IsNumber(field->text())) return true;
    // One complaint at a time: the button that takes the focus away may come while it is shown.
    if (std::exchange(fComplaining, true)) return false;
    const bool days = field == fDays;
    KTAlert(this, KTControl::Text(days ? core::kMoreDayCount : core::kMoreReportCount),
            KTControl::Text(days ? core::text::kWrongDayCount : core::text::kWrongReportCount),
            {KTControl::Text(core::text::kOk)}, KTAlertRequest::Kind::Warning);
    fComplaining = false;
    return false;
}

// Reports must not be deleted by half a number.
bool KTLogSettingWindow::CheckBeforeOk() {
    QLineEdit* field = fMode == kByAge ? fDays : fMode == kByCount ? fCount : nullptr;
    if (!fDeletionKnown || !field || CheckNumber(field)) return true;
    field->setFocus();
    return false;
}

void KTLogSettingWindow::SendDeletion() {
    BMessage deletion(core::code::kReportDeletion);
    deletion.Add("mode", static_cast<int32_t>(fMode));
    deletion.Add("overwrite", static_cast<int32_t>(fOverwrite->isChecked()));
    deletion.Add("days", NumberOf(fDays->text()));
    deletion.Add("count", NumberOf(fCount->text()));
    fServer->PostServer(std::move(deletion));
}

// --- messages -----------------------------------------------------------------------------------

void KTLogSettingWindow::MessageReceived(BMessage& message) {
    switch (message.what) {
        case kModeCodes[0]:
            SetMode(kKeep);
            break;
        case kModeCodes[1]:
            SetMode(kByAge);
            break;
        case kModeCodes[2]:
            SetMode(kByCount);
            break;
        case kDaysChanged:
            CheckNumber(fDays);
            break;
        case kCountChanged:
            CheckNumber(fCount);
            break;
        case kOverwriteSwitched:
            break;  // read when the dialog closes
        case kConfirm:
            if (CheckBeforeOk()) KTSetWindow::MessageReceived(message);
            break;
        default:
            KTSetWindow::MessageReceived(message);
    }
}

void KTLogSettingWindow::Save(BMessage& settings) {
    if (!Result()) TakeBack();
    settings.Set(kFamilyKey, KTControl::ToBytes(fFonts->currentData(kFamilyRole).toString()));
    settings.Set(kStyleKey, KTControl::ToBytes(fFonts->currentData(kStyleRole).toString()));
    settings.Set(kSizeKey, static_cast<int32_t>(fSizes->currentData().toInt()));
    settings.Set(kFilterKey, static_cast<int32_t>(fFilters->currentIndex()));
    if (Result() && fDeletionKnown) SendDeletion();
}
