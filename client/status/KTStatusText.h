// KTStatusText: what the panel of one job says, and how its bar stands, worked out from the
// server's messages without any window. A plain value; one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "kit/message/BMessage.h"

class KTStatusText {
public:
    enum class Outcome { Running, Good, Canceled, Errors, Abnormal };

    // From the job-start message 'KTJS'.
    explicit KTStatusText(const BMessage& jobStart);

    // 'KTJF'. Fields that are missing leave what was there; nothing changes after the end.
    void Update(const BMessage& message);
    // "status" of 'KTJf'; anything unknown is an abnormal end.
    void Finish(int32_t status);

    // --- what stays -----------------------------------------------------------------------------
    int32_t JobType() const { return fJobType; }
    const std::string& BoxTitle() const { return fBoxTitle; }
    const std::string& Title() const { return fTitle; }
    const std::string& FilesLabel() const { return fFilesLabel; }
    const std::string& BytesLabel() const { return fBytesLabel; }

    // --- what changes ---------------------------------------------------------------------------
    const std::string& StatusLine() const { return fStatusLine; }
    std::string FilesDone() const { return std::to_string(fCount); }
    std::string FilesTotal() const { return std::to_string(fMaxCount); }
    const std::string& BytesDone() const { return fBytesDone; }
    const std::string& BytesTotal() const { return fBytesTotal; }
    const std::string& Elapsed() const { return fElapsed; }
    const std::string& Remain() const { return fRemain; }
    const std::string& FileName() const { return fFileName; }  // the bar's label
    const std::string& Speed() const { return fSpeed; }        // its trailing label
    // Bytes, or files where the bytes are not known.
    int64_t BarMaximum() const { return fBarMaximum; }
    int64_t BarValue() const { return fBarValue; }
    Outcome Ended() const { return fOutcome; }

private:
    void Progress(const BMessage& message, const std::string& text);

    int32_t fJobType;
    std::string fBoxTitle, fTitle, fFilesLabel, fBytesLabel;
    std::string fStatusLine;
    std::string fBytesDone = "-", fBytesTotal = "-";
    std::string fElapsed, fRemain;
    std::string fFileName, fSpeed;
    int64_t fSize = 0, fMaxSize = 0;
    int32_t fCount = 0, fMaxCount = 0;
    int32_t fElapsedSeconds = 0, fRemainSeconds = 0;
    float fSpeedBytes = 0;
    int64_t fBarMaximum = 0, fBarValue = 0;
    Outcome fOutcome = Outcome::Running;
};
