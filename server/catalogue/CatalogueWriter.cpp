#include "server/catalogue/CatalogueWriter.h"

#include <unistd.h>

#include <limits>

#include "server/catalogue/CatalogueTables.h"

namespace server {

namespace {

constexpr size_t kBatchRows = 4096;
constexpr size_t kMaxWaiting = 4;  // batches; more, and the backup waits for the catalogue

std::span<const uint8_t> BytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

kit::Status WriteList(Database& database, const char* insert,
                      const std::vector<std::string>& texts) {
    Statement row = database.Prepare(insert);
    for (size_t i = 0; i < texts.size(); ++i) {
        row.Bind(1, static_cast<int64_t>(i)).Bind(2, BytesOf(texts[i]));
        if (kit::Status status = row.Run(); !status) return status;
    }
    return {};
}

}  // namespace

kit::Result<std::unique_ptr<CatalogueWriter>> CatalogueWriter::Create(
    const std::string& path, const CatalogueOrigin& origin) {
    ::unlink(path.c_str());
    auto database = Database::OpenScratch(path);
    if (!database) return database.error();
    for (const CatalogueTable& table : kCatalogueTables) {
        if (auto made = database->Execute(table.sql); !made) return made.error();
    }
    const std::string version =
        "INSERT INTO catalogue VALUES(" + std::to_string(kCatalogueVersion) + ")";
    if (auto made = database->Execute(version.c_str()); !made) return made.error();
    if (auto begun = database->Execute("BEGIN"); !begun) return begun.error();
    kit::Status written =
        WriteList(*database, "INSERT INTO chain VALUES(?1,CAST(?2 AS TEXT))", origin.chain);
    if (written)
        written = WriteList(*database, "INSERT INTO selection VALUES(?1,?2)", origin.rules);
    if (!written) return written.error();
    return std::unique_ptr<CatalogueWriter>(new CatalogueWriter(path, std::move(*database)));
}

CatalogueWriter::CatalogueWriter(std::string path, Database database)
    : fPath(std::move(path)),
      fDatabase(std::make_unique<Database>(std::move(database))),
      fFilling(std::make_unique<Batch>()),
      fThread([this] { WriteBatches(); }) {}

CatalogueWriter::~CatalogueWriter() {
    {
        std::lock_guard lock(fMutex);
        fEnd = true;
        if (!fFinished) fWaiting.clear();
    }
    fChanged.notify_all();
    if (fThread.joinable()) fThread.join();
    fDatabase.reset();
    if (!fFinished) ::unlink(fPath.c_str());
}

int32_t CatalogueWriter::AddEntry(const CatalogueEntry& entry, std::string_view name) {
    if (fNextId == std::numeric_limits<int32_t>::max()) {
        std::lock_guard lock(fMutex);
        if (fStatus.ok()) {
            fStatus = kit::Error::Make(kit::ErrorKind::TooLarge, fPath, "too many entries");
        }
        return 0;
    }
    EntryRow& row = fFilling->entries.emplace_back();
    row.entry = entry;
    row.entry.id = fNextId++;
    fFilling->names.insert(fFilling->names.end(), name.begin(), name.end());
    row.nameEnd = fFilling->names.size();
    if (fFilling->Rows() >= kBatchRows) HandOver();
    return fNextId - 1;
}

void CatalogueWriter::AddDirectory(const CatalogueDirectory& directory) {
    fFilling->directories.push_back(directory);
    if (fFilling->Rows() >= kBatchRows) HandOver();
}

void CatalogueWriter::AddFrame(const CatalogueFrame& frame) {
    std::lock_guard lock(fMutex);
    fFrames.push_back(frame);
}

void CatalogueWriter::AddGone(std::string_view path) {
    fFilling->gone.emplace_back(path);
    if (fFilling->Rows() >= kBatchRows) HandOver();
}

bool CatalogueWriter::HasFailed() const {
    std::lock_guard lock(fMutex);
    return !fStatus.ok();
}

void CatalogueWriter::HandOver() {
    std::unique_lock lock(fMutex);
    fChanged.wait(lock, [this] { return fWaiting.size() < kMaxWaiting; });
    fFilling->frames.swap(fFrames);
    fWaiting.push_back(std::move(fFilling));
    if (fSpare.empty()) {
        fFilling = std::make_unique<Batch>();
    } else {
        fFilling = std::move(fSpare.back());
        fSpare.pop_back();
    }
    fChanged.notify_all();
}

void CatalogueWriter::WriteBatches() {
    Inserts inserts{
        fDatabase->Prepare(
            "INSERT INTO entries VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12,?13)"),
        fDatabase->Prepare("INSERT INTO directories VALUES(?1,?2,?3,?4,?5)"),
        fDatabase->Prepare("INSERT INTO frames VALUES(?1,?2,?3,?4,?5,?6,?7)"),
        fDatabase->Prepare("INSERT INTO gone VALUES(?1)"),
    };
    std::unique_lock lock(fMutex);
    for (;;) {
        fChanged.wait(lock, [this] { return !fWaiting.empty() || fEnd; });
        if (fWaiting.empty()) return;
        std::unique_ptr<Batch> batch = std::move(fWaiting.front());
        const bool go = fStatus.ok();  // after a failure batches are only taken away
        lock.unlock();
        kit::Status status;
        if (go) status = Write(*batch, inserts);
        batch->entries.clear();
        batch->names.clear();
        batch->directories.clear();
        batch->frames.clear();
        batch->gone.clear();
        lock.lock();
        if (go && !status) fStatus = std::move(status);
        if (!fWaiting.empty()) fWaiting.pop_front();
        fSpare.push_back(std::move(batch));
        fChanged.notify_all();
    }
}

kit::Status CatalogueWriter::Write(const Batch& batch, Inserts& inserts) {
    auto& [entry, directory, frame, gone] = inserts;
    size_t nameStart = 0;
    for (const EntryRow& row : batch.entries) {
        const CatalogueEntry& e = row.entry;
        entry.Bind(1, int64_t{e.id})
            .Bind(2, std::span(batch.names).subspan(nameStart, row.nameEnd - nameStart))
            .Bind(3, int64_t{e.mode})
            .Bind(4, int64_t{e.uid})
            .Bind(5, int64_t{e.gid})
            .Bind(6, e.size)
            .Bind(7, e.modified)
            .Bind(8, e.changed)
            .Bind(9, e.frame)
            .Bind(10, e.offset)
            .Bind(11, int64_t{e.link})
            .Bind(12, int64_t{e.incomplete})
            .Bind(13, static_cast<int64_t>(e.node));
        if (kit::Status status = entry.Run(); !status) return status;
        nameStart = row.nameEnd;
    }
    for (const CatalogueDirectory& d : batch.directories) {
        directory.Bind(1, int64_t{d.id})
            .Bind(2, int64_t{d.first})
            .Bind(3, int64_t{d.count})
            .Bind(4, d.frame)
            .Bind(5, d.offset);
        if (kit::Status status = directory.Run(); !status) return status;
    }
    for (const CatalogueFrame& f : batch.frames) {
        frame.Bind(1, f.id)
            .Bind(2, int64_t{f.medium})
            .Bind(3, f.offset)
            .Bind(4, f.size)
            .Bind(5, f.content)
            .Bind(6, static_cast<int64_t>(f.hash))
            .Bind(7, int64_t{f.source});
        if (kit::Status status = frame.Run(); !status) return status;
    }
    for (const std::string& path : batch.gone) {
        gone.Bind(1, BytesOf(path));
        if (kit::Status status = gone.Run(); !status) return status;
    }
    return {};
}

kit::Status CatalogueWriter::Finish() {
    HandOver();
    {
        std::lock_guard lock(fMutex);
        fEnd = true;
    }
    fChanged.notify_all();
    fThread.join();
    if (!fStatus) return fStatus;
    if (kit::Status status = fDatabase->Execute("COMMIT"); !status) return status;
    fDatabase.reset();
    fFinished = true;
    return {};
}

}  // namespace server
