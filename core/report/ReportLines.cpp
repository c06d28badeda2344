#include "core/report/ReportLines.h"

#include <algorithm>

#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "core/report/Renderer.h"

namespace core {

void AddReportLine(BMessage& message, int32_t textId, LineType type, const KTReportLine& line) {
    line.AddTo(message, kReportLineField);
    message.Add(kTextIdField, textId);
    message.Add(kLineTypeField, static_cast<int32_t>(type));
}

void AddReportWords(BMessage& message, LineType type, std::string_view words) {
    KTReportLine line;
    line.AddString(words);
    AddReportLine(message, text::kLine, type, line);
}

int32_t CountReportLines(const BMessage& message) {
    return std::max(message.Count(kReportLineField, KTReportLine::kTypeCode),
                    message.Count(kReadyTextField, B_STRING_TYPE));
}

std::string ReportLineText(const BMessage& message, int32_t index, size_t limit) {
    if (const auto line = KTReportLine::FindIn(message, kReportLineField, index)) {
        const auto id = message.Find<int32_t>(kTextIdField, index);
        return id ? line->Render(TextOf(*id).c_str(), limit) : std::string();
    }
    const auto ready = message.FindString(kReadyTextField, index);
    return ready ? std::string(CutText(*ready, limit)) : std::string();
}

}  // namespace core
