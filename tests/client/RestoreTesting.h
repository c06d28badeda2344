// A server that shows a catalogue by script, for the tests of the tools that read it.
#pragma once

#include <map>

#include "client/catalogue/KTLogDataView.h"
#include "tests/client/BackupTesting.h"

namespace restore_testing {

using namespace backup_testing;

struct Entry {
    int32_t type;  // -1 backup, 0 file, 1 directory, 2 link, 3 volume
    std::string name;
    int64_t size = -1;
    int32_t date = 0;  // 0: none is sent
    // Of backups.
    std::string title;
    int32_t mode = 1, jobId = 0, baseId = 0;
};

inline BMessage List(const std::vector<Entry>& entries) {
    BMessage list("KTLi"_code);
    int32_t index = 0;
    for (const Entry& entry : entries) {
        list.Add("type", entry.type);
        list.Add("name", entry.name);
        list.Add("size", entry.size);
        list.Add("date", BTime{static_cast<uint32_t>(entry.date)});
        list.Add("medianr", int32_t{1});
        list.Add("offset", int64_t{512} * index);
        list.Add("index", 100 + index++);
        list.Add("title", entry.title);
        list.Add("mode", entry.mode);
        list.Add("job_id", entry.jobId);
        list.Add("base_id", entry.baseId);
    }
    return list;
}

// "/": two sets; in "Mon" and "Tue" a volume with "/home/{docs/{a,ab,c},f,l}".
class Catalogue {
public:
    Catalogue() {
        fLists["/"] = List({{-1, "Mon", -1, 1000, "Home", 1, 7, 7},
                            {-1, "Tue", -1, 2000, "Home", 2, 8, 7},
                            {-1, "Old", -1, 500, "", 1, 3, 0}});
        for (const std::string backup : {"Mon", "Tue", "Old"}) {
            const std::string root = "/" + backup;
            fLists[root] = List({{3, "Disk", -1, 10, {}}});
            fLists[root + "/Disk"] = List({{1, "home", -1, 10, {}}});
            fLists[root + "/Disk/home"] =
                List({{1, "docs", -1, 10, {}}, {0, "f", 42, 10, {}}, {2, "l", 3, 0, {}}});
            fLists[root + "/Disk/home/docs"] =
                List({{0, "a", 1, 10, {}}, {0, "ab", 2, 10, {}}, {0, "c", 3, 10, {}}});
        }
    }
    void Lock(const std::string& backup) { fLocked.insert(backup); }
    void Open(const std::string& backup) { fLocked.erase(backup); }
    void Set(const std::string& path, const BMessage& list) { fLists[path] = list; }

    BMessage operator()(const BMessage& question) const {
        if (question.what != "KTLR"_code) return {};
        const std::string path = question.Get("path", std::string());
        if (fLocked.contains(path.substr(1))) {
            BMessage locked("KTLi"_code);
            locked.Add("locked", int32_t{1});
            return locked;
        }
        const auto found = fLists.find(path);
        return found == fLists.end() ? BMessage("NONE"_code) : found->second;
    }

private:
    std::map<std::string, BMessage> fLists;
    std::set<std::string> fLocked;
};

// The row of "Mon/Disk/home"; kNoRow when it is not there.
inline KTRow RowOf(const KTLogDataView& view, const std::string& path) {
    KTRow row = kNoRow;
    for (const std::filesystem::path& part : std::filesystem::path(path)) {
        KTRow found = kNoRow;
        if (row == kNoRow) {
            for (int32_t i = 0; found == kNoRow && i < view.Rows().ChildCount(kNoRow); ++i)
                found = view.Rows().ChildByText(view.Rows().ChildAt(kNoRow, i),
                                                KTLogDataView::kFile, part.string());
        } else {
            found = view.Rows().ChildByText(row, KTLogDataView::kFile, part.string());
        }
        if (found == kNoRow) return kNoRow;
        row = found;
    }
    return row;
}

inline void ExpandTo(KTLogDataView& view, const std::string& path) {
    std::string way;
    for (const std::filesystem::path& part : std::filesystem::path(path)) {
        way += (way.empty() ? "" : "/") + part.string();
        const KTRow row = RowOf(view, way);
        ASSERT_NE(row, kNoRow) << way;
        view.Expand(row);
        Settle();
    }
}

// A test in front of a server that shows the catalogue, and takes every backup for a protected one
// and every password for the right one.
class CatalogueTest : public WidgetTest {
protected:
    CatalogueTest() {
        desk.server.answer = [this](const BMessage& question) -> BMessage {
            if (question.what != "ktpc"_code) return catalogue(question);
            checked.push_back(question);
            BMessage reply("ktpr"_code);
            for (const std::string& name : Strings(question, "name")) {
                reply.Add("name", name);
                reply.Add(question.Has("pw") ? "result" : "protected", int32_t{1});
            }
            return reply;
        };
    }
    Catalogue catalogue;
    std::vector<BMessage> checked;  // what was asked about passwords
};

// One of these with a tool on screen.
template <class Tool>
class CatalogueToolTest : public CatalogueTest {
protected:
    CatalogueToolTest() {
        tool->resize(900, 600);
        tool->show();
        Settle();
    }
    QWidget* Subject() override { return tool.get(); }

    std::unique_ptr<Tool> tool = std::make_unique<Tool>(desk.Context());
};

}  // namespace restore_testing
