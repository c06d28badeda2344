#include "server/app/JobStream.h"

#include <algorithm>
#include <utility>

#include "core/protocol/Texts.h"

namespace server {

namespace {

BMessage LineMessage(int32_t jobId, core::LineType type, int32_t textId,
                     const KTReportLine& arguments) {
    BMessage message(core::code::kJobProgress);
    message.Add("job_id", jobId);
    message.Add("linetype", static_cast<int32_t>(type));
    message.Add("text_id", textId);
    arguments.AddTo(message, "reportline");
    return message;
}

bool IsOfType(const BMessage& message, core::LineType type) {
    return message.Get<int32_t>("linetype", 0) == static_cast<int32_t>(type);
}

}  // namespace

void JobStream::Line(core::LineType type, int32_t textId, const KTReportLine& arguments) {
    using core::LineType;
    if (type == LineType::Directory || type == LineType::File || type == LineType::Progress) return;
    BMessage message = LineMessage(fJobId, type, textId, arguments);
    std::lock_guard lock(fMutex);
    const bool isVolume = type == LineType::Volume;
    if (isVolume) fVolume = message;
    auto same = std::find_if(fNewLines.begin(), fNewLines.end(), [&](const BMessage& line) {
        return IsOfType(line, LineType::Volume) == isVolume;
    });
    if (same != fNewLines.end()) {
        if (IsOfType(*same, LineType::Error) && type != LineType::Error) return;
        fNewLines.erase(same);
    }
    fNewLines.push_back(std::move(message));
}

void JobStream::SetProgress(const Progress& progress) {
    std::lock_guard lock(fMutex);
    fProgress = progress;
    fNewProgress = true;
}

std::vector<BMessage> JobStream::TakeNew() {
    std::lock_guard lock(fMutex);
    auto messages = std::exchange(fNewLines, {});
    if (std::exchange(fNewProgress, false)) messages.push_back(ProgressMessage(*fProgress));
    return messages;
}

std::vector<BMessage> JobStream::Latest() const {
    std::lock_guard lock(fMutex);
    std::vector<BMessage> messages;
    if (fVolume) messages.push_back(*fVolume);
    if (fProgress) messages.push_back(ProgressMessage(*fProgress));
    return messages;
}

BMessage JobStream::ProgressMessage(const Progress& progress) const {
    KTReportLine path;
    path.AddString(progress.path);
    BMessage message = LineMessage(fJobId, core::LineType::Progress, core::text::kLine, path);
    message.Add("size", progress.size);
    message.Add("maxsize", progress.maxSize);
    // The protocol counts files in 32 bits.
    const auto count = [](int64_t files) {
        return static_cast<int32_t>(std::clamp<int64_t>(files, 0, INT32_MAX));
    };
    message.Add("count", count(progress.count));
    message.Add("maxcount", count(progress.maxCount));
    message.Add("elapsed", progress.elapsed);
    message.Add("remain", progress.remain);
    message.Add("speed", progress.speed);
    return message;
}

}  // namespace server
