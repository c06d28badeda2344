// The entries of a job list ('KTJI'), as parallel arrays.
#pragma once

#include "server/catalogue/CatalogueStore.h"
#include "server/queue/JobQueue.h"

namespace server {

void AddToJobList(BMessage& list, const QueuedJob& job);
// A full backup that stands, offered as a base for others ("base" true).
void AddToJobList(BMessage& list, const BackupInfo& backup);

}  // namespace server
