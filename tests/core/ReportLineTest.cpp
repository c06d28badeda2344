#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>

#include "core/locale/KTLocale.h"
#include "core/locale/TextTable.h"
#include "core/report/Format.h"
#include "core/report/KTReportLine.h"
#include "core/report/ReportLines.h"

namespace {

std::string Flat(const KTReportLine& line) {
    std::string bytes(static_cast<size_t>(line.FlattenedSize()), '?');
    EXPECT_EQ(line.Flatten(bytes.data(), line.FlattenedSize()), 0);
    return bytes;
}

KTReportLine Unflat(std::string_view bytes) {
    KTReportLine line;
    EXPECT_EQ(line.Unflatten("ktrl"_code, bytes.data(), static_cast<ssize_t>(bytes.size())), 0);
    return line;
}

std::string operator""_bytes(const char* text, size_t size) {
    return {text, size};
}

KTReportLine FromArguments(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    KTReportLine line(format, arguments);
    va_end(arguments);
    return line;
}

}  // namespace

// Literal bytes: constants might be wrong together with the code.
TEST(ReportLine, FlattenedForm) {
    EXPECT_EQ(Flat(KTReportLine()), "ktem");

    KTReportLine line;
    line.AddString("abc");
    line.AddInt16(-2);
    line.AddInt64(1);
    EXPECT_EQ(Flat(line),
              "\x0f\0\0\0RTSCabc\0\0\0\0"
              "\x0d\0\0\0TRHS\xfe\xff\0\0\0"
              "\x13\0\0\0GNLL\x01\0\0\0\0\0\0\0\0\0\0ktem"_bytes);
    const KTReportLine back = Unflat(Flat(line));
    EXPECT_EQ(back.Count(), 3);
    EXPECT_EQ(Flat(back), Flat(line));
}

TEST(ReportLine, FlattenIntoOtherSizes) {
    KTReportLine line;
    line.AddInt32(7);
    std::string small(12, '?');
    EXPECT_EQ(line.Flatten(small.data(), 12), -1);
    EXPECT_EQ(small.substr(8), "ktem");
    EXPECT_EQ(line.Flatten(small.data(), 3), -1);

    std::string large(64, '?');
    EXPECT_EQ(line.Flatten(large.data(), 64), 0);
    EXPECT_EQ(large.substr(60), "ktem");
    EXPECT_EQ(Unflat(large).Count(), 1);
}

TEST(ReportLine, ReadsOnlyWhatIsThere) {
    KTReportLine line;
    line.AddString("name");
    line.AddInt32(70000);
    const std::string whole = Flat(line);
    for (size_t size = 0; size <= whole.size(); ++size) {
        const std::string part = whole.substr(0, size);  // its own allocation, for the sanitizer
        const KTReportLine got = Unflat(part);
        EXPECT_EQ(got.Count(), size < 16 ? 0 : size < 31 ? 1 : 2) << size;
    }
    EXPECT_EQ(Unflat("\0\0\0\0RTSCabc\0\0\0\0"_bytes).Count(), 0);
    EXPECT_EQ(Unflat("\xff\xff\xff\xffGNOL"_bytes).Count(), 0);
    EXPECT_EQ(Unflat("\x0d\0\0\0GNOL\x01\x02\0\0\0ktem"_bytes).Count(), 0) << "half an integer";
    EXPECT_EQ(Unflat("\x0e\0\0\0RTSCabc\0\0\0ktem"_bytes).Count(), 0) << "a string without end";
    EXPECT_EQ(Unflat("\x0c\0\0\0EMOS!\0\0\0ktem"_bytes).Count(), 1) << "unknown types are kept";

    KTReportLine kept = Unflat(whole);
    EXPECT_EQ(kept.Unflatten("CSTR"_code, whole.data(), static_cast<ssize_t>(whole.size())), -1);
    EXPECT_EQ(kept.Count(), 0);
}

TEST(ReportLine, ReadingValues) {
    KTReportLine line;
    EXPECT_EQ(line.TypeAt(0), 0U);
    EXPECT_EQ(line.TypeAt(-1), 0U);
    line.AddInt32(70000);
    line.AddString("abc");
    EXPECT_EQ(line.TypeAt(-3), "LONG"_code);
    EXPECT_EQ(line.TypeAt(1), "CSTR"_code);
    EXPECT_EQ(line.TypeAt(2), 0U);

    int32_t number = 0;
    EXPECT_EQ(line.Get(&number, 4, 0), 0);
    EXPECT_EQ(number, 70000);
    EXPECT_EQ(line.Get(&number, 3, 0), -1);
    EXPECT_EQ(line.Get(&number, 4, 2), -1);
    char text[6] = "?????";
    EXPECT_EQ(line.Get(text, 3, 1), -1) << "the terminating NUL counts";
    EXPECT_EQ(line.Get(text, 6, 1), 0);
    EXPECT_STREQ(text, "abc");
}

