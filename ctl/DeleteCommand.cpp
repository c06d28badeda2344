#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <set>

#include "core/protocol/Texts.h"
#include "ctl/Backups.h"
#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

namespace {

// The answer is read by its first letter, in the language of the question and in English.
bool IsYes(const std::string& answer) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    const std::string yes = core::TextOf(core::text::kYes);
    return !answer.empty() &&
           (lower(answer[0]) == 'y' || (!yes.empty() && lower(answer[0]) == lower(yes[0])));
}

bool Confirm(const std::vector<ListedBackup>& backups, bool withData) {
    for (const auto& backup : backups)
        std::printf("    %s\n", BackupLine(backup).c_str());
    std::printf("%s ",
                core::TextOf(withData ? kMoreCtlReallyWithData : kMoreCtlReallyEntries).c_str());
    std::fflush(stdout);
    std::string answer;
    return std::getline(std::cin, answer) && IsYes(answer);
}

// What became of a deletion.
struct Outcome {
    std::vector<std::string> gone;
    std::vector<BMessage> reports;  // of those that stay
    bool serverEnded = false;
};

// Until each backup is gone, or a report says why it is not.
Outcome WaitForEnd(ServerConnection& server, std::set<std::string> names) {
    using Event = ServerConnection::Event;
    constexpr std::chrono::hours kAnyTime{24};
    Outcome outcome;
    while (outcome.reports.size() < names.size()) {
        auto event = server.Next(kAnyTime);
        if (!event) continue;
        outcome.serverEnded = event->kind == Event::Kind::ServerGone;
        if (outcome.serverEnded) break;
        const BMessage& message = event->message;
        if (message.what == core::code::kBackupRemoved) {
            const auto name = message.Get("name", std::string());
            if (names.erase(name) > 0) outcome.gone.push_back(name);
        } else if (message.what == core::code::kReportInserted &&
                   message.Get<int32_t>("client_id", 0) == server.Team()) {
            auto report = server.OpenReport(message.Get<int32_t>("report_id", 0));
            outcome.reports.push_back(report ? std::move(*report) : BMessage());
        }
    }
    return outcome;
}

}  // namespace

ExitCode Delete(ServerConnection& server, const DeleteOptions& options) {
    if (!options.yes && (options.json || !::isatty(STDIN_FILENO))) return WrongUse(kMoreCtlSayYes);
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    std::vector<ListedBackup> backups;
    for (const auto& text : options.backups) {
        ExitCode problem = ExitCode::Failed;
        const auto backup = FindBackup(server, text, &problem);
        if (!backup) return problem;
        const bool known = std::any_of(backups.begin(), backups.end(), [&](const auto& other) {
            return other.name == backup->name;
        });
        if (!known) backups.push_back(*backup);
    }
    if (!options.yes && !Confirm(backups, options.withData)) {
        Say(kMoreCtlNothingDeleted);
        return ExitCode::Failed;
    }
    BMessage order(core::code::kDeleteBackups);
    std::set<std::string> names;
    for (const auto& backup : backups) {
        order.Add("name", backup.name);
        order.Add("full", int32_t{options.withData});
        names.insert(backup.name);
    }
    if (!server.Send(std::move(order))) return Fail(kMoreCtlUnreachable);
    const Outcome outcome = WaitForEnd(server, names);
    if (options.json) {
        auto lines = nlohmann::ordered_json::array();
        for (const auto& report : outcome.reports) {
            for (auto& line : ReportJson(report))
                lines.push_back(std::move(line));
        }
        PrintJson({{"deleted", outcome.gone}, {"lines", lines}});
    } else {
        for (const auto& name : outcome.gone)
            Say(kMoreCtlDeleted, Printable(name));
        for (const auto& report : outcome.reports)
            PrintReport(report, true);
    }
    if (outcome.serverEnded) return Fail(kMoreCtlServerEnded);
    if (outcome.reports.empty()) return ExitCode::Good;
    return outcome.gone.empty() ? ExitCode::Failed : ExitCode::Problems;
}

}  // namespace ctl
