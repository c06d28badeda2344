#include "client/job/KTJobTool.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QFile>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QUrl>

#include "client/job/KTSchedulerWindow.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTElidedLabel.h"
#include "client/uikit/KTFilePanels.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "core/schedule/ScheduleWords.h"
#include "kit/app/BLooper.h"

namespace {

constexpr char kSaveKey[] = "win_saveselection";
constexpr char kLoadKey[] = "win_loadselection";
constexpr char kSchedulerKey[] = "win_scheduler";
constexpr uint32_t kSaveAnswer = "spcl"_code;
constexpr uint32_t kLoadAnswer = "lpcl"_code;
constexpr uint32_t kSchedulerAnswer = "swqt"_code;
constexpr uint32_t kSchedulerMenu = "bsch"_code;
constexpr std::chrono::minutes kTick{1};
enum SchedulerItem { kAtOnce, kScheduled };

}  // namespace

KTJobTool::KTJobTool(const char* name, KTToolContext context, QWidget* parent)
    : KTToolView(name, std::move(context), parent) {
    setAcceptDrops(true);
}

void KTJobTool::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTJobTool>;
    static constexpr Entry kTable[] = {
        {"ssel"_code, &KTJobTool::OpenSavePanel},
        {"lsel"_code, &KTJobTool::OpenLoadPanel},
        {kSaveAnswer, &KTJobTool::SavePanelAnswered},
        {kLoadAnswer, &KTJobTool::LoadPanelAnswered},
        {B_CANCEL, &KTJobTool::PanelCancelled},
        {kSchedulerMenu, &KTJobTool::SchedulerChosen},
        {kSchedulerAnswer, &KTJobTool::SchedulerAnswered},
    };
    if (fScheduleCode != 0 && message.what == fScheduleCode) return OpenScheduler();
    if (!KTDispatch<KTJobTool>(this, kTable, message)) KTToolView::MessageReceived(message);
}

void KTJobTool::Alert(int32_t textId) {
    KTAlert(this, AlertTitle(), KTControl::Text(textId), {KTControl::Text(core::text::kOk)},
            KTAlertRequest::Kind::Warning);
}

void KTJobTool::FileProblem(int32_t textId, const std::string& path) {
    KTAlert(this, AlertTitle(), KTControl::Text(textId).replace("%s", KTControl::Shown(path)),
            {KTControl::Text(core::text::kOk)}, KTAlertRequest::Kind::Warning);
}

void KTJobTool::Present(const char* key, QWidget* window) {
    Remember(key, window);
    window->show();
    window->raise();
    window->activateWindow();
}

// --- settings and job files ---------------------------------------------------------------------

void KTJobTool::GetPref(BMessage* settings) {
    SaveSelection();
    *settings = Job();
}

void KTJobTool::SetPref(const BMessage& settings) {
    OwnJob().Replace(settings);
    InitControls();
}

void KTJobTool::SetPref(const entry_ref& file) {
    BMessage loaded;
    const std::string_view selection = OwnJob().Files().selectionMagic;
    if (core::MagicOf(file.path) == selection) {
        if (core::LoadHeaderFile(file.path, selection, &loaded) != core::HeaderLoad::Good)
            return FileProblem(core::kMoreJobNotLoaded, file.path);
        OwnJob().SetSelection(loaded);
        return InitSelection();
    }
    if (LoadJobData(file, &loaded) != 0) return FileProblem(core::kMoreJobNotLoaded, file.path);
    loaded.Set("selectionpath", file.path);
    SetPref(loaded);
}

int32_t KTJobTool::SaveJobData(const BMessage& panelAnswer) {
    const auto path = KTFilePanels::SavePath(panelAnswer);
    if (!path) return static_cast<int32_t>(core::HeaderSave::CannotCreate);
    return static_cast<int32_t>(OwnJob().Save(*path));
}

int32_t KTJobTool::LoadJobData(const entry_ref& file, BMessage* job) const {
    return static_cast<int32_t>(OwnJob().Load(file.path, job));
}

void KTJobTool::OpenSavePanel(BMessage&) {
    if (RaiseIfOpen(kSaveKey)) return;
    const KTFilePanels::Place place{OwnJob().Path(), Context().userFolder + "/jobsettings",
                                    OwnJob().Files().defaultName};
    Remember(kSaveKey, KTFilePanels::OpenSave(this, place, kSaveAnswer, this));
}

void KTJobTool::OpenLoadPanel(BMessage&) {
    if (RaiseIfOpen(kLoadKey)) return;
    const KTFilePanels::Place place{OwnJob().Path(), Context().userFolder + "/jobsettings",
                                    OwnJob().Files().defaultName};
    Remember(kLoadKey, KTFilePanels::OpenLoad(this, place, kLoadAnswer, this));
}

void KTJobTool::SavePanelAnswered(BMessage& message) {
    Forget(kSaveKey);
    const auto path = KTFilePanels::SavePath(message);
    if (!path) return;
    const std::string before = OwnJob().Path();
    OwnJob().SetPath(*path);
    SaveSelection();
    if (SaveJobData(message) == 0) return;
    OwnJob().SetPath(before);
    FileProblem(core::kMoreJobNotSaved, *path);
}

