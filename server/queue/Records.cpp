#include "server/queue/Records.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace server {

namespace {

// Beyond this size only what is used is checked, when it is used: the start must not take long.
constexpr int64_t kMostToCheck = 256 * 1024 * 1024;

std::vector<StoredJob> Salvage(const std::string& path) {
    auto database = Database::OpenReadOnly(path);
    if (!database) return {};
    int unreadable = 0;
    return QueueStore(*database).Load(&unreadable);
}

// Moves the file and its log out of the way; gives the new name.
kit::Result<std::string> SetAside(const std::string& path) {
    std::string aside;
    for (int n = 1; aside.empty() || ::access(aside.c_str(), F_OK) == 0; ++n) {
        aside = path + ".damaged-" + std::to_string(n);
    }
    if (::rename(path.c_str(), aside.c_str()) != 0) return kit::Error::FromErrno(errno, path);
    ::rename((path + "-wal").c_str(), (aside + "-wal").c_str());
    ::unlink((path + "-shm").c_str());
    return aside;
}

}  // namespace

kit::Result<Records> Records::OpenSound(const std::string& path) {
    auto database = Database::Open(path);
    if (!database) return database.error();
    auto version = database->Prepare("PRAGMA user_version");
    if (!version.Next()) return version.Result().error();
    if (version.Integer(0) > kVersion) {
        return kit::Error::Make(kit::ErrorKind::Damaged, path, "made by a newer version");
    }
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && status.st_size <= kMostToCheck) {
        if (auto checked = database->Check(); !checked) return checked.error();
    }
    Records records(std::move(*database));
    if (auto made = records.Queue().Prepare(); !made) return made.error();
    if (auto made = records.Reports().Prepare(); !made) return made.error();
    if (auto set = records.fDatabase.Execute("PRAGMA user_version=1"); !set) return set.error();
    return records;
}

kit::Result<Records> Records::Open(const std::string& folder) {
    const std::string path = folder + '/' + kFileName;
    auto records = OpenSound(path);
    if (records || records.error().kind != kit::ErrorKind::Damaged) return records;

    const std::string reason = records.error().Text();
    const auto jobs = Salvage(path);
    auto aside = SetAside(path);
    if (!aside) return aside.error();
    records = OpenSound(path);
    if (!records) return records;
    records->fProblems.push_back("The file of jobs and reports was damaged (" + reason +
                                 "). It was set aside as " + *aside + ".");
    for (const auto& [job, started] : jobs) {
        auto kept = records->Queue().Insert(job);
        if (kept.ok() && started > 0) kept = records->Queue().SetStarted(job.id, started);
        if (!kept) records->fProblems.push_back("A job was lost: " + job.title);
    }
    records->fProblems.push_back(std::to_string(jobs.size()) +
                                 " jobs could be taken over. Earlier reports are in the old file.");
    return records;
}

}  // namespace server
