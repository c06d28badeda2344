// Takes over the catalogue of a backup that comes from elsewhere. The file is somebody else's: it
// is read row by row, every row is looked at, and what is sound is written anew. Nothing else of
// the file comes along.
//
// Any thread.
#pragma once

#include <functional>
#include <string>

#include "kit/support/Result.h"
#include "server/catalogue/CatalogueTypes.h"

namespace server {

struct CopiedCatalogue {
    CatalogueOrigin origin;
    int64_t files = 0;  // what is no directory
    int64_t bytes = 0;  // of file data
};

// Copies the catalogue of the backup `name` from the file `from` to the new file `to`. Damaged: it
// is none, or says what cannot be; Unsupported: made by a later version; Aborted: `mayGoOn` said
// no. Nothing is left of `to` after an error.
kit::Result<CopiedCatalogue> CopyCatalogue(const std::string& from, const std::string& to,
                                           const std::string& name,
                                           const std::function<bool()>& mayGoOn);

}  // namespace server
