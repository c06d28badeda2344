#include "client/report/KTReportListView.h"

#include <QMouseEvent>
#include <algorithm>

#include "client/app/ServerLink.h"
#include "client/settings/ColumnWidths.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"

namespace {

constexpr ColumnWidth kWidths[] = {{"RPLTITLECOLWIDTH", 190},
                                   {"RPLTYPECOLWIDTH", 100},
                                   {"RPLDATECOLWIDTH", 175},
                                   {"RPLIDCOLWIDTH", 50}};

std::vector<KTColumn> Columns(const Preferences* preferences) {
    using List = KTReportListView;
    using core::text::kDate, core::text::kId, core::text::kTitle, core::text::kType;
    const auto column = [preferences](int index, int32_t text, KTColumnKind kind) {
        return KTColumn(KTControl::Text(text), WidthOf(kWidths[index], preferences),
                        kLeastColumnWidth, kind);
    };
    std::vector<KTColumn> columns = {column(List::kTitle, kTitle, KTColumnKind::Text),
                                     column(List::kType, kType, KTColumnKind::Text),
                                     column(List::kDate, kDate, KTColumnKind::Time),
                                     column(List::kId, kId, KTColumnKind::Number),
                                     KTColumn(QString(), 0, 0, KTColumnKind::Number)};
    columns[List::kJobType].shown = false;
    return columns;
}

// The same in every language.
const char* TypeText(int64_t jobType) {
    switch (jobType) {
        case 1:
            return "Full Backup";
        case 2:
            return "Incr. Backup";
        case 3:
            return "Diff. Backup";
        case 4:
            return "Restore";
        case 5:
            return "Compare";
        case 6:
            return "Insert";
        default:
            return "Unknown";
    }
}

}  // namespace

KTReportListView::KTReportListView(ServerLink* server, Preferences* preferences, QWidget* parent)
    : KTColumnListView("lst_reports", ListType::Multiple, Columns(preferences), parent),
      fServer(server),
      fPreferences(preferences) {
    setAccessibleName(KTControl::Text(core::text::kReports));
}

bool KTReportListView::GetReportListFromServer() {
    const auto answer = fServer->AskServer(BMessage(core::code::kListReports));
    if (!answer) {
        SetEmptyText(KTControl::Text(core::kMoreServerSilent));
        return false;
    }
    const std::vector<int32_t> marked = MarkedReports();
    Rows().MakeEmpty();
    fRowOfReport.clear();
    if (answer->what != core::code::kNone) Insert(*answer);
    for (const int32_t id : marked) {
        if (const KTRow row = RowOfReport(id); row != kNoRow) MultiSelect(row);
    }
    SetEmptyText(KTControl::Text(core::kMoreNoReports));
    fFetched = true;
    return true;
}

int32_t KTReportListView::ReportId(KTRow row) const {
    return static_cast<int32_t>(Rows().NumberAt(row, kId));
}

KTRow KTReportListView::RowOfReport(int32_t reportId) const {
    const auto found = fRowOfReport.find(reportId);
    return found == fRowOfReport.end() ? kNoRow : found->second;
}

std::vector<int32_t> KTReportListView::MarkedReports() const {
    std::vector<int32_t> ids;
    for (const KTRow row : Rows().MarkedRows())
        ids.push_back(ReportId(row));
    return ids;
}

QString KTReportListView::Description(KTRow row) const {
    return QStringList{CellText(row, kTitle), CellText(row, kType), CellText(row, kDate)}.join(
        ", ");
}

void KTReportListView::Insert(const BMessage& message) {
    for (int32_t i = 0; i < message.Count("report_id", B_INT32_TYPE); ++i) {
        const int32_t id = message.Get<int32_t>("report_id", 0, i);
        const std::string title = message.Get("title", std::string(), i);
        const int64_t date = message.Get("date", BTime(), i).seconds;
        const int32_t type = message.Get<int32_t>("job_type", 0, i);
        const KTRow known = RowOfReport(id);
        if (known == kNoRow) {
            const std::string_view texts[] = {title, TypeText(type)};
            const int64_t numbers[] = {date, id, type};
            fRowOfReport[id] = Rows().AddUnder(kNoRow, {texts, numbers}, 0);
            continue;
        }
        // A notice about a report that an answer has already brought.
        Rows().SetText(known, kTitle, title);
        Rows().SetText(known, kType, TypeText(type));
        Rows().SetNumber(known, kDate, date);
        Rows().SetNumber(known, kJobType, type);
    }
}

void KTReportListView::RemoveReports(const BMessage& message) {
    for (int32_t i = 0; i < message.Count("report_id", B_INT32_TYPE); ++i) {
        const auto found = fRowOfReport.find(message.Get<int32_t>("report_id", 0, i));
        if (found == fRowOfReport.end()) continue;
        Rows().Remove(found->second);
        fRowOfReport.erase(found);
    }
}

void KTReportListView::ColumnWidthChanged(int column, float width) {
    StoreWidth(kWidths, column, width, fPreferences);
}

QString KTReportListView::CellText(KTRow row, int column) const {
    if (column == kTitle && Rows().TextAt(row, kTitle).empty())
        return KTControl::Text(core::text::kNoTitle);
    return KTColumnListView::CellText(row, column);
}

void KTReportListView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::RightButton) return KTColumnListView::mousePressEvent(event);
    // The menu is about what is selected: the press changes nothing of that.
    event->accept();
    const KTRow row = RowAt(event->position().toPoint());
    if (row != kNoRow) SetCurrentRow(row);
}
