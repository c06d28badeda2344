#include "server/engine/JobReport.h"

#include <algorithm>

#include "core/protocol/Texts.h"

namespace server {

namespace {
constexpr auto kTellEvery = std::chrono::milliseconds(100);
}

JobReport::JobReport(JobEvents& events) : fEvents(events), fStart(Clock::now()) {}

void JobReport::Line(core::LineType type, int32_t textId, KTReportLine arguments) {
    if (type == core::LineType::Error) ++fErrors;
    std::lock_guard lock(fMutex);
    fEvents.Line(type, textId, std::move(arguments));
}

void JobReport::Line(core::LineType type, int32_t textId,
                     std::initializer_list<std::string_view> arguments) {
    KTReportLine line;
    for (std::string_view argument : arguments)
        line.AddString(argument);
    Line(type, textId, std::move(line));
}

void JobReport::Words(core::LineType type, std::string_view words) {
    Line(type, core::text::kLine, {words});
}

void JobReport::Error(int32_t textId, std::initializer_list<std::string_view> arguments,
                      std::string_view reason) {
    Line(core::LineType::Error, textId, arguments);
    if (!reason.empty()) Words(core::LineType::Detail, reason);
}

void JobReport::ErrorWords(std::string_view words, std::string_view reason) {
    Error(core::text::kLine, {words}, reason);
}

void JobReport::AddTotals(int64_t files, int64_t bytes) {
    fAllFiles += files;
    fAllBytes += bytes;
}

void JobReport::AddDone(int64_t files, int64_t bytes) {
    fFiles += files;
    fBytes += bytes;
}

void JobReport::Tick(std::string_view path) {
    auto last = fLastTold.load();
    const auto now = Clock::now() - fStart;
    // One of several threads tells it.
    if (now - last >= kTellEvery && fLastTold.compare_exchange_strong(last, now)) {
        TellProgress(path);
    }
}

void JobReport::TellProgress(std::string_view path) {
    fLastTold = Clock::now() - fStart;
    const double elapsed = SecondsExact();
    Progress progress;
    progress.size = fBytes;
    progress.maxSize = std::max<int64_t>(fAllBytes, progress.size);
    progress.count = fFiles;
    progress.maxCount = std::max<int64_t>(fAllFiles, progress.count);
    progress.elapsed = static_cast<int32_t>(elapsed);
    if (elapsed > 0)
        progress.speed = static_cast<float>(static_cast<double>(progress.size) / elapsed);
    // Small files cost time without having bytes, so the slower of the two tells what is left.
    double left = 0;
    if (progress.size > 0) {
        left = static_cast<double>(progress.maxSize - progress.size) /
               static_cast<double>(progress.size);
    }
    if (progress.count > 0) {
        left = std::max(left, static_cast<double>(progress.maxCount - progress.count) /
                                  static_cast<double>(progress.count));
    }
    progress.remain = static_cast<int32_t>(std::min(elapsed * left, 359'999.0));
    progress.path = path;
    std::lock_guard lock(fMutex);
    fEvents.SetProgress(progress);
}

int32_t JobReport::Seconds() const {
    return static_cast<int32_t>(SecondsExact());
}

double JobReport::SecondsExact() const {
    return std::chrono::duration<double>(Clock::now() - fStart).count();
}

}  // namespace server
