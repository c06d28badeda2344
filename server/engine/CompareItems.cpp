#include "server/engine/CompareItems.h"

#include "core/protocol/Texts.h"

namespace server {

namespace text = core::text;

namespace {

struct Item {
    const char* key;
    int32_t label;
    bool CompareItems::*member;
};
constexpr Item kItems[] = {
    {"filedata", text::kCompareFileData, &CompareItems::data},
    {"attribute", text::kCompareAttribute, &CompareItems::attributes},
    {"size", text::kCompareFileSize, &CompareItems::size},
    {"mdate", text::kCompareModified, &CompareItems::modified},
    {"cdate", text::kCompareCreated, &CompareItems::created},
    {"symlinkdata", text::kCompareSymlink, &CompareItems::link},
    {"permissions", text::kComparePermissions, &CompareItems::rights},
    {"uid", text::kCompareUser, &CompareItems::user},
    {"gid", text::kCompareGroup, &CompareItems::group},
};

}  // namespace

CompareItems CompareItems::Of(const BMessage& job) {
    CompareItems items;
    const auto settings = job.Find<BMessage>("compare");
    items.all = !settings || settings->Get<int32_t>("compareall", 0) != 0;
    for (const Item& item : kItems)
        items.*item.member = items.all || settings->Get<int32_t>(item.key, 0) != 0;
    return items;
}

void CompareItems::Tell(JobReport& report) const {
    report.Line(core::LineType::Heading, text::kSelectedCompareItems);
    if (all) {
        report.Line(core::LineType::Heading, text::kCompareAll);
        return;
    }
    for (const Item& item : kItems) {
        if (this->*item.member) report.Line(core::LineType::Heading, item.label);
    }
}

}  // namespace server
