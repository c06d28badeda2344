#include "client/jobqueue/KTJobQueueView.h"

#include <QBoxLayout>
#include <QDateTime>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QShortcut>
#include <QTimerEvent>

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/jobqueue/KTJQBackupWindow.h"
#include "client/jobqueue/KTJQCompareWindow.h"
#include "client/jobqueue/KTJQRestoreWindow.h"
#include "client/jobqueue/KTJobListView.h"
#include "client/jobqueue/KTJobSettingWindow.h"
#include "client/restore/KTResInsertWindow.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTFlowLayout.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "core/schedule/ScheduleWords.h"

using core::JobStatus, core::JobType;

namespace {

constexpr char kSettingsKey[] = "win_jobsettings";
constexpr uint32_t kEdit = "JQed"_code;
constexpr uint32_t kChanged = "JQch"_code;
constexpr uint32_t kOpenSettings = "JQst"_code;
constexpr uint32_t kSettingsAnswer = "JQsq"_code;
constexpr uint32_t kEditAnswer = "jqbq"_code;
constexpr int kMinute = 60'000;

std::string KeyOf(int32_t jobId) {
    return core::IdText(jobId);
}

// The place of the editing windows of a type, in the tool's settings.
std::string PlaceKeyOf(int32_t type) {
    return "editpos_" + std::to_string(core::IsBackup(static_cast<JobType>(type)) ? 1 : type);
}

}  // namespace

// What a button does: with which jobs, after which question, by which message.
struct KTJobQueueView::Action {
    const char* name;
    int32_t label;
    uint32_t command;
    bool waiting, running, paused, other;  // the states it is for
    int32_t question;                      // 0: none
    bool destroys;
    uint32_t message;
    bool flag;
};

std::span<const KTJobQueueView::Action> KTJobQueueView::Actions() {
    using namespace core;
    static constexpr Action kActions[] = {
        {"btn_jqstart", text::kStart, "JQsa"_code, true, false, false, false,
         text::kStartJobsQuestion, false, core::code::kStartJobNow, false},
        {"btn_jqpause", text::kPause, "JQpa"_code, true, true, false, false, 0, false,
         core::code::kPauseJob, false},
        {"btn_jqcontinue", text::kContinue, "JQco"_code, false, false, true, false, 0, false,
         core::code::kContinueJob, false},
        {"btn_jqabort", text::kAbort, "jqab"_code, false, true, true, false,
         text::kAbortJobsQuestion, true, core::code::kDeleteJob, true},
        {"btn_jqdelete", text::kDelete, "JQdl"_code, true, true, true, true,
         text::kDeleteJobsQuestion, true, core::code::kDeleteJob, false},
        {"btn_jqedit", text::kEdit, kEdit, true, false, true, false, 0, false, 0, false},
    };
    return kActions;
}

KTJobQueueView::KTJobQueueView(KTToolContext context, QWidget* parent, const char* name)
    : KTToolView(name, std::move(context), parent) {
    MakeControls();
    BMessage none;
    SetButtonStatus(none);
}

KTJobQueueView::~KTJobQueueView() {
    for (const auto& [id, renamed] : fEdited)
        PostEditMark(id, false);
}

void KTJobQueueView::MakeControls() {
    using namespace core;
    fJobs = new KTJobListView(KTJobListView::Show::Queue, KTColumnListView::ListType::Multiple,
                              Context().server, Context().preferences, this);
    fJobs->SetEmptyText(KTControl::Text(kMoreNoJobs));
    fJobs->SetSelectionMessage(BMessage(kChanged), this);
    fJobs->SetInvocationMessage(BMessage(kEdit), this);
    connect(fJobs, &KTJobListView::Fetched, this, [this] {
        BMessage none;
        SetButtonStatus(none);
    });
    auto* remove = new QShortcut(QKeySequence::Delete, fJobs);
    remove->setContext(Qt::WidgetShortcut);
    connect(remove, &QShortcut::activated, this, [this] {
        BMessage command("JQdl"_code);
        Do(command);
    });

    fPopUp = new QMenu(this);
    fPopUp->setObjectName("jobqueuepopup");
    const auto add = [this](const QString& label, uint32_t code) {
        fPopUp->addAction(KTControl::MakeAction(fPopUp, label, BMessage(code), this));
    };
    auto* buttons = new KTFlowLayout(nullptr, 6, 6);
    for (const Action& action : Actions()) {
        QString label = KTControl::LabelText(action.label);
        if (action.command == kEdit) label += "...";
        auto* button = new QPushButton(label);
        KTControl::Name(button, action.name);
        KTControl::Bind(button, BMessage(action.command), this);
        buttons->addWidget(button);
        fButtons.push_back(button);
        add(label, action.command);
    }
    fPopUp->addSeparator();
    add(KTControl::LabelText(text::kSelectAll), client::code::kSelectAll);
    add(KTControl::LabelText(text::kClearAll), client::code::kSelectNone);
    fPopUp->addSeparator();
    add(KTControl::LabelText(text::kSettings) + "...", kOpenSettings);
    fJobs->SetPopUpMenu(fPopUp);

    fNext = new QLabel;
    KTControl::Name(fNext, "str_nextjob");
    fNext->setTextFormat(Qt::PlainText);
    fNext->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(fJobs, 1);
    layout->addWidget(fNext);
    layout->addLayout(buttons);
    QWidget* before = fJobs;
    for (QWidget* next : fButtons)
        setTabOrder(std::exchange(before, next), next);
}

