#include "client/status/KTStatusText.h"

#include "core/protocol/Codes.h"
#include "core/protocol/LineTypes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "core/report/KTReportLine.h"

namespace {

struct PanelTexts {
    int32_t box, files, bytes;
};

PanelTexts TextsFor(int32_t jobType) {
    using namespace core::text;
    switch (static_cast<core::JobType>(jobType)) {
        case core::JobType::Full:
        case core::JobType::Incremental:
        case core::JobType::Differential:
            return {kBackup, kFilesReadLabel, kBytesReadLabel};
        case core::JobType::Restore:
            return {kRestore, kFilesRestoredLabel, kBytesRestoredLabel};
        case core::JobType::Compare:
            return {kCompare, kFilesComparedLabel, kBytesComparedLabel};
        case core::JobType::Insert:
        case core::JobType::Verify:
            break;
    }
    return {kProcess, kFilesProcessedLabel, kBytesProcessedLabel};
}

// The words of a line: a report line in the user's language, else the text the server sent.
std::string TextOfLine(const BMessage& message) {
    if (const auto line = KTReportLine::FindIn(message, "reportline"))
        return line->Render(core::TextOf(message.Get<int32_t>("text_id", -1)).c_str());
    return message.Get("report", std::string());
}

// Report lines stand in columns, by tabs; a panel has one line.
std::string OneLine(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const bool space = c == '\t' || c == '\n' || c == ' ';
        if (!space)
            line += c;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    return line;
}

}  // namespace

KTStatusText::KTStatusText(const BMessage& jobStart)
    : fJobType(jobStart.Get<int32_t>("job_type", 0)),
      fStatusLine(core::TextOf(core::text::kScanningDirectories)),
      fElapsed(core::DurationText(0)),
      fRemain(core::DurationText(0)) {
    const PanelTexts texts = TextsFor(fJobType);
    fBoxTitle = core::TextOf(texts.box);
    fTitle = jobStart.Get("title", std::string());
    if (fTitle.empty()) fTitle = core::TextOf(core::text::kNoTitle);
    fFilesLabel = jobStart.Get("filesstr", core::TextOf(texts.files));
    fBytesLabel = jobStart.Get("bytesstr", core::TextOf(texts.bytes));
}

void KTStatusText::Update(const BMessage& message) {
    const int32_t lineType = message.Get<int32_t>("linetype", 0);
    if (lineType <= 0 || fOutcome != Outcome::Running) return;
    const std::string text = TextOfLine(message);
    if (lineType == static_cast<int32_t>(core::LineType::Progress))
        Progress(message, text);
    else if (lineType == static_cast<int32_t>(core::LineType::Volume))
        fStatusLine = core::VolumeLineText(fJobType, message.Get<int32_t>("text_id", -1), text);
    else
        fStatusLine = OneLine(text);
}

void KTStatusText::Progress(const BMessage& message, const std::string& text) {
    fSize = message.Get("size", fSize);
    fMaxSize = message.Get("maxsize", fMaxSize);
    fCount = message.Get("count", fCount);
    fMaxCount = message.Get("maxcount", fMaxCount);
    fElapsedSeconds = message.Get("elapsed", fElapsedSeconds);
    fRemainSeconds = message.Get("remain", fRemainSeconds);
    fSpeedBytes = message.Get("speed", fSpeedBytes);

    fBarMaximum = fMaxSize > 0 ? fMaxSize : fMaxCount;
    fBarValue = fMaxSize > 0 ? fSize : fCount;

    fBytesDone = core::SizeText(fSize);
    fBytesTotal = core::SizeText(fMaxSize);
    fElapsed = core::DurationText(fElapsedSeconds);
    fRemain = core::DurationText(fRemainSeconds);
    fSpeed = core::SpeedText(fSpeedBytes);
    fFileName = " " + text.substr(text.rfind('/') + 1);
}

void KTStatusText::Finish(int32_t status) {
    if (fOutcome != Outcome::Running) return;
    fStatusLine = core::TextOf(core::JobEndTextId(status));
    switch (static_cast<core::JobEnd>(status)) {
        case core::JobEnd::Good:
            fOutcome = Outcome::Good;
            return;
        case core::JobEnd::Aborted:
            fOutcome = Outcome::Canceled;
            return;
        case core::JobEnd::Errors:
            fOutcome = Outcome::Errors;
            return;
        case core::JobEnd::Abnormal:
            break;
    }
    fOutcome = Outcome::Abnormal;
}