TEST(ReportLine, ArgumentsFromFormat) {
    const char* format = "%s: %ld of %d";
    const KTReportLine line(4711, format, "x", 70000, 70000);
    EXPECT_EQ(line.TypeAt(0), "CSTR"_code);
    EXPECT_EQ(line.TypeAt(1), "LONG"_code);
    EXPECT_EQ(line.TypeAt(2), "SHRT"_code);
    EXPECT_EQ(line.Render(format), "x: 70000 of 4464");

    const KTReportLine mixed =
        FromArguments("%c%% %Ld %5.2f %lf %-5s", 'k', int64_t{1} << 40, 2.5, 3.25, "end");
    ASSERT_EQ(mixed.Count(), 5);
    EXPECT_EQ(mixed.TypeAt(0), "BYTE"_code);
    EXPECT_EQ(mixed.TypeAt(1), "LLNG"_code);
    EXPECT_EQ(mixed.TypeAt(2), "DBLE"_code);
    EXPECT_EQ(mixed.TypeAt(3), "DBLE"_code);
    EXPECT_EQ(mixed.Render("%c%% %Ld %5.2f %lf %-5s|"), "k% 1099511627776  2.50 3.250000 end  |");
    EXPECT_EQ(KTReportLine(0, nullptr).Count(), 0);
    EXPECT_EQ(KTReportLine(0, "%s", static_cast<const char*>(nullptr)).Render("<%s>"), "<>");
}

TEST(ReportLine, ParseLine) {
    const auto parse = [](const char* format) {
        std::vector<std::pair<uint32_t, std::string>> found;
        uint32_t type = 1;
        while ((format = KTReportLine::ParseLine(format, &type)))
            found.emplace_back(type, format);
        EXPECT_EQ(type, 0U);
        return found;
    };
    EXPECT_TRUE(parse("no conversion").empty());
    const std::pair<const char*, uint32_t> kTypes[] = {
        {"%d", "SHRT"_code},    {"%hd", "SHRT"_code},
        {"%02lx", "LONG"_code}, {"%LX", "LLNG"_code},
        {"%.1f", "FLOT"_code},  {"%lf", "FLOT"_code},
        {"%Lf", "DBLE"_code},   {"%-12.3s", "CSTR"_code},
        {"%*c", "BYTE"_code},   {"%p", 0}};
    for (const auto& [format, type] : kTypes)
        EXPECT_EQ(parse(format).at(0).first, type) << format;
    // The second zero stands where only a width may: it is taken as the conversion itself.
    const auto zeroes = parse("%-05d %s");
    ASSERT_EQ(zeroes.size(), 2U);
    EXPECT_EQ(zeroes[0], (std::pair<uint32_t, std::string>(0, "5d %s")));
    EXPECT_EQ(zeroes[1], (std::pair<uint32_t, std::string>("CSTR"_code, "")));
    EXPECT_EQ(parse("100%%: %"),
              (std::vector<std::pair<uint32_t, std::string>>{{0, ": %"}, {0, ""}}));
}

TEST(ReportLine, HoldsFiftyWords) {
    KTReportLine line;
    for (int i = 0; i < 24; ++i)
        EXPECT_EQ(line.AddDouble(i), 0);
    EXPECT_EQ(line.AddInt8(1), 0);
    EXPECT_EQ(line.AddInt64(2), -1) << "49 words are taken";
    EXPECT_EQ(line.AddString("last"), 0);
    EXPECT_EQ(line.AddInt8(3), -1);
    EXPECT_EQ(line.Count(), 26);

    std::string many;
    for (int i = 0; i < 60; ++i)
        many += "\x0c\0\0\0ETYB\x07\0\0\0"_bytes;
    EXPECT_EQ(Unflat(many + "ktem").Count(), 50);
}

TEST(ReportLine, RawSingleIsNotItsValue) {
    KTReportLine line;
    line.AddFloat(1.5F);
    EXPECT_EQ(line.Render("%.1f"), "0.0");
    EXPECT_EQ(line.Render("%lx"), "3fc00000");
}

// The C library is the reference for every conversion the table has, and then some.
TEST(ReportLine, RendersAsPrintfDoes) {
    std::mt19937 random(4);
    const auto check = [](const char* format, auto value, const KTReportLine& line) {
        char expected[512];
        // NOLINTNEXTLINE: the formats are those below
        std::snprintf(expected, sizeof(expected), format, value);
        EXPECT_EQ(line.Render(format), expected) << format;
    };
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    std::vector<int> integers{0, 1, -1, 9, 40000, -25536, INT32_MAX, INT32_MIN};
    for (int i = 0; i < 200; ++i)
        integers.push_back(static_cast<int>(random() >> (random() % 32)));
    for (const int value : integers) {
        KTReportLine line;
        line.AddInt32(value);
        for (const char* format : {"%d", "%5d",  "%-7d|", "%05d",   "%+d",  "% d", "%.3d", "%8.3d",
                                   "%x", "%02x", "%X",    "%#x",    "%#X",  "%#o", "%o",   "%u",
                                   "%i", "%hd",  "%hhx",  "%-#8x|", "%08x", "%.0d"}) {
            check(format, value, line);
        }
    }
    std::vector<double> reals{0.0,  -0.0,  0.05,   0.95,     1.0, 12345.678,
                              -3.5, 1e300, 1e-300, INFINITY, NAN};
    for (int i = 0; i < 200; ++i) {
        reals.push_back(
            std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 80) - 40));
    }
    for (const double value : reals) {
        KTReportLine line;
        line.AddDouble(value);
        for (const char* format : {"%f", "%.1f", "%2.1f%%", "%12.2f", "%-12.2f|", "%012.2f",
                                   "%+.3f", "%e", "%.2E", "%g", "%G", "%.0f"}) {
            check(format, value, line);
        }
    }
    KTReportLine text;
    text.AddString("J\xc3\xbcrgen");
    for (const char* format : {"%s", "'%s'", "%12s|", "%-12s|", "%.3s"})
        check(format, "J\xc3\xbcrgen", text);
