#include "client/jobqueue/KTJobListView.h"

#include <QKeyEvent>

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/settings/ColumnWidths.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTIcons.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"

namespace {

constexpr uint32_t kRenamed = "clrn"_code;
constexpr uint32_t kFetch = "jlfe"_code;

constexpr ColumnWidth kWidths[] = {{"", 0},
                                   {"JQTITLECOLWIDTH", 170},
                                   {"JQSTATUSCOLWIDTH", 70},
                                   {"JQTYPECOLWIDTH", 120},
                                   {"JQDATECOLWIDTH", 170},
                                   {"JQIDCOLWIDTH", 80},
                                   {"", 0}};

std::vector<KTColumn> Columns(KTJobListView::Show show, const Preferences* preferences) {
    using List = KTJobListView;
    using core::text::kDate, core::text::kId, core::text::kStatus, core::text::kTitle,
        core::text::kType;
    const auto column = [preferences](int index, int32_t text, KTColumnKind kind) {
        return KTColumn(KTControl::Text(text), WidthOf(kWidths[index], preferences),
                        kLeastColumnWidth, kind);
    };
    std::vector<KTColumn> columns = {
        KTColumn(QString(), kLeastColumnWidth, kLeastColumnWidth, KTColumnKind::Icon),
        column(List::kTitle, kTitle, KTColumnKind::Text),
        column(List::kStatus, kStatus, KTColumnKind::Text),
        column(List::kType, kType, KTColumnKind::Text),
        column(List::kDate, kDate, KTColumnKind::Time),
        column(List::kId, kId, KTColumnKind::Number),
        KTColumn(QString(), 0, 0, KTColumnKind::Number)};
    columns[List::kStatusCode].shown = false;
    columns[List::kTitle].editable = show == List::Show::Queue;
    columns[List::kStatus].shown = show == List::Show::Queue;
    return columns;
}

}  // namespace

KTJobListView::KTJobListView(Show show, ListType type, ServerLink* server, Preferences* preferences,
                             QWidget* parent)
    : KTColumnListView("lst_jobs", type, Columns(show, preferences), parent),
      fShow(show),
      fServer(server),
      fPreferences(preferences) {
    if (show == Show::Bases) SetEmptyText(KTControl::Text(core::kMoreNoBaseYet));
}

bool KTJobListView::GetJobListFromServer() {
    const auto answer = fServer->AskServer(BMessage(core::code::kListJobs));
    if (!answer) return false;
    std::vector<int32_t> marked;
    for (const KTRow row : Rows().MarkedRows())
        marked.push_back(JobId(row));
    Rows().MakeEmpty();
    if (answer->what != core::code::kNone) Insert(JobsIn(*answer));
    for (const int32_t id : marked) {
        const KTRow row = RowOfJob(id);
        if (row == kNoRow) continue;
        Type() == ListType::Single ? Select(row) : MultiSelect(row);
    }
    fFetched = true;
    emit Fetched();
    return true;
}

int32_t KTJobListView::JobId(KTRow row) const {
    return static_cast<int32_t>(Rows().NumberAt(row, kId));
}

int32_t KTJobListView::JobStatus(KTRow row) const {
    return static_cast<int32_t>(Rows().NumberAt(row, kStatusCode));
}

int32_t KTJobListView::JobType(KTRow row) const {
    return static_cast<int32_t>(Rows().NumberAt(row, kIcon));
}

std::string KTJobListView::JobTitle(KTRow row) const {
    return std::string(Rows().TextAt(row, kTitle));
}

KTRow KTJobListView::RowOfJob(int32_t jobId) const {
    for (KTRow row = Rows().First(); row != kNoRow; row = Rows().Next(row))
        if (JobId(row) == jobId) return row;
    return kNoRow;
}

void KTJobListView::MessageReceived(BMessage& message) {
    const bool bases = fShow == Show::Bases;
    switch (message.what) {
        case core::code::kJobInserted:
            Insert(JobsIn(message));
            break;
        case core::code::kJobRemoved:
            bases ? FetchSoon() : RemoveJob(message);
            break;
        case core::code::kJobChanged:
            if (!bases) ChangeJob(message);
            break;
        case core::code::kCatalogue:
        case core::code::kBackupRemoved:
            if (bases) FetchSoon();
            break;
        case client::code::kServerBack:
            FetchSoon();
            break;
        case kFetch:
            fFetchPosted = false;
            GetJobListFromServer();
            break;
        case kRenamed:
            RenameJob(message.Get<int32_t>("job_id", 0), message.Get("text", std::string()));
            break;
        default:
            KTColumnListView::MessageReceived(message);
    }
}

void KTJobListView::ColumnWidthChanged(int column, float width) {
    StoreWidth(kWidths, column, width, fPreferences);
}

QString KTJobListView::CellText(KTRow row, int column) const {
    switch (column) {
        case kTitle: {
            const std::string_view title = Rows().TextAt(row, kTitle);
            return title.empty() ? KTControl::Text(core::text::kNoTitle) : KTControl::Shown(title);
        }
        case kId:
            return QString::fromStdString(core::IdText(JobId(row)));
        default:
            return KTColumnListView::CellText(row, column);
    }
}

