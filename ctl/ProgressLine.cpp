#include "ctl/ProgressLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "core/report/ReportLines.h"
#include "ctl/Say.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

ProgressLine::ProgressLine() {
    winsize size{};
    if (::isatty(STDOUT_FILENO) && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        fColumns = size.ws_col > 0 ? size.ws_col : 80;
    }
}

std::string ProgressLine::Text(const BMessage& progress, size_t columns) {
    constexpr int64_t kBar = 20;
    const int64_t size = progress.Get<int64_t>("size", 0);
    const int64_t maxSize = progress.Get<int64_t>("maxsize", 0);
    const int32_t count = progress.Get<int32_t>("count", 0);
    const int32_t maxCount = progress.Get<int32_t>("maxcount", 0);
    const double part = maxSize > 0    ? static_cast<double>(size) / static_cast<double>(maxSize)
                        : maxCount > 0 ? static_cast<double>(count) / maxCount
                                       : 0;
    const auto percent = static_cast<int64_t>(std::clamp(part, 0.0, 1.0) * 100);
    const auto filled = static_cast<size_t>(percent * kBar / 100);

    std::string text = "[" + std::string(filled, '#') + std::string(kBar - filled, '.') + "] " +
                       std::to_string(percent) + "%";
    // What does not fit any more is left out, the most telling things come first.
    const auto add = [&](const std::string& part) {
        if (Columns(text) + 2 + Columns(part) <= columns) text += "  " + part;
    };
    add(core::FormatTextOf(kMoreCtlSizeOf, SizeWords(size), SizeWords(maxSize)));
    if (const int32_t remain = progress.Get<int32_t>("remain", 0); remain > 0) {
        add(core::FormatTextOf(kMoreCtlTimeLeft, TimeWords(remain)));
    }
    add(core::FormatTextOf(kMoreCtlFilesOf, count, maxCount));
    if (const float speed = progress.Get<float>("speed", 0); speed > 0) {
        add(SizeWords(static_cast<int64_t>(speed)) + "/s");
    }
    const std::string path = Printable(core::ReportLineText(progress));
    const size_t used = Columns(text) + 2;
    if (!path.empty() && columns > used + 8) text += "  " + CutFront(path, columns - used);
    return Columns(text) <= columns ? text : text.substr(0, columns);
}

void ProgressLine::Show(const BMessage& progress) {
    if (!IsOnTerminal()) return;
    // The last column stays free: some terminals break the line there.
    std::printf("\r%s\033[K", Text(progress, fColumns - 1).c_str());
    std::fflush(stdout);
    fShown = true;
}

void ProgressLine::Clear() {
    if (!fShown) return;
    std::printf("\r\033[K");
    std::fflush(stdout);
    fShown = false;
}

}  // namespace ctl
