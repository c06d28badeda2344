// Lines of a report as they lie in messages and chunks: the parallel arrays "reportline", "text_id"
// and "linetype".
#pragma once

#include <cstdint>
#include <string>

#include "core/protocol/LineTypes.h"
#include "core/report/KTReportLine.h"
#include "kit/message/BMessage.h"

namespace server {

class LineChunk {
public:
    void Add(core::LineType type, int32_t textId, const KTReportLine& arguments);
    void AddWords(core::LineType type, std::string_view words);  // text 279
    // All lines of `other`; false when its arrays do not fit each other, which changes nothing.
    bool Append(const BMessage& other);

    int32_t Count() const { return fMessage.Count("text_id"); }
    size_t Size() const { return fSize; }  // bytes of the arguments
    const BMessage& Message() const { return fMessage; }
    BMessage Take();  // and starts anew

private:
    BMessage fMessage;
    size_t fSize = 0;
};

}  // namespace server
