// What a folder of a destination holds, as far as it can be told without opening its media. Every
// byte of it may be somebody else's.
//
// One thread at a time, as the destination.
#pragma once

#include <string>
#include <vector>

#include "addons/KTVolume.h"
#include "server/archive/Manifest.h"
#include "server/catalogue/CatalogueStore.h"

namespace server {

// The manifest of a backup's folder. NotFound: there is none; Damaged, TooLarge: it cannot be one
// of this folder; Unsupported: made by a later version.
kit::Result<archive::Manifest> ReadManifestOf(KTVolume& volume, const std::string& folder);

// In place of a manifest that cannot be read: the media as they lie in the folder, the add-on that
// unpacks them, found by how their names end, whether they are sealed. NotFound: there are none.
kit::Result<archive::Manifest> ManifestOfFiles(KTVolume& volume, const std::string& folder,
                                               const std::string& addOnFolder);

// What the lists say of the backup in a folder, whole or not: all that is known before its
// catalogue is. Where the data lies, and the ids it has here, is left open. NotFound: it is no
// backup, or nothing of it is left; Unsupported as above.
kit::Result<BackupInfo> LookAt(KTVolume& volume, const std::string& folder,
                               const std::string& addOnFolder);
// Its title in a list of what was found, which tells of one that is not whole.
std::string TitleOfFound(const BackupInfo& found);

// The folders of backups, the oldest first; others are passed over.
kit::Result<std::vector<std::string>> BackupFolders(KTVolume& volume);

}  // namespace server
