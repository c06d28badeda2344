// What a job's threads say, brought into one voice: lines one at a time, errors counted, progress
// not too often. Thread-safe.
#pragma once

#include <atomic>
#include <chrono>
#include <initializer_list>
#include <mutex>
#include <string_view>

#include "kit/support/Result.h"
#include "server/engine/JobEnvironment.h"

namespace server {

class JobReport {
public:
    explicit JobReport(JobEvents& events);

    void Line(core::LineType type, int32_t textId, KTReportLine arguments = {});
    // A line whose arguments are strings.
    void Line(core::LineType type, int32_t textId,
              std::initializer_list<std::string_view> arguments);
    void Words(core::LineType type, std::string_view words);
    // An error, and where a reason is given a line of detail with it.
    void Error(int32_t textId, std::initializer_list<std::string_view> arguments,
               std::string_view reason = {});
    void ErrorWords(std::string_view words, std::string_view reason = {});

    int64_t Errors() const { return fErrors; }

    // --- progress --------------------------------------------------------------------------------
    void AddTotals(int64_t files, int64_t bytes);
    void AddDone(int64_t files, int64_t bytes);  // bytes may be taken back
    // Tells it when the last time is long enough ago.
    void Tick(std::string_view path);
    void TellProgress(std::string_view path);

    int32_t Seconds() const;  // since the job began
    double SecondsExact() const;

private:
    using Clock = std::chrono::steady_clock;

    JobEvents& fEvents;
    std::mutex fMutex;
    std::atomic<int64_t> fErrors = 0;
    std::atomic<int64_t> fAllFiles = 0, fAllBytes = 0;
    std::atomic<int64_t> fFiles = 0, fBytes = 0;
    const Clock::time_point fStart;
    std::atomic<Clock::duration> fLastTold{};  // since fStart
};

}  // namespace server
