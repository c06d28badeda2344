// What clients ask about backups: their trees, their passwords, deleting them. Nothing of it is
// done on the looper, because a catalogue or a medium may be slow.
//
// Looper's thread.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "server/app/ServerHost.h"
#include "server/app/Worker.h"
#include "server/catalogue/CatalogueStore.h"
#include "server/reports/ReportDesk.h"

namespace server {

class CatalogueDesk {
public:
    CatalogueDesk(ServerHost& host, CatalogueStore& catalogues, ReportDesk& reports,
                  std::string addOnFolder);

    // --- messages -------------------------------------------------------------------------------
    void List(BMessage& message);           // 'KTLR'
    void Delete(BMessage& message);         // 'KTxX'
    void CheckPassword(BMessage& message);  // 'ktpc'
    void Scan(BMessage& message);           // 'ktvs'

    // Tells the clients which backups came and went since it was called last.
    void TellChanges();

private:
    struct Deletion;
    Deletion DeleteNow(const std::vector<std::string>& names, const std::vector<bool>& withData);

    ServerHost& fHost;
    CatalogueStore& fCatalogues;
    ReportDesk& fReports;
    const std::string fAddOnFolder;
    std::map<std::string, BackupInfo> fKnown;
    Worker fReading{2};
    Worker fDeleting;
};

}  // namespace server
