// KTJob: the job of a tool: one message that is the tool's whole state, saved to job files and sent
// to the server. What every kind of job has is here, without any window. A plain value; one thread
// at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/files/HeaderFile.h"
#include "core/protocol/Codes.h"
#include "kit/message/BMessage.h"

class KTJob {
public:
    // What a tool's files are.
    struct FileKind {
        std::string_view jobMagic, selectionMagic;  // eight characters each
        const char* mimeType;                       // of job files
        const char* defaultName;                    // proposed for a first job file
    };
    explicit KTJob(const FileKind& files) : fFiles(files) {}
    virtual ~KTJob() = default;

    const BMessage& Data() const { return fJob; }
    // Takes over what a settings group or a job file holds.
    virtual void Replace(const BMessage& job);

    BMessage Selection() const { return fJob.Get("selection", BMessage()); }
    void SetSelection(const BMessage& selection) { fJob.Set("selection", selection); }

    // Without any password.
    BMessage StartInfo() const;
    void SetStartInfo(const BMessage& info) { fJob.Set("start_info", info); }

    // Seconds since the epoch; 0: as soon as possible.
    uint32_t StartTime() const;
    BMessage Schedule() const { return fJob.Get("scheduler", BMessage()); }
    void SetSchedule(const BMessage& schedule) { fJob.Set("scheduler", schedule); }
    // Takes the start time and the repeats away.
    void ClearSchedule();

    // The job file it was last loaded from or saved to; "" when there is none.
    std::string Path() const { return fJob.Get("selectionpath", std::string()); }
    void SetPath(std::string_view path) { fJob.Set("selectionpath", path); }

    const FileKind& Files() const { return fFiles; }
    core::HeaderSave Save(const std::string& path) const;
    // `job` changes only when the result is Good.
    core::HeaderLoad Load(const std::string& path, BMessage* job) const;

protected:
    BMessage fJob{core::code::kSubmitJob};

private:
    const FileKind& fFiles;
};
