#include <cstdio>

#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

ExitCode Reports(ServerConnection& server, bool json) {
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    const auto list = server.Ask(BMessage(core::code::kListReports));
    if (!list) return Fail(kMoreServerSilent);
    auto document = nlohmann::ordered_json::array();
    for (int32_t i = 0; i < list->Count("report_id"); ++i) {
        const auto id = list->Get<int32_t>("report_id", 0, i);
        const auto type = list->Get<int32_t>("job_type", 0, i);
        const auto date = list->Get("date", BTime(), i).seconds;
        const auto title = list->Get("title", std::string(), i);
        if (json) {
            document.push_back({{"report_id", id},
                                {"job_id", list->Get<int32_t>("job_id", 0, i)},
                                {"type", JobTypeWords(type)},
                                {"date", date},
                                {"title", title}});
        } else {
            std::printf("%6d  %s %-16s  %s\n", id,
                        Padded(core::TextOf(core::JobTypeTextId(type)), 20).c_str(),
                        DateWords(date).c_str(), Printable(title).c_str());
        }
    }
    if (json) {
        PrintJson(document);
    } else if (list->Count("report_id") == 0) {
        Say(kMoreCtlNoReports);
    }
    return ExitCode::Good;
}

ExitCode Report(ServerConnection& server, int32_t id, bool json) {
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    return PrintReportOf(server, id, json);
}

ExitCode PrintReportOf(ServerConnection& server, int32_t id, bool json) {
    const auto list = server.Ask(BMessage(core::code::kListReports));
    if (!list) return Fail(kMoreServerSilent);
    bool known = false;
    for (int32_t i = 0; i < list->Count("report_id"); ++i) {
        known = known || list->Get<int32_t>("report_id", 0, i) == id;
    }
    if (!known) return Fail(kMoreCtlNoSuchReport, id);
    const auto report = server.OpenReport(id);
    if (!report) return Fail(kMoreCtlReportUnreadable);
    if (json) {
        PrintJson(ReportJson(*report));
    } else {
        PrintReport(*report, true);
    }
    return ExitCode::Good;
}

}  // namespace ctl
