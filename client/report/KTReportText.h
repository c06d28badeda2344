// KTReportText: the lines of one report as the reader is to see them. The words are made when a
// line is asked for, in the user's language: a report of a million lines opens at once. A plain
// value, cheap to copy; one thread at a time.
#pragma once

#include <QString>
#include <QTextOption>
#include <chrono>
#include <compare>
#include <memory>
#include <optional>
#include <vector>

#include "kit/message/BMessage.h"

// A place in the shown lines, between two characters.
struct KTTextPlace {
    int line = 0, column = 0;
    auto operator<=>(const KTTextPlace&) const = default;
};

// How a line is laid out, on screen and on paper. The words are written for a tab every four
// characters: a tab leads to the place where it would lead with characters of one width, so that
// columns line up in any font. `charWidth`: of an average one, in the units of the layout.
QTextOption KTReportLineOption(const QString& line, qreal charWidth, QTextOption::WrapMode wrap);

class KTReportText {
public:
    // What the reader wants to see; a setting, so any other number counts as the nearest.
    enum Filter : int32_t { kVolumes = 0, kDirectories = 1, kFiles = 2 };
    // Whether lines of that type are shown. Problems always are.
    static bool Shows(int32_t lineType, int32_t filter);

    KTReportText() = default;                      // no lines
    KTReportText(BMessage lines, int32_t filter);  // 'rpRP'
    KTReportText WithFilter(int32_t filter) const;

    int CountLines() const { return static_cast<int>(fShown.size()); }
    int CountHidden() const { return fCount - CountLines(); }
    bool IsEmpty() const { return fShown.empty(); }
    // One line of plain text: tabs stand as they are, other control characters and what is no
    // UTF-8 are escaped.
    QString LineAt(int line) const;
    bool IsProblem(int line) const;
    const std::vector<int>& Problems() const { return fProblems; }  // their lines, in order

    // What lies between two places, lines ended by "\n".
    QString Text(KTTextPlace from, KTTextPlace to) const;
    KTTextPlace End() const;  // behind the last character
    // All lines, each with its line feed.
    QByteArray ToUtf8() const;

private:
    std::shared_ptr<const BMessage> fLines;
    int fCount = 0;
    std::vector<int32_t> fShown;  // their index in the message
    std::vector<int> fProblems;
};

// Where some words begin, upper and lower case alike: the next ones from `from` on, or the last
// ones that begin before it; beyond the end it goes on at the other one. Looks a while at a time,
// since a long report takes seconds.
class KTReportSearch {
public:
    KTReportSearch(KTReportText text, QString words, KTTextPlace from, bool forward);

    // True when it is over; false when there is more to look at than could be in that time.
    bool Run(std::chrono::milliseconds time);
    const std::optional<KTTextPlace>& Found() const { return fFound; }  // nothing: nowhere
    qsizetype Length() const { return fWords.size(); }

private:
    bool LookAt(int step);

    KTReportText fText;
    QString fWords;
    KTTextPlace fFrom;
    bool fForward;
    int fStep = 0;  // lines looked at
    std::optional<KTTextPlace> fFound;
};