#pragma GCC diagnostic pop
}

TEST(ReportLine, ForeignFormatsAreHarmless) {
    KTReportLine line;
    line.AddString("text");
    line.AddInt64(int64_t{1} << 40);
    EXPECT_EQ(line.Render(nullptr), "");
    EXPECT_EQ(line.Render("%n %p %v %"), "%n %p %v %") << "not printf's: they stand as they are";
    EXPECT_EQ(line.Render("%d %s"), "text 1099511627776")
        << "the wrong type: the value all the same";
    EXPECT_EQ(line.Render("%s %ld %s|%d|%.1f"), "text 1099511627776 |0|0.0") << "missing ones";
    EXPECT_EQ(line.Render("%*s %*.*Ld"), "text 1099511627776");
    EXPECT_EQ(line.Render("%999999999999999999999s").size(), 1023U);
    EXPECT_EQ(KTReportLine(0, "%f", 1e308).Render("%.999999999f", 4000).size(), 309U + 1 + 512);
}

TEST(ReportLine, CutsBetweenCharacters) {
    KTReportLine line;
    line.AddString("a\xe2\x82\xacz");  // a, euro sign, z
    EXPECT_EQ(line.Render("%s", 5), "a\xe2\x82\xacz");
    EXPECT_EQ(line.Render("%s", 4), "a\xe2\x82\xac");
    for (const size_t limit : {1, 2, 3})
        EXPECT_EQ(line.Render("%s", limit), "a");
    EXPECT_EQ(line.Render("%s", 0), "");
    KTReportLine bytes;
    bytes.AddString("\x80\x80\x80\x80\x80\x80");
    EXPECT_EQ(bytes.Render("%s", 5).size(), 5U) << "no text at all: cut where the limit is";
}

TEST(ReportLine, LinesInMessages) {
    KTLocale* locale = KTLocale::GetInstance();
    locale->SetDefaultText(core::kTextTable.data(), core::kTextCount, "English");

    BMessage message;
    core::AddReportLine(message, 24, core::LineType::Heading, KTReportLine(24, "%s", "Daily"));
    core::AddReportLine(message, 17, core::LineType::Totals);
    core::AddReportWords(message, core::LineType::Error, "100% gone: %s");
    core::AddReportLine(message, 5000, core::LineType::Detail);
    EXPECT_EQ(core::CountReportLines(message), 4);
    EXPECT_EQ(core::ReportLineText(message, 0), "Starting backup 'Daily':");
    EXPECT_EQ(core::ReportLineText(message, 1), "Status:\t\t\t\tBackup successful");
    EXPECT_EQ(core::ReportLineText(message, 2), "100% gone: %s");
    EXPECT_EQ(core::ReportLineText(message, 3), "");
    EXPECT_EQ(message.Count("linetype"), 4);
    EXPECT_EQ(core::ReportLineText(message, 4), "");

    BMessage ready;
    ready.Add("report", "words %s as they are");
    EXPECT_EQ(core::ReportLineText(ready), "words %s as they are");
    BMessage foreign;
    foreign.Add("reportline", "a string is no report line");
    foreign.Add("text_id", int32_t{24});
    EXPECT_EQ(core::ReportLineText(foreign), "");
}

// No text of the table has a conversion that a report line cannot fill.
TEST(ReportLine, EveryTextOfTheTable) {
    for (int32_t id = 0; id < core::kTextCount; ++id) {
        const char* format = core::kTextTable[static_cast<size_t>(id)];
        KTReportLine line;
        uint32_t type = 0;
        for (const char* at = format; (at = KTReportLine::ParseLine(at, &type));) {
            if (type == "CSTR"_code) line.AddString("word");
            if (type == "LONG"_code) line.AddInt32(1);
            if (type == "LLNG"_code) line.AddInt64(1);
            if (type == "SHRT"_code) line.AddInt16(1);
            if (type == "FLOT"_code) line.AddDouble(1);
        }
        const std::string text = line.Render(format);
        EXPECT_EQ(text.find('%'), id == 323 ? text.size() - 1 : std::string::npos) << id << text;
    }
}
