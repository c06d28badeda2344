// KTVolume: a destination, the place where backups lie. One class serves both programs: the client
// asks it for its name, medium and settings; the server's engine writes to it and reads from it.
//
// An add-on is a shared object in Backup_Server/add-ons/destination that exports
//
//     extern "C" KTVolume* instantiate_ktvolume();     // null on failure; the caller deletes it
//
// It links the kit, never a window toolkit, and lets no exception out. Loading it runs nothing
// heavy and shows nothing. The table of slots is append-only. Unless a comment says otherwise an
// object is used by one thread at a time. docs/add-ons.md tells how to write one.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "addons/KTSettingsHost.h"
#include "kit/message/BMessage.h"
#include "kit/support/Result.h"

struct KTVolumeSpace {
    int64_t capacity = 0;   // bytes; -1: not known
    int64_t freeBytes = 0;  // bytes the user may still write; -1: not known
    bool removable = false;
    bool readOnly = false;
};

struct KTVolumeFile {
    std::string name;  // one path component
    int64_t size = 0;  // bytes
};

// One file being written as a stream. Destroying it unfinished leaves a file nobody relies on.
class KTVolumeWriter {
public:
    virtual ~KTVolumeWriter() = default;
    // All of `data` or an error (ErrorKind::Full when the place is full). After an error only
    // Truncate and destruction are allowed.
    virtual kit::Status Write(std::span<const uint8_t> data) = 0;
    // Cuts the file back to `size` bytes, so that a write that did not fit whole can be taken back.
    virtual kit::Status Truncate(int64_t size) = 0;
    // Everything is on the medium when this returns well; nothing may be written after it.
    virtual kit::Status Finish() = 0;
};

// What the engine lends a destination while it works for a job. Any thread.
class KTVolumeHost {
public:
    // The job is to end: whatever takes long is given up (ErrorKind::Aborted), within a second.
    virtual bool IsAborted() const = 0;
    // What the user should know though it is no error, in English: a line of the report.
    virtual void Tell(const std::string& words) = 0;

protected:
    ~KTVolumeHost() = default;
};

class KTVolume : public KTSettingsOwner {
public:
    virtual ~KTVolume() = default;

    // --- what the client uses, in this order
    // ------------------------------------------------------ Fills `message` with the settings,
    // "addon" (the file name of this add-on) included. 0 or an error.
    virtual int32_t Archive(BMessage* message, bool deep) const = 0;
    virtual bool IsOverwrite() const = 0;
    virtual void SetOverwrite(bool overwrite) = 0;
    // The medium in words, as the overwrite question names it; "" when none is set. Valid until the
    // settings change. Must not touch the medium.
    virtual const char* MediaName() const = 0;
    // Hands the description of the settings window to `parent`. 'news' goes to `target` when they
    // changed.
    virtual void ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                              const char* language) = 0;
    virtual void SetSettings(const BMessage& settings) = 0;  // an empty message means defaults
    virtual void GetSettings(BMessage* settings) const = 0;
    virtual const char* MenuName() const = 0;

    // --- what the engine uses
    // ---------------------------------------------------------------------- The place is there and
    // can be used as set; tells a missing one from a read-only or denied one.
    virtual kit::Status CheckAccess() = 0;
    virtual kit::Result<KTVolumeSpace> Space() = 0;
    // Bytes that one file of a backup may have; 0: no limit.
    virtual int64_t MediaSize() const = 0;
    // The directory where backups lie when it is one of this machine's, else "": so that a backup
    // of its own destination can leave it out.
    virtual std::string LocalDirectory() const = 0;

    // A backup under way is the folder NAME.partial. Files are made in it in any order, one at a
    // time.
    virtual kit::Status BeginBackup(const std::string& name) = 0;
    virtual kit::Result<std::unique_ptr<KTVolumeWriter>> CreateFile(const std::string& name,
                                                                    const std::string& file) = 0;
    // NAME.partial becomes NAME, for good: the moment at which the backup exists.
    virtual kit::Status Publish(const std::string& name) = 0;
    // Removes a whole backup, whole or partial, by its folder's name. NotFound is an error too.
    virtual kit::Status RemoveBackup(const std::string& folder) = 0;

    virtual kit::Result<std::vector<std::string>> ListBackups() = 0;  // folders, partial ones too
    virtual kit::Result<std::vector<KTVolumeFile>> ListFiles(const std::string& folder) = 0;
    // Reads up to into.size() bytes at `offset`; fewer only at the end of the file. Any thread,
    // several at once.
    virtual kit::Result<size_t> ReadAt(const std::string& folder, const std::string& file,
                                       int64_t offset, std::span<uint8_t> into) = 0;
    // A small file beside the backups (README.txt), replaced whole.
    virtual kit::Status WriteRootFile(const std::string& file, std::span<const uint8_t> data) = 0;

    // For the length of a job, before the calls above; null takes it away. Without a host nobody
    // asks to end and nobody listens. A destination that answers at once has no use for it.
    virtual void SetHost(KTVolumeHost* host) { (void)host; }

    // --- discs that are changed, where Space says that the place is removable
    // A disc is full and the backup goes on on the next: NAME.partial becomes `folder`, in one step
    // and for good, with these of its files; what else is in it goes before. Nothing on the disc is
    // open afterwards, so that it can be taken out.
    virtual kit::Status ClosePart(const std::string& name, const std::string& folder,
                                  const std::vector<std::string>& files) {
        (void)folder;
        (void)files;
        return kit::Error::Make(kit::ErrorKind::Unsupported, name, "its media cannot be changed");
    }
};

extern "C" {
using instantiate_ktvolume_func = KTVolume* (*)();
}
