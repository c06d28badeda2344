#include "client/report/KTReportText.h"

#include <QDeadlineTimer>
#include <algorithm>

#include "client/uikit/KTControl.h"
#include "core/report/ReportLines.h"

namespace {

constexpr int kTabColumns = 4;
constexpr size_t kLongestLine = 64 * 1024;  // bytes; paths may be longer than the system's limit

int32_t TypeOf(const BMessage& lines, int32_t index) {
    return lines.Get<int32_t>(core::kLineTypeField, 0, index);
}

}  // namespace

QTextOption KTReportLineOption(const QString& line, qreal charWidth, QTextOption::WrapMode wrap) {
    QTextOption option;
    option.setWrapMode(wrap);
    option.setTextDirection(Qt::LeftToRight);
    option.setTabStopDistance(charWidth * kTabColumns);
    QList<QTextOption::Tab> stops;
    int column = 0;
    for (const QChar character : line) {
        const bool tab = character == u'\t';
        column = tab ? (column / kTabColumns + 1) * kTabColumns : column + 1;
        if (tab) stops.append({column * charWidth, QTextOption::LeftTab});
    }
    option.setTabs(stops);
    return option;
}

bool KTReportText::Shows(int32_t lineType, int32_t filter) {
    switch (static_cast<core::LineType>(lineType)) {
        case core::LineType::Directory:
            return filter >= kDirectories;
        case core::LineType::File:
        case core::LineType::Detail:
            return filter >= kFiles;
        default:
            return true;
    }
}

KTReportText::KTReportText(BMessage lines, int32_t filter)
    : fLines(std::make_shared<const BMessage>(std::move(lines))),
      // With ids it is report lines, else ready texts; never both.
      fCount(fLines->Has(core::kTextIdField)
                 ? std::min(fLines->Count(core::kReportLineField, KTReportLine::kTypeCode),
                            fLines->Count(core::kTextIdField, B_INT32_TYPE))
                 : fLines->Count(core::kReadyTextField, B_STRING_TYPE)) {
    *this = WithFilter(filter);
}

KTReportText KTReportText::WithFilter(int32_t filter) const {
    KTReportText text;
    text.fLines = fLines;
    text.fCount = fCount;
    for (int32_t i = 0; i < fCount; ++i) {
        const int32_t type = TypeOf(*fLines, i);
        if (!Shows(type, filter)) continue;
        if (type == static_cast<int32_t>(core::LineType::Error))
            text.fProblems.push_back(text.CountLines());
        text.fShown.push_back(i);
    }
    return text;
}

QString KTReportText::LineAt(int line) const {
    const std::string text =
        core::ReportLineText(*fLines, fShown[static_cast<size_t>(line)], kLongestLine);
    QString shown;
    for (std::string_view rest = text;;) {
        const size_t tab = rest.find('\t');
        shown += KTControl::Shown(rest.substr(0, tab));
        if (tab == std::string_view::npos) return shown;
        shown += '\t';
        rest.remove_prefix(tab + 1);
    }
}

bool KTReportText::IsProblem(int line) const {
    return std::ranges::binary_search(fProblems, line);
}

QString KTReportText::Text(KTTextPlace from, KTTextPlace to) const {
    QString text;
    for (int line = from.line; line <= to.line && line < CountLines(); ++line) {
        QString words = LineAt(line);
        if (line == to.line)
            words.truncate(to.column);
        else
            words += '\n';
        text += line == from.line ? words.mid(from.column) : words;
    }
    return text;
}

KTTextPlace KTReportText::End() const {
    if (IsEmpty()) return {};
    const int last = CountLines() - 1;
    return {last, static_cast<int>(LineAt(last).size())};
}

QByteArray KTReportText::ToUtf8() const {
    QByteArray all;
    for (int line = 0; line < CountLines(); ++line) {
        all += LineAt(line).toUtf8();
        all += '\n';
    }
    return all;
}

// --- search -------------------------------------------------------------------------------------

KTReportSearch::KTReportSearch(KTReportText text, QString words, KTTextPlace from, bool forward)
    : fText(std::move(text)), fWords(std::move(words)), fFrom(from), fForward(forward) {
    fFrom.line = std::clamp(fFrom.line, 0, std::max(fText.CountLines() - 1, 0));
}

bool KTReportSearch::Run(std::chrono::milliseconds time) {
    if (fWords.isEmpty() || fText.IsEmpty()) return true;
    const QDeadlineTimer end(time);
    // Once round; the line that it starts in comes again at the end, for its other part.
    while (fStep <= fText.CountLines()) {
        if (LookAt(fStep++)) return true;
        if (end.hasExpired()) return false;
    }
    return true;
}

bool KTReportSearch::LookAt(int step) {
    const int count = fText.CountLines();
    const int line = (fFrom.line + (fForward ? step : count - step % count) + count) % count;
    const QString text = fText.LineAt(line);
    qsizetype at = -1;
    if (fForward) {
        at = text.indexOf(fWords, step == 0 ? fFrom.column : 0, Qt::CaseInsensitive);
    } else if (step > 0 || fFrom.column > 0) {
        at = text.lastIndexOf(fWords, step == 0 ? fFrom.column - 1 : -1, Qt::CaseInsensitive);
    }
    if (at >= 0) fFound = KTTextPlace{line, static_cast<int>(at)};
    return at >= 0;
}
