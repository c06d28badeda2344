#include "client/app/OpenFile.h"

#include <string_view>

#include "client/app/ClientCodes.h"
#include "core/files/HeaderFile.h"
#include "kit/storage/NodeAttributes.h"

namespace client {
namespace {

struct Kind {
    std::string_view magic;
    const char* type;
    uint32_t tool;
};

// The first of a type is what opens it when the magic says nothing.
constexpr Kind kKinds[] = {
    {core::kSelectionMagic, core::kBackupSelectionType, code::kBackupTool},
    {core::kBackupJobMagic, core::kBackupSelectionType, code::kBackupTool},
    {core::kRestoreSelectionMagic, core::kRestoreSelectionType, code::kRestoreTool},
    {core::kRestoreJobMagic, core::kRestoreSelectionType, code::kRestoreTool},
    {core::kCompareJobMagic, core::kRestoreSelectionType, code::kCompareTool},
};

}  // namespace

uint32_t ToolForFile(const std::string& path) {
    const std::string magic = core::MagicOf(path);
    const auto type = kit::MimeType(path);
    uint32_t tool = 0;
    for (const Kind& kind : kKinds) {
        if (type && *type != kind.type) continue;
        if (magic == kind.magic) return kind.tool;
        if (type && tool == 0) tool = kind.tool;
    }
    return tool;
}

}  // namespace client
