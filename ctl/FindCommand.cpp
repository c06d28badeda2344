#include <cstdio>

#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

ExitCode Find(ServerConnection& server, const FindOptions& options) {
    if (options.text.empty() || options.text.find('/') != std::string::npos) {
        return WrongUse(kMoreCtlBadFindText);
    }
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    BMessage question(core::code::kFindEntries);
    question.Add("text", options.text);
    question.Add("max", options.most);
    const auto found = server.Ask(std::move(question));
    if (!found) return Fail(kMoreServerSilent);
    auto document = nlohmann::ordered_json::array();
    for (int32_t i = 0; i < found->Count("path"); ++i) {
        const auto backup = found->Get("backup", std::string(), i);
        const auto path = found->Get("path", std::string(), i);
        const auto type = found->Get<int32_t>("type", 0, i);
        const auto size = found->Get<int64_t>("size", 0, i);
        const auto date = found->Get("date", BTime(), i).seconds;
        if (options.json) {
            document.push_back({{"backup", backup},
                                {"path", path},
                                {"type", EntryTypeWords(type)},
                                {"size", size},
                                {"date", date}});
        } else {
            std::printf("%s  %s\n", Printable(backup).c_str(), EntryLine(size, date, path).c_str());
        }
    }
    const bool more = found->Get<int32_t>("more", 0) != 0;
    if (options.json) {
        PrintJson({{"found", document}, {"more", more}});
    } else if (found->Count("path") == 0) {
        Say(kMoreCtlNothingFound, options.text);
    } else if (more) {
        Note(kMoreCtlMoreFound, options.most);
    }
    return ExitCode::Good;
}

}  // namespace ctl
