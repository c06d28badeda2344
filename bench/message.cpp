// A catalogue listing of 100,000 entries, flattened and unflattened, against the same columns in
// Qt's CBOR and, for scale, against copying the bytes.

// link: Qt6::Core

#include <malloc.h>
#include <QCborArray>
#include <QCborMap>
#include <QCborValue>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kit/message/BMessage.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Columns {
    std::vector<int32_t> type, medium, index;
    std::vector<int64_t> size, offset;
    std::vector<BTime> date;
    std::vector<std::string> name;
};

Columns MakeColumns(int32_t count) {
    Columns columns;
    for (int32_t i = 0; i < count; ++i) {
        columns.type.push_back(i % 10 == 0 ? 1 : 0);
        columns.name.push_back("entry-of-usual-length-" + std::to_string(i) + ".txt");
        columns.size.push_back(i % 10 == 0 ? -1 : int64_t{i} * 4099);
        columns.date.push_back({1700000000u + static_cast<uint32_t>(i)});
        columns.medium.push_back(1 + i / 50000);
        columns.offset.push_back(int64_t{i} * 65537);
        columns.index.push_back(i);
    }
    return columns;
}

BMessage AsMessage(const Columns& columns) {
    BMessage message("KTLi"_code);
    message.AddArray<int32_t>("type", columns.type);
    for (const std::string& name : columns.name)
        message.Add("name", name);
    message.AddArray<BTime>("date", columns.date);
    message.AddArray<int64_t>("size", columns.size);
    message.AddArray<int32_t>("medianr", columns.medium);
    message.AddArray<int64_t>("offset", columns.offset);
    message.AddArray<int32_t>("index", columns.index);
    return message;
}

QCborMap AsCbor(const Columns& columns) {
    const auto array = [](const auto& values) {
        QCborArray all;
        for (const auto& value : values)
            all.append(static_cast<qint64>(value));
        return all;
    };
    QCborArray names;
    for (const std::string& name : columns.name)
        names.append(QByteArray::fromStdString(name));
    QCborArray dates;
    for (const BTime date : columns.date)
        dates.append(static_cast<qint64>(date.seconds));
    QCborMap map;
    map[QStringLiteral("type")] = array(columns.type);
    map[QStringLiteral("name")] = names;
    map[QStringLiteral("date")] = dates;
    map[QStringLiteral("size")] = array(columns.size);
    map[QStringLiteral("medianr")] = array(columns.medium);
    map[QStringLiteral("offset")] = array(columns.offset);
    map[QStringLiteral("index")] = array(columns.index);
    return map;
}

void Require(bool condition) {
    if (condition) return;
    std::fprintf(stderr, "a round trip went wrong\n");
    std::exit(1);
}

// One way's times in milliseconds.
struct Way {
    const char* name;
    size_t bytes = 0;
    std::vector<double> flatten, unflatten;
};

template <class Work>
void Time(std::vector<double>* times, Work work) {
    const auto start = Clock::now();
    work();
    times->push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
}

double Median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Each way is measured in turn within a round.
void Compare(const char* title, int rounds, const BMessage& message, const QCborMap& cbor) {
    Way kit{"message", 0, {}, {}};
    Way qt{"Qt CBOR", 0, {}, {}};
    Way copy{"copying the bytes", 0, {}, {}};
    for (int round = 0; round < rounds; ++round) {
        Bytes flat;
        Time(&kit.flatten, [&] { flat = message.Flatten(); });
        kit.bytes = flat.size();
        std::optional<BMessage> read;
        Time(&kit.unflatten, [&] { read = BMessage::Unflatten(flat); });
        Require(read && *read == message);
        read.reset();

        QByteArray encoded;
        Time(&qt.flatten, [&] { encoded = QCborValue(cbor).toCbor(); });
        qt.bytes = static_cast<size_t>(encoded.size());
        QCborValue decoded;
        Time(&qt.unflatten, [&] { decoded = QCborValue::fromCbor(encoded); });
        Require(decoded.toMap().value(QStringLiteral("index")).toArray().size() == 100000);
        decoded = QCborValue();

        Bytes copied;
        Time(&copy.flatten, [&] { copied = flat; });
        copy.bytes = copied.size();
        Bytes again;
        Time(&copy.unflatten, [&] { again = copied; });
        Require(again == flat);
    }
    std::printf("%s\n%-20s %12s %10s %10s %10s\n", title, "", "bytes", "flatten", "unflatten",
                "both");
    for (const Way* way : {&kit, &qt, &copy}) {
        const double there = Median(way->flatten);
        const double back = Median(way->unflatten);
        std::printf("%-20s %12zu %10.2f %10.2f %10.2f\n", way->name, way->bytes, there, back,
                    there + back);
    }
    const double ours = Median(kit.flatten) + Median(kit.unflatten);
    const double theirs = Median(qt.flatten) + Median(qt.unflatten);
    std::printf("the message is %.1f times as fast as Qt's CBOR\n\n", theirs / ours);
}

}  // namespace

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::atoi(arguments[1]) : 15;
    const Columns columns = MakeColumns(100000);
    const BMessage message = AsMessage(columns);
    const QCborMap cbor = AsCbor(columns);
    std::printf("100,000 catalogue entries, median of %d rounds, milliseconds\n\n", rounds);
    Compare("every round takes its memory from the system anew", rounds, message, cbor);
    // What a process that has handled such a message before pays for the next one.
    ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
    Compare("memory that the process had before", rounds, message, cbor);
    return 0;
}
