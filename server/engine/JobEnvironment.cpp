#include "server/engine/JobEnvironment.h"

#include "core/protocol/Texts.h"

namespace server {

void JobEvents::Words(core::LineType type, const std::string& words) {
    KTReportLine line;
    line.AddString(words);
    Line(type, core::text::kLine, std::move(line));
}

}  // namespace server
