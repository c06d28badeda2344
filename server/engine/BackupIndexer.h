// Makes the catalogue of a backup that is not known here: the one that lies beside its media, or,
// where that is missing or damaged, a new one from the media themselves.
//
// One thread.
#pragma once

#include <string>

#include "server/engine/BackupContent.h"
#include "server/engine/JobReport.h"

namespace server {

class BackupIndexer {
public:
    BackupIndexer(CatalogueStore& catalogues, JobReport& report, JobControl& control);

    // Writes the file PathForNew(info->name), ready to be adopted, and fills in what it says of the
    // backup: files, bytes, what it builds on. Everything that is not as it should be is told.
    // False: it cannot be had, or the job is to end; there is no such file.
    bool Run(const BackupContent& content, BackupInfo* info);

private:
    kit::Status Quick(const BackupContent& content, BackupInfo* info);
    kit::Status Fetch(const BackupContent& content, const BackupInfo& info, const std::string& to);
    bool FromMedia(const BackupContent& content, BackupInfo* info);

    CatalogueStore& fCatalogues;
    JobReport& fReport;
    JobControl& fControl;
};

}  // namespace server