void KTJobQueueView::SetPref(const BMessage& settings) {
    fSettings = settings;
    for (const auto column :
         {KTJobListView::kStatus, KTJobListView::kType, KTJobListView::kDate, KTJobListView::kId})
        fJobs->setColumnHidden(column, !KTJobSettingWindow::Shows(fSettings, column));
}

void KTJobQueueView::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTJobQueueView>;
    static constexpr Entry kTable[] = {
        {kEdit, &KTJobQueueView::EditJob},
        {kEditAnswer, &KTJobQueueView::QuitEditJob},
        {kChanged, &KTJobQueueView::SetButtonStatus},
        {kOpenSettings, &KTJobQueueView::OpenSettings},
        {kSettingsAnswer, &KTJobQueueView::SettingsAnswered},
        {client::code::kSelectAll, &KTJobQueueView::SelectAll},
        {client::code::kSelectNone, &KTJobQueueView::ClearAll},
        {core::code::kJobInserted, &KTJobQueueView::Notice},
        {core::code::kJobRemoved, &KTJobQueueView::Notice},
        {core::code::kJobChanged, &KTJobQueueView::Notice},
        {client::code::kServerBack, &KTJobQueueView::ServerBack},
    };
    if (KTDispatch<KTJobQueueView>(this, kTable, message)) return;
    for (const Action& action : Actions())
        if (action.command == message.what) return Do(message);
    switch (message.what) {
        case core::code::kCatalogue:
        case core::code::kBackupRemoved:
        case core::code::kScanResult:
        case core::code::kPasswordResult:
        case client::code::kServerGone:
            return RelayToEdits(message);
        default:
            KTToolView::MessageReceived(message);
    }
}

// --- the list -----------------------------------------------------------------------------------

void KTJobQueueView::Notice(BMessage& message) {
    if (message.what == core::code::kJobChanged) {
        const auto edited = fEdited.find(message.Get<int32_t>("job_id", 0));
        const auto title = message.FindString("title");
        if (edited != fEdited.end() && title) edited->second = *title;
    }
    fJobs->MessageReceived(message);
    RelayToEdits(message);
    SetButtonStatus(message);
}

void KTJobQueueView::ServerBack(BMessage& message) {
    // A new server knows nothing of edit marks.
    for (const auto& [id, renamed] : fEdited)
        PostEditMark(id, true);
    Notice(message);
}

void KTJobQueueView::showEvent(QShowEvent* event) {
    KTToolView::showEvent(event);
    if (!fJobs->IsFetched()) fJobs->GetJobListFromServer();
    TellNext();
    fMinute.start(kMinute, Qt::VeryCoarseTimer, this);
}

void KTJobQueueView::hideEvent(QHideEvent* event) {
    fMinute.stop();
    KTToolView::hideEvent(event);
}

void KTJobQueueView::timerEvent(QTimerEvent* event) {
    if (event->timerId() == fMinute.timerId())
        TellNext();
    else
        KTToolView::timerEvent(event);
}

void KTJobQueueView::SelectAll(BMessage&) {
    fJobs->MultiSelectAll(true);
}

void KTJobQueueView::ClearAll(BMessage&) {
    fJobs->MultiSelectAll(false);
}

// --- what is done with jobs ---------------------------------------------------------------------

