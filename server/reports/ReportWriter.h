// Takes the lines of a running job and writes them to its report, in chunks, on the records'
// thread. Lines may come from any thread, one at a time; a job that is quicker than the disk is
// slowed down.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>

#include "server/reports/LineChunk.h"

namespace server {

class ReportWriter {
public:
    // Stores a chunk; called on the thread of whoever adds the line.
    using Store = std::function<void(BMessage lines)>;
    explicit ReportWriter(Store store) : fStore(std::move(store)) {}

    void Add(core::LineType type, int32_t textId, const KTReportLine& arguments);
    // What has not been stored yet, for the last chunk.
    BMessage TakeRest();

private:
    static constexpr int32_t kMostLines = 1000;
    static constexpr size_t kMostBytes = size_t{256} * 1024;
    static constexpr std::chrono::seconds kMostAge{2};

    const Store fStore;
    std::mutex fMutex;
    LineChunk fLines;
    std::chrono::steady_clock::time_point fOldest;
};

}  // namespace server