void KTJobTool::LoadPanelAnswered(BMessage& message) {
    Forget(kLoadKey);
    if (const auto path = KTFilePanels::LoadPath(message)) SetPref(entry_ref{*path});
}

void KTJobTool::PanelCancelled(BMessage& message) {
    const auto what = static_cast<uint32_t>(message.Get<int32_t>("old_what", 0));
    if (what == kLoadAnswer) Forget(kLoadKey);
    if (what == kSaveAnswer) Forget(kSaveKey);
}

// The first file of a drop that this tool can open.
std::optional<std::string> KTJobTool::DroppedFile(const QMimeData* data) const {
    const KTJob::FileKind& files = OwnJob().Files();
    for (const QUrl& url : data->urls()) {
        if (!url.isLocalFile()) continue;
        const std::string path = QFile::encodeName(url.toLocalFile()).toStdString();
        const std::string magic = core::MagicOf(path);
        if (magic == files.jobMagic || magic == files.selectionMagic) return path;
    }
    return std::nullopt;
}

void KTJobTool::dragEnterEvent(QDragEnterEvent* event) {
    if (DroppedFile(event->mimeData())) event->acceptProposedAction();
}

void KTJobTool::dropEvent(QDropEvent* event) {
    const auto path = DroppedFile(event->mimeData());
    if (!path) return;
    event->acceptProposedAction();
    SetPref(entry_ref{*path});
}

// --- schedule -----------------------------------------------------------------------------------

KTJobTool::ScheduleControls KTJobTool::MakeSchedule(const ScheduleNames& names) {
    const QString scheduler = KTControl::Text(core::text::kScheduler);
    fSchedule.menu = new QComboBox;
    KTControl::Name(fSchedule.menu, names.menu, scheduler);
    fSchedule.menu->addItem(KTControl::Text(core::text::kNone));
    fSchedule.menu->addItem(scheduler);
    KTControl::Bind(fSchedule.menu, kSchedulerMenu, this);
    fSchedule.button = new QPushButton(KTControl::LabelText(core::text::kSettings) + "...");
    KTControl::Name(fSchedule.button, names.button,
                    scheduler + ": " + KTControl::Text(core::text::kSettings));
    KTControl::Bind(fSchedule.button, BMessage(names.buttonCode), this);
    fSchedule.words = new KTElidedLabel;
    KTControl::Name(fSchedule.words, names.words);
    fScheduleCode = names.buttonCode;
    fNoTime = names.noTime;
    fTick.callOnTimeout([this] { ShowSchedule(); });
    fTick.start(kTick);
    return fSchedule;
}

QHBoxLayout* KTJobTool::RowOf(const ScheduleControls& schedule) {
    auto* label = new QLabel(KTControl::LabelText(core::text::kScheduler));
    label->setBuddy(schedule.menu);
    auto* row = new QHBoxLayout;
    row->addWidget(label);
    row->addWidget(schedule.menu);
    row->addWidget(schedule.button);
    row->addWidget(schedule.words, 1);
    return row;
}

void KTJobTool::InitScheduler() {
    const uint32_t time = OwnJob().StartTime();
    fSchedule.menu->setCurrentIndex(time != 0 ? kScheduled : kAtOnce);
    ShowSchedule();
}

void KTJobTool::ShowSchedule() {
    const uint32_t time = OwnJob().StartTime();
    QString words = fNoTime;
    if (time != 0) {
        words =
            KTControl::Text(core::text::kStartJobAt) + QString::fromStdString(core::DateText(time));
        const auto schedule = core::Schedule::FromRecord(OwnJob().Schedule());
        if (schedule.Repeats() || schedule.excluded != 0) {
            words += ". " + QString::fromStdString(core::NextRunText(schedule, std::time(nullptr),
                                                                     core::Zone::OfSystem()));
        }
    }
    fSchedule.words->setText(words);
}

void KTJobTool::SaveScheduler() {
    if (fSchedule.menu->currentIndex() == kAtOnce) OwnJob().ClearSchedule();
}

void KTJobTool::SchedulerChosen(BMessage& message) {
    SaveScheduler();
    InitScheduler();
    if (message.Get<int32_t>("index", kAtOnce) == kScheduled) OpenScheduler();
}

void KTJobTool::OpenScheduler() {
    if (RaiseIfOpen(kSchedulerKey)) return;
    Present(kSchedulerKey,
            new KTSchedulerWindow(KTControl::Text(core::text::kScheduler), window(),
                                  OwnJob().Schedule(), kSchedulerAnswer, BMessenger(this)));
}

void KTJobTool::SchedulerAnswered(BMessage& message) {
    Forget(kSchedulerKey);
    if (!fSchedule.menu || !message.Get("result", false)) return;
    OwnJob().SetSchedule(message.Get("settings", BMessage()));
    InitScheduler();
}