std::vector<int32_t> KTJobQueueView::Qualifying(const Action& action) const {
    std::vector<int32_t> jobs;
    for (const KTRow row : fJobs->Rows().MarkedRows()) {
        const auto status = static_cast<JobStatus>(fJobs->JobStatus(row));
        const bool fits = status == JobStatus::Waiting   ? action.waiting
                          : status == JobStatus::Running ? action.running
                          : status == JobStatus::Paused
                              ? action.paused
                              : action.other && status != JobStatus::Edited;
        if (fits) jobs.push_back(fJobs->JobId(row));
    }
    return jobs;
}

void KTJobQueueView::Do(BMessage& message) {
    for (const Action& action : Actions()) {
        if (action.command != message.what) continue;
        if (Qualifying(action).empty()) return;
        if (action.question != 0 && !Confirm(action.question, action.destroys)) return;
        // While it was asked jobs may have started or ended.
        for (const int32_t id : Qualifying(action)) {
            BMessage command(action.message);
            command.Add("job_id", id);
            if (action.flag) command.Add("flag", int32_t{1});
            Context().server->PostApplication(std::move(command));
        }
    }
}

bool KTJobQueueView::Confirm(int32_t questionTextId, bool destroys) {
    enum Button { kYes, kNo };
    KTAlertRequest request;
    request.parent = this;
    request.title = KTControl::Text(core::text::kJobQueue);
    request.text = KTControl::Text(questionTextId);
    request.buttons = {KTControl::Text(core::text::kYes), KTControl::Text(core::text::kNo)};
    request.kind = destroys ? KTAlertRequest::Kind::Warning : KTAlertRequest::Kind::Info;
    request.defaultButton = destroys ? kNo : kYes;
    request.escapeButton = kNo;
    QPointer<KTJobQueueView> alive(this);
    return KTDialogs::Get()->RunAlert(request) == kYes && alive;
}

void KTJobQueueView::SetButtonStatus(BMessage&) {
    size_t index = 0;
    for (const Action& action : Actions()) {
        const auto jobs = Qualifying(action);
        // One window edits one job, and only tools that are here can.
        const bool on = action.command != kEdit
                            ? !jobs.empty()
                            : jobs.size() == 1 && fJobs->Rows().MarkedRows().size() == 1;
        fButtons[index++]->setEnabled(on);
        if (auto* item =
                fPopUp->findChild<QAction*>(QString::fromStdString(CodeText(action.command))))
            item->setEnabled(on);
    }
    TellNext();
}

// Which job is the next to start by its time, and when.
void KTJobQueueView::TellNext() {
    KTRow next = kNoRow;
    int64_t due = 0;
    const int64_t now = QDateTime::currentSecsSinceEpoch();
    for (KTRow row = fJobs->Rows().First(); row != kNoRow; row = fJobs->Rows().Next(row)) {
        const int64_t date = fJobs->Rows().NumberAt(row, KTJobListView::kDate);
        if (static_cast<JobStatus>(fJobs->JobStatus(row)) != JobStatus::Waiting || date <= now)
            continue;
        if (next == kNoRow || date < due) next = row, due = date;
    }
    fNext->setVisible(next != kNoRow);
    if (next == kNoRow) return;
    fNext->setText(QString::fromStdString(core::FormatTextOf(
        core::kMoreNextJob, KTControl::ToBytes(fJobs->CellText(next, KTJobListView::kTitle)),
        core::RunsNextText(due, now, core::Zone::OfSystem()))));
}

// --- editing ------------------------------------------------------------------------------------

void KTJobQueueView::EditJob(BMessage& message) {
    if (const auto row = message.Find<int64_t>("item")) {
        // A row that was double-clicked or entered, whatever is marked.
        if (!fJobs->Rows().Has(static_cast<KTRow>(*row))) return;
        fJobs->MultiSelectAll(false);
        fJobs->MultiSelect(static_cast<KTRow>(*row));
    }
    const auto edit = std::ranges::find(Actions(), kEdit, &Action::command);
    const auto marked = Qualifying(*edit);
    if (marked.size() != 1) {
        // The window of a job that is being edited here comes to the front.
        for (const KTRow row : fJobs->Rows().MarkedRows())
            RaiseIfOpen(KeyOf(fJobs->JobId(row)));
        return;
    }
    const int32_t id = marked.front();
    if (RaiseIfOpen(KeyOf(id))) return;
    PostEditMark(id, true);
    BMessage question(core::code::kGetJob);
    question.Add("job_id", id);
    QPointer<KTJobQueueView> alive(this);
    auto job = Context().server->AskServer(question);
    if (!alive) return;
    if (job && job->what != core::code::kNone) {
        job->Set("job_id", id);
        OpenEditWindow(*job);
    }
    if (!OpenWindow(KeyOf(id))) {
        PostEditMark(id, false);
        KTAlert(this, KTControl::Text(core::text::kJobQueue),
                KTControl::Text(core::kMoreJobNotEdited), {KTControl::Text(core::text::kOk)},
                KTAlertRequest::Kind::Warning);
    }
}

