#include "server/queue/JobDescription.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "core/files/HeaderFile.h"

namespace server::description {

namespace {

constexpr char kProtection[] = "protection";
constexpr char kRecipient[] = "recipient";
constexpr char kKeyFile[] = "key_file";
constexpr type_code kKeyType = "ktky"_code;
constexpr char kScheduler[] = "scheduler";
constexpr char kTime[] = "TIME";
constexpr char kSeries[] = "series";

void KeepFirst(BMessage& message, std::string_view name) {
    while (message.Count(name) > 1)
        message.RemoveAt(name, message.Count(name) - 1);
}

BMessage StartInfo(const BMessage& description) {
    return description.Get("start_info", BMessage());
}

}  // namespace

BMessage Cleaned(const BMessage& submitted) {
    BMessage kept = core::WithoutPasswords(submitted);
    kept.what = core::code::kSubmitJob;
    while (kept.Count("client_id") > 1)
        kept.RemoveAt("client_id", 0);
    for (const char* name : {"addon", "bak_addonpacker", "compare"})
        KeepFirst(kept, name);
    for (const char* name : {"job_id", "winpos", "selectionpath", kProtection, kSeries})
        kept.Remove(name);
    if (auto info = kept.Find<BMessage>("start_info"); info && info->Remove("winpos")) {
        kept.Set("start_info", *info);
    }
    return kept;
}

std::optional<core::JobType> TypeOf(const BMessage& description) {
    if (!description.Has("job_type")) return core::JobType::Full;
    const auto type = description.Find<int32_t>("job_type");
    if (!type || !core::IsKnownJobType(*type)) return std::nullopt;
    return static_cast<core::JobType>(*type);
}

int32_t RawTypeOf(const BMessage& description) {
    return description.Get<int32_t>("job_type", description.Has("job_type") ? 0 : 1);
}

std::string TitleOf(const BMessage& description) {
    return StartInfo(description).Get("title", description.Get("title", std::string()));
}

bool IsOnHold(const BMessage& description) {
    return StartInfo(description).Get<int32_t>("submitonhold", 0) != 0;
}

bool WantsProtection(const BMessage& description) {
    return StartInfo(description).Get<int32_t>("passonoff", 0) != 0;
}

bool HasPassword(const BMessage& description) {
    return !PasswordOf(description).IsEmpty();
}

archive::Secret PasswordOf(const BMessage& description) {
    const BMessage info = StartInfo(description);
    return archive::Secret(info.FindString("password").value_or(std::string_view()));
}

void SetProtection(BMessage& description, const archive::Protection& protection) {
    BMessage stored;
    stored.Add(kRecipient, protection.recipient);
    stored.AddData(kKeyFile, kKeyType, protection.keyFile.data(), protection.keyFile.size());
    description.Set(kProtection, stored);
}

void RemoveProtection(BMessage& description) {
    description.Remove(kProtection);
}

std::optional<archive::Protection> ProtectionOf(const BMessage& description) {
    if (!description.Has(kProtection)) return std::nullopt;
    // One that is damaged still says that the backup must not be made without.
    const BMessage stored = description.Get(kProtection, BMessage());
    archive::Protection protection;
    protection.recipient = stored.Get(kRecipient, std::string());
    if (const auto key = stored.FindData(kKeyFile, kKeyType)) {
        protection.keyFile.assign(key->begin(), key->end());
    }
    return protection;
}

core::Schedule ScheduleOf(const BMessage& description) {
    return core::Schedule::FromRecord(description.Get(kScheduler, BMessage()));
}

Series SeriesOf(const BMessage& description) {
    return Series::FromMessage(description.Get(kSeries, BMessage()));
}

void SetSeries(BMessage& description, const Series& series) {
    description.Set(kSeries, series.ToMessage());
}

void RemoveSeries(BMessage& description) {
    description.Remove(kSeries);
}

void SetDue(BMessage& description, int64_t due) {
    BMessage record = description.Get(kScheduler, BMessage());
    record.Remove(kTime);  // whatever type it had
    record.Add(kTime, BTime::FromSeconds(due));
    description.Remove(kScheduler);
    description.Add(kScheduler, record);
}

void Plan(BMessage& description, int64_t now, const core::Zone& zone, const BMessage* former) {
    RemoveSeries(description);
    core::Schedule schedule = ScheduleOf(description);
    if (former) {
        // Editors show times to the minute.
        const core::Schedule before = ScheduleOf(*former);
        if (schedule.time / 60 == before.time / 60) schedule.time = before.time;
        if (schedule == before) {
            if (schedule.time != 0) SetDue(description, schedule.time);
            if (schedule.Repeats()) SetSeries(description, SeriesOf(*former));
            return;
        }
    }
    Series series = former ? SeriesOf(*former) : Series();
    series.first = zone.WallAt(schedule.time != 0 ? schedule.time : now);
    if (schedule.time > now) {
        schedule.time = core::Allowed(schedule, schedule.time, zone).value_or(schedule.time);
        SetDue(description, schedule.time);
    }
    series.since = std::max(schedule.time, now);
    if (schedule.Repeats()) SetSeries(description, series);
}

void EndSeries(BMessage& description) {
    core::Schedule schedule = ScheduleOf(description);
    schedule.months = schedule.days = schedule.hours = schedule.minutes = 0;
    description.Remove(kScheduler);
    description.Add(kScheduler, schedule.ToRecord());
    RemoveSeries(description);
}

std::string DestinationOf(const BMessage& description) {
    const auto volume = description.Get("volume", BMessage());
    std::vector<std::string> parts;
    for (int32_t i = 0; i < volume.CountFields(); ++i) {
        const std::string name(volume.FieldName(i));
        auto text = volume.Find<std::string>(name);
        if (!text || name == "addon") continue;
        if (text->starts_with('/')) {
            std::string path = std::filesystem::path(*text).lexically_normal().string();
            while (path.size() > 1 && path.back() == '/')
                path.pop_back();
            text = path;
        }
        parts.push_back(name + '=' + *text);
    }
    std::sort(parts.begin(), parts.end());
    std::string key = description.Get("addon", std::string("KTImage"));
    for (const auto& part : parts)
        key += '\n' + part;
    return key;
}

BMessage Edited(const BMessage& former, const BMessage& edited) {
    BMessage job = Cleaned(edited);
    BMessage info = job.Get("start_info", StartInfo(former));
    if (auto title = job.Find<std::string>("title")) {
        info.Set("title", *title);
        job.Remove("title");
    }
    info.Remove("passonoff");
    if (auto protection = StartInfo(former).Find<int32_t>("passonoff")) {
        info.Set("passonoff", *protection);
    }
    job.Remove("start_info");
    job.Add("start_info", info);
    if (const auto protection = ProtectionOf(former)) SetProtection(job, *protection);
    job.Remove("client_id");
    if (auto client = former.Find<int32_t>("client_id")) job.Add("client_id", *client);
    return job;
}

}  // namespace server::description
