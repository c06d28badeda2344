#include "client/status/KTStatusSettingWindow.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <algorithm>
#include <cctype>

#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kRemoveSwitched = "stri"_code;
constexpr uint32_t kDelayChanged = "strd"_code;
constexpr char kUsualDelay[] = "10";
constexpr int64_t kLongestDelay = 24 * 60 * 60;  // seconds

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

KTStatusSettingWindow::KTStatusSettingWindow(QWidget* parentWindow, const BMessage& settings,
                                             uint32_t replyCode, BMessenger target)
    : KTSetWindow(KTControl::Text(core::text::kStatusWindowSettings), parentWindow, settings,
                  replyCode, target) {
    using namespace core::text;
    auto* layout = new QVBoxLayout(BkgView());
    const auto flag = [&](const char* name, const char* key, int32_t text, uint32_t code) {
        return AddFlag(layout, name, key, text, IsSet(key), code);
    };
    flag("chk_autoopen", "autoopen", kShowOnNewJob, "stao"_code);
    flag("chk_autoclose", "autoclose", kCloseWhenEmpty, "stac"_code);
    fRemoveItems = flag("chk_removeitems", "removeitems", kRemoveFinished, kRemoveSwitched);

    const auto delay = settings.Find<int32_t>("removedelay");
    fRemoveDelay = new QLineEdit(delay ? QString::number(*delay) : QString(kUsualDelay));
    KTControl::Name(fRemoveDelay, "txt_removedelay");
    fRemoveDelay->setMaximumWidth(fRemoveDelay->fontMetrics().horizontalAdvance("0") * 12);
    fRemoveDelay->setEnabled(fRemoveItems->isChecked());
    KTControl::Bind(fRemoveDelay, BMessage(kDelayChanged), this);
    auto* label = new QLabel(KTControl::LabelText(kRemoveDelay));
    label->setBuddy(fRemoveDelay);
    auto* row = new QHBoxLayout;
    row->addSpacing(24);
    row->addWidget(label);
    row->addWidget(fRemoveDelay);
    row->addWidget(new QLabel(KTControl::LabelText(kSeconds)));
    row->addStretch(1);
    layout->addLayout(row);
    flag("chk_followmain", "followmain", kFollowMainWindow, "stfw"_code);
    layout->addStretch(1);
}

void KTStatusSettingWindow::MessageReceived(BMessage& message) {
    switch (message.what) {
        case kRemoveSwitched:
            fRemoveDelay->setEnabled(fRemoveItems->isChecked());
            break;
        case kDelayChanged:
            CheckDelay(message);
            break;
        default:
            KTSetWindow::MessageReceived(message);
    }
}

void KTStatusSettingWindow::CheckDelay(const BMessage& message) {
    const std::string text = message.Get("text", std::string());
    if (std::ranges::all_of(text, IsDigit)) return;
    KTAlert(this, KTControl::Text(core::kMoreRemoveDelayTitle),
            KTControl::Text(core::text::kWrongDelay), {KTControl::Text(core::text::kOk)},
            KTAlertRequest::Kind::Warning);
}

std::optional<int32_t> KTStatusSettingWindow::Delay(const std::string& text) {
    if (text.empty() || !IsDigit(text.front())) return std::nullopt;
    int64_t seconds = 0;
    for (const char c : text) {
        if (!IsDigit(c)) break;
        seconds = std::min<int64_t>(seconds * 10 + (c - '0'), kLongestDelay);
    }
    return static_cast<int32_t>(seconds);
}

void KTStatusSettingWindow::Save(BMessage& settings) {
    SaveFlags(settings);
    // A text without a number keeps the former delay.
    if (const auto delay = Delay(KTControl::ToBytes(fRemoveDelay->text())))
        settings.Set("removedelay", *delay);
}