QIcon KTJobListView::CellIcon(KTRow row) const {
    switch (static_cast<core::JobType>(JobType(row))) {
        case core::JobType::Full:
            return KTIcons::Get("backup-full");
        case core::JobType::Incremental:
            return KTIcons::Get("backup-incremental");
        case core::JobType::Differential:
            return KTIcons::Get("backup-differential");
        case core::JobType::Restore:
            return KTIcons::Get("restore");
        case core::JobType::Compare:
            return KTIcons::Get("compare");
        case core::JobType::Insert:
        case core::JobType::Verify:
            return KTIcons::Get("volume");
    }
    return {};
}

bool KTJobListView::TestRenameColumnData(KTRow row, int column) {
    // A first press on a job marks it. And the server keeps the description of a running one to
    // itself.
    const auto status = static_cast<core::JobStatus>(JobStatus(row));
    return fShow == Show::Queue && column == kTitle && Rows().IsMarked(row) &&
           (status == core::JobStatus::Waiting || status == core::JobStatus::Paused);
}

void KTJobListView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_F2 && Type() == ListType::Multiple && CurrentRow() != kNoRow)
        MultiSelect(CurrentRow());
    KTColumnListView::keyPressEvent(event);
}

void KTJobListView::RenameColumnData(KTRow row, int, const QString& text) {
    // Asking the server has to wait until the editor is gone.
    BMessage renamed(kRenamed);
    renamed.Add("job_id", JobId(row));
    renamed.Add("text", KTControl::ToBytes(text));
    WindowLooper()->PostMessage(std::move(renamed), this);
}

std::vector<KTJobListView::Job> KTJobListView::JobsIn(const BMessage& message) {
    std::vector<Job> jobs;
    for (int32_t i = 0; i < message.Count("job_id", B_INT32_TYPE); ++i) {
        jobs.push_back(
            {message.Get<int32_t>("job_id", 0, i), message.Get("title", std::string(), i),
             message.Get<int32_t>("jobstatus", 0, i), message.Get<int32_t>("job_type", 0, i),
             message.Get("date", BTime(), i).seconds, message.Get("base", false, i)});
    }
    return jobs;
}

bool KTJobListView::Shows(const Job& job) const {
    return job.base == (fShow == Show::Bases);
}

void KTJobListView::Insert(const std::vector<Job>& jobs) {
    for (const Job& job : jobs) {
        if (!Shows(job)) continue;
        const KTRow known = RowOfJob(job.id);
        if (known == kNoRow) {
            const std::string status = core::TextOf(core::JobStatusTextId(job.status));
            const std::string type = core::TextOf(core::JobTypeTextId(job.type));
            const std::string_view texts[] = {job.title, status, type};
            const int64_t numbers[] = {job.type, job.date, job.id, job.status};
            Rows().AddUnder(kNoRow, {texts, numbers, false});
            continue;
        }
        // A notice about a job that an answer has already brought.
        Rows().SetText(known, kTitle, job.title);
        SetStatus(known, job.status);
        SetType(known, job.type);
        Rows().SetNumber(known, kDate, job.date);
    }
}

void KTJobListView::SetStatus(KTRow row, int32_t status) {
    Rows().SetText(row, kStatus, core::TextOf(core::JobStatusTextId(status)));
    Rows().SetNumber(row, kStatusCode, status);
}

void KTJobListView::SetType(KTRow row, int32_t type) {
    Rows().SetText(row, kType, core::TextOf(core::JobTypeTextId(type)));
    Rows().SetNumber(row, kIcon, type);
}

void KTJobListView::RemoveJob(const BMessage& message) {
    for (int32_t i = 0; i < message.Count("job_id", B_INT32_TYPE); ++i) {
        const KTRow row = RowOfJob(message.Get<int32_t>("job_id", 0, i));
        if (row != kNoRow) Rows().Remove(row);
    }
}

void KTJobListView::ChangeJob(const BMessage& message) {
    const auto id = message.Find<int32_t>("job_id");
    const KTRow row = id ? RowOfJob(*id) : kNoRow;
    if (row == kNoRow) return;
    if (const auto title = message.FindString("title")) Rows().SetText(row, kTitle, *title);
    if (const auto status = message.Find<int32_t>("jobstatus")) SetStatus(row, *status);
    if (const auto type = message.Find<int32_t>("job_type")) SetType(row, *type);
    if (const auto date = message.Find<BTime>("date")) Rows().SetNumber(row, kDate, date->seconds);
    if (const auto newId = message.Find<int32_t>("new_id")) Rows().SetNumber(row, kId, *newId);
}

void KTJobListView::RenameJob(int32_t jobId, std::string_view title) {
    BMessage question(core::code::kGetJob);
    question.Add("job_id", jobId);
    auto job = fServer->AskServer(question);
    if (!job || job->what == core::code::kNone) return;
    job->Set("title", title);
    BMessage change(core::code::kSetJob);
    change.Add("job_id", jobId);
    change.Add("job_data", *job);
    fServer->PostServer(std::move(change));
}

void KTJobListView::FetchSoon() {
    fFetched = false;
    if (!isVisible() || fFetchPosted) return;
    fFetchPosted = true;
    WindowLooper()->PostMessage(kFetch, this);
}
