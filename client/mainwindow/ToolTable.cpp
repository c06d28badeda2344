#include "client/mainwindow/ToolTable.h"

#include <algorithm>

#include "client/app/ClientCodes.h"
#include "client/backup/KTBackupView.h"
#include "client/backup/KTQBView.h"
#include "client/compare/KTCompareView.h"
#include "client/jobqueue/KTJobQueueView.h"
#include "client/report/KTReportView.h"
#include "client/restore/KTRestoreView.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace client {
namespace {

KTToolView* MakeBackup(const Tool&, KTToolContext context, QWidget* parent) {
    return new KTBackupView(std::move(context), parent);
}

KTToolView* MakeQuickBackup(const Tool&, KTToolContext context, QWidget* parent) {
    return new KTQBView(std::move(context), parent);
}

KTToolView* MakeRestore(const Tool&, KTToolContext context, QWidget* parent) {
    return new KTRestoreView(std::move(context), parent);
}

KTToolView* MakeJobQueue(const Tool&, KTToolContext context, QWidget* parent) {
    return new KTJobQueueView(std::move(context), parent);
}

KTToolView* MakeCompare(const Tool&, KTToolContext context, QWidget* parent) {
    return new KTCompareView(std::move(context), parent);
}

KTToolView* MakeReports(const Tool&, KTToolContext context, QWidget* parent) {
    return new KTReportView(std::move(context), parent);
}

constexpr Tool kTools[] = {
    {code::kQuickBackupTool, 6, "quickbackup", core::text::kQuickBackup, "quickbackup",
     MakeQuickBackup},
    {code::kBackupTool, 1, "backup", core::text::kBackup, "backup", MakeBackup},
    {code::kRestoreTool, 2, "restore", core::text::kRestore, "restore", MakeRestore},
    {code::kCompareTool, 5, "compare", core::text::kCompare, "compare", MakeCompare},
    {code::kJobQueueTool, 3, "jobqueue", core::text::kJobQueue, "jobqueue", MakeJobQueue},
    {code::kReportTool, 4, "report", core::text::kReports, "reports", MakeReports},
};

template <class Member>
const Tool* Find(Member Tool::*member, Member value) {
    const auto found = std::ranges::find(kTools, value, member);
    return found == std::end(kTools) ? nullptr : found;
}

}  // namespace

std::span<const Tool> Tools() {
    return kTools;
}

const Tool* ToolOfCode(uint32_t code) {
    return Find(&Tool::code, code);
}

const Tool* ToolOfIndex(int8_t index) {
    return Find(&Tool::index, index);
}

}  // namespace client
