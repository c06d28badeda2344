#include "client/app/Routing.h"

#include <algorithm>
#include <iterator>

#include "client/app/ClientCodes.h"
#include "core/protocol/Codes.h"
#include "kit/app/BLooper.h"

namespace client {
namespace {

using namespace core::code;

struct Entry {
    uint32_t code;
    Route route;
    uint32_t answer = 0;
    bool starts = false;
};

constexpr Entry kTable[] = {
    {kSubmitJob, Route::SubmitJob, 0, true},
    {kContinueJob, Route::Server, 0, true},
    {kDeleteJob, Route::Server},
    {kListJobs, Route::Server},
    {kPauseJob, Route::Server},
    {kAcceptStatus, Route::Server},
    {kEditJob, Route::Server},
    {kStartJobNow, Route::Server, 0, true},
    {kOpenReport, Route::Server},
    {kCloseReport, Route::Server},
    {kListCatalogue, Route::AskServer, kCatalogue},
    {kPassword, Route::AskServer, kPasswordResult},

    {kJobInserted, Route::Window},
    {kJobRemoved, Route::Window},
    {kJobStarted, Route::Window},
    {kBackupRemoved, Route::Window},
    {kCatalogue, Route::Window},
    {kJobChanged, Route::Window},
    {kReportInserted, Route::Window},
    {kReportRemoved, Route::Window},
    {kUnusedCr, Route::Window},
    {kPasswordResult, Route::Window},
    {kScanResult, Route::Window},
    {kUnusedAr, Route::Window},

    // Sent to a view's own messenger. Should one come here it must not go back to where it came
    // from.
    {kJobProgress, Route::Dropped},
    {kJobFinished, Route::Dropped},
    {kReportText, Route::Dropped},
    {kNone, Route::Dropped},
    {kAreaRead, Route::Dropped},

    {B_GET_PROPERTY, Route::Application},
    {B_REFS_RECEIVED, Route::Application},
    {B_QUIT_REQUESTED, Route::Application},
};

constexpr bool IsEachCodeOnce() {
    for (const Entry& entry : kTable) {
        if (std::ranges::count(kTable, entry.code, &Entry::code) != 1) return false;
    }
    return true;
}
static_assert(IsEachCodeOnce());

const Entry* Find(uint32_t code) {
    const auto found = std::ranges::find(kTable, code, &Entry::code);
    return found == std::end(kTable) ? nullptr : found;
}

}  // namespace

Route RouteOf(uint32_t code, bool remote, bool namesJob) {
    if (const Entry* entry = Find(code)) return entry->route;
    if (remote && code::IsInternal(code)) return Route::Dropped;
    return namesJob ? Route::ServerByJobId : Route::Application;
}

uint32_t AnswerCodeOf(uint32_t code) {
    const Entry* entry = Find(code);
    return entry ? entry->answer : 0;
}

bool StartsSomething(uint32_t code) {
    const Entry* entry = Find(code);
    return entry && entry->starts;
}

}  // namespace client
