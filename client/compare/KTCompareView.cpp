#include "client/compare/KTCompareView.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QMenu>
#include <QPushButton>

#include "client/app/ServerLink.h"
#include "client/compare/KTCmpSettingWindow.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTElidedLabel.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kSettingsKey[] = "win_cmpsettings";
constexpr uint32_t kOpenSettings = "cmse"_code;
constexpr uint32_t kSettingsAnswer = "cmpq"_code;
constexpr uint32_t kStartCode = "cmst"_code;
constexpr uint32_t kPasswordCode = "cmpw"_code;
const QString kDots = QStringLiteral("...");

}  // namespace

KTCompareView::KTCompareView(KTToolContext context, QWidget* parent, const char* name)
    : KTCatalogueTool(name,
                      {kStartCode, "cmsq"_code, "win_cmpstart", core::text::kStartCompare,
                       core::text::kNothingSelectedToCompare},
                      std::move(context), parent) {
    MakeControls();
    MakeMenu();
    InitControls();
}

void KTCompareView::MakeControls() {
    using namespace core;
    fCatalogue = new KTLogDataView(Context().server, Context().preferences, this);
    fCatalogue->HideRedirections();
    SetCatalogue(fCatalogue);
    const auto button = [this](const char* name, int32_t label, uint32_t code) {
        auto* made = new QPushButton(KTControl::LabelText(label) + kDots);
        KTControl::Name(made, name);
        KTControl::Bind(made, BMessage(code), this);
        return made;
    };
    fSettings = button("btn_cmpsettings", text::kSettings, kOpenSettings);
    fPassword = button("btn_cmppassword", text::kPassword, kPasswordCode);
    fStart = button("btn_resstart", text::kStartCompare, kStartCode);
    const ScheduleControls schedule =
        MakeSchedule({"mnu_resscheduler", "btn_resscheduler", "str_cmpscheduler", "cmsc"_code,
                      QStringLiteral("--")});
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(fSettings);
    bottom->addWidget(fPassword);
    bottom->addStretch(1);
    bottom->addWidget(fStart);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(fCatalogue, 1);
    layout->addLayout(RowOf(schedule));
    layout->addLayout(bottom);
    QWidget* before = fCatalogue;
    for (QWidget* next : std::initializer_list<QWidget*>{schedule.menu, schedule.button, fSettings,
                                                         fPassword, fStart})
        setTabOrder(std::exchange(before, next), next);
}

void KTCompareView::MakeMenu() {
    using namespace core::text;
    fMenu = new QMenu(fCatalogue);
    fMenu->setObjectName("compareppopup");  // as everybody knows it
    const auto add = [this](const QString& label, uint32_t code) {
        fMenu->addAction(KTControl::MakeAction(fMenu, label, BMessage(code), this));
    };
    add(KTControl::LabelText(kSelectAll), "sall"_code);
    add(KTControl::LabelText(kClearAll), "sclr"_code);
    fMenu->addSeparator();
    add(KTControl::LabelText(kSettings) + kDots, kOpenSettings);
    add(KTControl::LabelText(kStartCompare), kStartCode);
    fCatalogue->SetPopUpMenu(fMenu);
}

void KTCompareView::HideStart() {
    fCatalogue->KeepMissing();
    fStart->hide();
    for (QAction* action : fMenu->actions())
        if (action->objectName() == "cmst") action->setVisible(false);
}

void KTCompareView::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTCompareView>;
    static constexpr Entry kTable[] = {
        {kOpenSettings, &KTCompareView::OpenSettings},
        {kSettingsAnswer, &KTCompareView::SettingsAnswered},
        {kPasswordCode, &KTCompareView::AskPassword},
    };
    if (!KTDispatch<KTCompareView>(this, kTable, message))
        KTCatalogueTool::MessageReceived(message);
}

QString KTCompareView::AlertTitle() const {
    return KTControl::Text(core::text::kCompare);
}

void KTCompareView::InitControls() {
    InitSelection();
    InitScheduler();
}

void KTCompareView::OpenSettings(BMessage&) {
    if (RaiseIfOpen(kSettingsKey)) return;
    Present(kSettingsKey,
            new KTCmpSettingWindow(KTControl::Text(core::text::kCompareSettings), window(),
                                   fJob.Settings(), kSettingsAnswer, BMessenger(this)));
}

void KTCompareView::SettingsAnswered(BMessage& message) {
    Forget(kSettingsKey);
    if (message.Get("result", false)) fJob.SetSettings(message.Get("settings", BMessage()));
}

// The start dialog of a comparison asks for no passwords: the backup that the user is at, or else
// the first marked one, is opened by itself.
void KTCompareView::AskPassword(BMessage&) {
    const KTRow row = fCatalogue->CurrentRow();
    KTRow backup = row == kNoRow ? kNoRow : fCatalogue->BackupOf(row);
    const auto marked = fCatalogue->MarkedBackups();
    if (backup == kNoRow && !marked.empty()) backup = marked.front();
    if (backup == kNoRow) return Alert(core::text::kNothingSelectedToCompare);
    Unlock(backup);
}

void KTCompareView::BeforeSending() {
    fJob.InitSettings();
}
