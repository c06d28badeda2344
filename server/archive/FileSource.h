// Random access to the plain bytes of one file of a backup, wherever it lies and whatever it is
// wrapped in.
//
// Any thread, several at once.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "addons/KTVolume.h"
#include "kit/support/Result.h"

namespace server::archive {

class FileSource {
public:
    virtual ~FileSource() = default;
    virtual kit::Result<int64_t> Size() = 0;
    // Up to into.size() bytes from `offset`; fewer only at the end of the file.
    virtual kit::Result<size_t> ReadAt(int64_t offset, std::span<uint8_t> into) = 0;
};

// The file as it lies on the destination. `volume` must outlive it.
std::unique_ptr<FileSource> OpenOnVolume(KTVolume& volume, std::string folder, std::string file);

}  // namespace server::archive