void KTJobQueueView::OpenEditWindow(const BMessage& job) {
    const int32_t id = job.Get<int32_t>("job_id", 0);
    const int32_t type = job.Get<int32_t>("job_type", 0);
    BMessage settings(job);
    settings.Remove("winpos");
    if (const auto place = fSettings.Find<BRect>(PlaceKeyOf(type))) settings.Add("winpos", *place);
    const std::string name = job.Get("start_info", BMessage()).Get("title", std::string());
    const QString title =
        KTControl::Text(core::text::kEdit) + ": " +
        (name.empty() ? KTControl::Text(core::text::kNoTitle) : KTControl::Shown(name));
    KTSetWindow* window = nullptr;
    switch (static_cast<JobType>(type)) {
        case JobType::Full:
        case JobType::Incremental:
        case JobType::Differential:
            window = new KTJQBackupWindow(Context(), title, this, settings, kEditAnswer,
                                          BMessenger(this));
            break;
        case JobType::Restore:
            window = new KTJQRestoreWindow(Context(), title, this, settings, kEditAnswer,
                                           BMessenger(this));
            break;
        case JobType::Compare:
            window = new KTJQCompareWindow(Context(), title, this, settings, kEditAnswer,
                                           BMessenger(this));
            break;
        case JobType::Insert:
            window = new KTResInsertWindow(Context(), title, this, settings, kEditAnswer,
                                           BMessenger(this), KTResInsertWindow::Use::WaitingJob);
            break;
        default:
            return;
    }
    fEdited.emplace(id, std::nullopt);
    Remember(KeyOf(id), window);
    window->show();
}

void KTJobQueueView::QuitEditJob(BMessage& message) {
    BMessage settings = message.Get("settings", BMessage());
    const int32_t id = settings.Get<int32_t>("job_id", 0);
    const auto edited = fEdited.extract(id);
    if (edited.empty()) return;
    Forget(KeyOf(id));
    if (message.Get("result", false)) {
        if (const auto place = settings.Find<BRect>("winpos"))
            fSettings.Set(PlaceKeyOf(settings.Get<int32_t>("job_type", 0)), *place);
        // What it is called now, whatever it was called when the window opened.
        if (edited.mapped()) settings.Set("title", *edited.mapped());
        BMessage change(core::code::kSetJob);
        change.Add("job_id", id);
        change.Add("job_data", settings);
        Context().server->PostServer(std::move(change));
    }
    PostEditMark(id, false);
}

void KTJobQueueView::PostEditMark(int32_t jobId, bool edit) {
    BMessage mark(core::code::kEditJob);
    mark.Add("job_id", jobId);
    mark.Add("edit", static_cast<int32_t>(edit));
    Context().server->PostServer(std::move(mark));
}

void KTJobQueueView::RelayToEdits(const BMessage& notice) {
    for (const auto& [id, renamed] : fEdited) {
        QWidget* open = OpenWindow(KeyOf(id));
        if (auto* window = qobject_cast<KTJQWindow*>(open))
            window->Relay(notice);
        else if (auto* insert = qobject_cast<KTResInsertWindow*>(open))
            BMessenger(insert).SendMessage(notice);
    }
}

// --- settings -----------------------------------------------------------------------------------

void KTJobQueueView::OpenSettings(BMessage&) {
    if (RaiseIfOpen(kSettingsKey)) return;
    auto* dialog = new KTJobSettingWindow(KTControl::Text(core::text::kJobQueueSettings), this,
                                          fSettings, kSettingsAnswer, BMessenger(this));
    Remember(kSettingsKey, dialog);
    dialog->show();
}

void KTJobQueueView::SettingsAnswered(BMessage& message) {
    Forget(kSettingsKey);
    if (message.Get("result", false)) SetPref(message.Get("settings", BMessage()));
}
