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

    // A disc that is full, or one that was put in and cannot be begun.
    struct FullDisc {
        int disc = 0;        // counts from 1: the one that is waited behind
        int64_t needed = 0;  // bytes that the next one must have free
        kit::Error why;
    };

    // `onMedium` tells that another begins.
    BackupWriter(KTVolume& volume, std::string name, std::string mediumSuffix,
                 std::function<void(int medium)> onMedium);
    ~BackupWriter();  // what was not published is removed

    // Both before Begin. Media and catalogue will be sealed for this recipient.
    void Protect(const AgeRecipient& recipient) { fRecipient = recipient; }
    // What is done when the destination is full. `makeRoom`: true to try again, there is some now.
    // `nextDisc`, where discs can be changed: returns when another one is there, false to give up.
    // Nothing on the old one is open then.
    void WhenFull(std::function<bool()> makeRoom,
                  std::function<bool(const FullDisc& full)> nextDisc);

    kit::Status Begin();
    // Writes a frame to the present medium, or to the next one where it does not fit whole: in the
    // same place while there is room, else on the next disc.
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

    // Where a file behind the media did not fit (`full`): goes on on another disc. The media that
    // are there stay there; all further files are to be written again, on the new one.
    kit::Status NextDisc(kit::Error full);
    bool CanChangeDiscs() const { return fNextDisc != nullptr; }
    // Removes what can be reached of a backup that was not published; the folders on other discs
    // that stay.
    std::vector<std::string> Discard();

    const std::vector<ManifestMedium>& Media() const { return fMedia; }
    int Disc() const { return fDisc; }  // the present one, from 1

private:
    kit::Status BeginDisc();
    kit::Status AppendFrame(std::span<const uint8_t> frame);
    kit::Status Append(std::span<const uint8_t> data);
    kit::Status WriteOut(std::span<const uint8_t> data);
    int64_t SizeWith(int64_t more) const;  // of the file being written
    bool HasRoomFor(int64_t size) const;

    KTVolume& fVolume;
    std::string fName;
    std::string fSuffix;
    std::function<bool()> fMakeRoom;
    std::function<bool(const FullDisc&)> fNextDisc;
    std::function<void(int)> fOnMedium;
    int64_t fMediaSize = 0;
    std::optional<AgeRecipient> fRecipient;  // of a protected backup

    bool fBegun = false, fPublished = false;
    std::unique_ptr<KTVolumeWriter> fFile;  // the one being written
    bool fInMedia = false;                  // it is a medium
    std::string fFileName;
    int64_t fFileSize = 0;             // as it lies there
    int64_t fPlainSize = 0;            // what was put into it
    std::optional<AgeSealer> fSealer;  // where it is sealed
    Bytes fSealed;                     // room that is used again
    AgeSealer::Mark fMark;             // the same
    Sha256 fSum;
    std::string fLastSum;  // of the file that was finished last
    int fDisc = 1;
    std::vector<ManifestMedium> fMedia;
    std::string fOtherSums;   // lines of SHA256SUMS for what is no medium
    int64_t fOtherBytes = 0;  // written of it on this disc
};

}  // namespace server::archive
