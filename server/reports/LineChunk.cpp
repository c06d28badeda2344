#include "server/reports/LineChunk.h"

#include <utility>

#include "core/report/ReportLines.h"

namespace server {

void LineChunk::Add(core::LineType type, int32_t textId, const KTReportLine& arguments) {
    core::AddReportLine(fMessage, textId, type, arguments);
    fSize += static_cast<size_t>(arguments.FlattenedSize());
}

void LineChunk::AddWords(core::LineType type, std::string_view words) {
    core::AddReportWords(fMessage, type, words);
    fSize += words.size();
}

bool LineChunk::Append(const BMessage& other) {
    const int32_t count = other.Count("text_id", B_INT32_TYPE);
    if (count != other.Count("linetype", B_INT32_TYPE) ||
        count != other.Count("reportline", KTReportLine::kTypeCode)) {
        return false;
    }
    for (int32_t i = 0; i < count; ++i) {
        const auto line = *other.FindData("reportline", KTReportLine::kTypeCode, i);
        fMessage.AddData("reportline", KTReportLine::kTypeCode, line.data(), line.size());
        fMessage.Add("text_id", *other.Find<int32_t>("text_id", i));
        fMessage.Add("linetype", *other.Find<int32_t>("linetype", i));
        fSize += line.size();
    }
    return true;
}

BMessage LineChunk::Take() {
    fSize = 0;
    return std::exchange(fMessage, BMessage());
}

}  // namespace server
