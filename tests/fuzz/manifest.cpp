// The manifest of a backup that comes from elsewhere. What is read of it must be sound, and come
// back the same when it is written anew.
#include <cstdlib>
#include <string>

#include "server/archive/Format.h"
#include "server/archive/Manifest.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto manifest = server::archive::ReadManifest({data, size});
    if (!manifest) return 0;
    Require(server::archive::IsBackupName(manifest->name));
    Require(manifest->jobId >= 0 && manifest->baseId >= 0 && manifest->discs >= 1);
    for (const auto& medium : manifest->media) {
        Require(!medium.file.empty() && medium.file.find('/') == std::string::npos);
        Require(medium.size >= 0 && medium.disc >= 1 && medium.disc <= manifest->discs);
    }
    const auto written = server::archive::WriteManifest(*manifest);
    const auto again = server::archive::ReadManifest(written);
    Require(again && server::archive::WriteManifest(*again) == written);
    return 0;
}
