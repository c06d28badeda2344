// The jobs as the server lists them.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/schedule/Schedule.h"
#include "ctl/ExitCode.h"
#include "kit/message/BMessage.h"

namespace ctl {

class ServerConnection;

struct ListedJob {
    int32_t id, status, type;
    int64_t date;
    std::string title;
};

// Nothing when the server is silent.
std::optional<std::vector<ListedJob>> ListJobs(ServerConnection& server);
const ListedJob* Find(const std::vector<ListedJob>& jobs, int32_t id);
nlohmann::ordered_json JobJson(const ListedJob& job);

// A job's description; nothing when it is unknown or running, or the server silent.
std::optional<BMessage> DescriptionOf(ServerConnection& server, int32_t id);
core::Schedule ScheduleOf(const BMessage& description);
// When a waiting job runs next, in words; "" for others.
std::string NextWords(const ListedJob& job, const core::Schedule& schedule);
nlohmann::ordered_json ScheduleJson(const core::Schedule& schedule);
// Prints what the server has made of the schedule that the job was given. The server must be
// connected.
ExitCode PrintScheduleOf(ServerConnection& server, int32_t id, const core::Schedule& given,
                         bool json);

}  // namespace ctl
