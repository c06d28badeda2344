// Everything about reports that clients ask for, and the writing of new ones. The list is in
// memory, so that it is answered at once; lines are read and written on workers.
//
// Looper's thread, unless a function says otherwise.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "kit/app/SharedArea.h"
#include "server/app/ServerHost.h"
#include "server/app/Worker.h"
#include "server/queue/Records.h"
#include "server/reports/LineChunk.h"
#include "server/reports/ReportDeletion.h"

namespace server {

// What the clients are told of a new report besides.
struct ReportCause {
    int32_t client = 0;    // whose wish was refused; 0: nobody's
    bool overdue = false;  // a job's good runs are missing: worth a notice of its own
    std::optional<core::JobEnd> end = {};  // it is the one of a run, which ended like this
};

class ReportDesk {
public:
    static constexpr size_t kMostDirect =
        size_t{1024} * 1024;  // larger reports go through a shared area
    static constexpr size_t kMostWaiting = size_t{64} * 1024 * 1024;  // in areas, for one team

    // `records` belongs to `writing`'s thread from here on. Call before that worker has anything to
    // do.
    ReportDesk(ServerHost& host, Records& records, std::string folder, Worker& writing);
    ~ReportDesk();

    // --- messages -------------------------------------------------------------------------------
    void List(BMessage& message);         // 'rpGL'
    void Open(BMessage& message);         // 'rpOP'
    void Close(BMessage& message);        // 'rpCL'
    void Delete(BMessage& message);       // 'rpDL'
    void GetDeletion(BMessage& message);  // 'rpDG'
    void SetDeletion(BMessage& message);  // 'rpDS'

    // --- what the rest of the server wants
    // --------------------------------------------------------
    int32_t NewId() { return ++fLastId; }
    // A report that is complete as it is.
    void Write(ReportInfo report, LineChunk lines, ReportCause cause = {});
    // The parts of a report that grows. Writing thread, in one go with what else must be on the
    // disk. Lines that cannot be stored stay in memory.
    void BeginStored(const ReportInfo& report);
    bool AppendStored(int32_t id, const BMessage& lines);  // false: they are in memory
    void FinishStored(int32_t id);
    void KeepInMemory(int32_t id, const BMessage& lines);  // what was stored, but not committed
    // A stored report is listed and told to the clients.
    void Announce(const ReportInfo& report, ReportCause cause = {});

    void ApplyDeletion();               // after each job, and once a day
    void BackupDeleted(int32_t jobId);  // its reports go too, if so set

private:
    void Remove(const std::vector<int32_t>& ids);
    void Deliver(int32_t id, const BMessenger& user, BMessage text);
    size_t WaitingFor(int32_t team) const;  // bytes in areas

    ServerHost& fHost;
    Records& fRecords;  // writing thread
    const std::string fFolder;
    Worker& fWriting;
    std::vector<ReportInfo> fReports;  // by id
    int32_t fLastId = 0;
    ReportDeletion fDeletion;
    struct Delivery {
        int32_t report;
        BMessenger user;
        size_t size;
        kit::SharedArea area;
    };
    std::map<uint64_t, Delivery> fAreas;  // not read yet
    uint64_t fDeliveries = 0;

    struct Loose;  // lines that could not be stored, for the readers
    std::shared_ptr<Loose> fLoose;
    Worker fReading;
};

}  // namespace server
