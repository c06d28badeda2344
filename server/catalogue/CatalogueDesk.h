// What clients ask about backups: their trees, deleting them, what lies on a medium. Nothing of it
// is done on the looper, because a catalogue or a medium may be slow.
//
// Looper's thread.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "server/app/ServerHost.h"
#include "server/app/Worker.h"
#include "server/catalogue/CatalogueStore.h"
#include "server/catalogue/EntrySearch.h"
#include "server/reports/ReportDesk.h"

namespace server {

class CatalogueDesk {
public:
    CatalogueDesk(ServerHost& host, CatalogueStore& catalogues, ReportDesk& reports,
                  std::string addOnFolder);

    // --- messages -------------------------------------------------------------------------------
    void List(BMessage& message);    // 'KTLR'
    void Find(BMessage& message);    // 'KTfd'
    void Delete(BMessage& message);  // 'KTxX'
    void Scan(BMessage& message);    // 'ktvs'

    // Tells the clients which backups came and went since it was called last.
    void TellChanges();

    // Opens the tree of one that came by insert; a report says what is wrong with it. Not the
    // looper's thread, one at a time.
    void OpenTree(const std::string& name, std::shared_ptr<const archive::AgeIdentity> key,
                  int32_t client);
    // What takes long is given up: the server ends. Any thread.
    void Stop() { fStopping = true; }

private:
    struct Deletion;
    BMessage ScanNow(const std::string& addOn, const BMessage& settings, int32_t client);
    Deletion DeleteNow(const std::vector<std::string>& names, const std::vector<bool>& withData);
    // Of a catalogue that turned out to be damaged: once for each backup.
    void TellDamage(const std::string& name, const kit::Error& error);
    void Report(const BackupInfo& backup, const std::string& words, int32_t client = 0);

    ServerHost& fHost;
    CatalogueStore& fCatalogues;
    ReportDesk& fReports;
    const std::string fAddOnFolder;
    std::map<std::string, BackupInfo> fKnown;
    std::set<std::string> fDamaged;  // told
    EntrySearch fSearch;             // on the searching worker
    std::atomic<bool> fStopping = false;
    Worker fReading{2};
    Worker fSearching;
    Worker fDeleting;
    Worker fScanning;
};

}  // namespace server
