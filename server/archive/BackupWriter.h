// One backup being written to a destination: its media, cut between frames, and the files beside
// them, each synced and with its SHA-256, then the moment at which it exists. docs/archive.md has
// the order.
//
// One thread at a time.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "addons/KTVolume.h"
#include "server/archive/AgeStream.h"
#include "server/archive/Manifest.h"

namespace server::archive {

// SHA-256 of a stream of bytes.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(Sha256&&) noexcept;
    Sha256& operator=(Sha256&&) noexcept;
    void Update(std::span<const uint8_t> data);
    std::string Finish();  // 64 hexadecimal digits

private:
    struct State;
    std::unique_ptr<State> fState;
};

class BackupWriter {
public:
    struct Place {
        int medium = 0;      // counts from 1
        int64_t offset = 0;  // on it, when it is opened
    };

    // `onFull` is asked when the destination is full, with the number of the medium being written:
    // true to try again (there should be room now), false to give up. `onMedium` tells that another
    // begins.
    BackupWriter(KTVolume& volume, std::string name, std::string mediumSuffix,
                 std::function<bool(int medium)> onFull, std::function<void(int medium)> onMedium);
    ~BackupWriter();  // what was not published is removed

    // Media and catalogue will be sealed for this recipient. Before Begin.
    void Protect(const AgeRecipient& recipient) { fRecipient = recipient; }
    kit::Status Begin();
    // Writes a frame to the present medium, or to the next one where it does not fit whole.
    kit::Result<Place> WriteFrame(std::span<const uint8_t> frame);
    kit::Status FinishMedia();  // at least one medium, even an empty one

    // A further file of the backup; pieces go to it until it is finished. A secret one of a
    // protected backup is sealed, and its name says so.
    enum class Content { Public, Secret };
    kit::Status OpenFile(std::string name, Content content);
    kit::Status WriteToFile(std::span<const uint8_t> data);
    kit::Status FinishFile();

    // SHA256SUMS of all files so far, then the backup gets its name.
    kit::Status Publish();

    const std::vector<ManifestMedium>& Media() const { return fMedia; }
    const std::string& Name() const { return fName; }

private:
    kit::Status Append(std::span<const uint8_t> data);
    kit::Status WriteOut(std::span<const uint8_t> data);
    int64_t SizeWith(int64_t more) const;  // of the file being written

    KTVolume& fVolume;
    std::string fName;
    std::string fSuffix;
    std::function<bool(int)> fOnFull;
    std::function<void(int)> fOnMedium;
    int64_t fMediaSize = 0;
    std::optional<AgeRecipient> fRecipient;  // of a protected backup

    bool fBegun = false, fPublished = false;
    std::unique_ptr<KTVolumeWriter> fFile;  // the one being written
    std::string fFileName;
    int64_t fFileSize = 0;             // as it lies there
    int64_t fPlainSize = 0;            // what was put into it
    std::optional<AgeSealer> fSealer;  // where it is sealed
    Bytes fSealed;                     // room that is used again
    Sha256 fSum;
    std::string fLastSum;  // of the file that was finished last
    std::vector<ManifestMedium> fMedia;
    std::string fSums;  // lines of SHA256SUMS
};

}  // namespace server::archive
