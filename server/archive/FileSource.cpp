#include "server/archive/FileSource.h"

namespace server::archive {

namespace {

class VolumeFile : public FileSource {
public:
    VolumeFile(KTVolume& volume, std::string folder, std::string file)
        : fVolume(volume), fFolder(std::move(folder)), fFile(std::move(file)) {}

    kit::Result<int64_t> Size() override {
        const auto files = fVolume.ListFiles(fFolder);
        if (!files) return files.error();
        for (const KTVolumeFile& file : *files) {
            if (file.name == fFile) return file.size;
        }
        return kit::Error::Make(kit::ErrorKind::NotFound, fFolder + "/" + fFile, "is not there");
    }
    kit::Result<size_t> ReadAt(int64_t offset, std::span<uint8_t> into) override {
        return fVolume.ReadAt(fFolder, fFile, offset, into);
    }

private:
    KTVolume& fVolume;
    const std::string fFolder, fFile;
};

}  // namespace

std::unique_ptr<FileSource> OpenOnVolume(KTVolume& volume, std::string folder, std::string file) {
    return std::make_unique<VolumeFile>(volume, std::move(folder), std::move(file));
}

}  // namespace server::archive
