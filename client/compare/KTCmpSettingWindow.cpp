#include "client/compare/KTCmpSettingWindow.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QLabel>

#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kAllSwitched = "cmal"_code;
constexpr char kAll[] = "compareall";

struct Item {
    const char* key;
    int32_t label;
};
constexpr Item kItems[] = {
    {kAll, core::text::kCompareAll},
    {"filedata", core::text::kCompareFileData},
    {"attribute", core::text::kCompareAttribute},
    {"size", core::text::kCompareFileSize},
    {"mdate", core::text::kCompareModified},
    {"cdate", core::text::kCompareCreated},
    {"symlinkdata", core::text::kCompareSymlink},
    {"permissions", core::text::kComparePermissions},
    {"uid", core::text::kCompareUser},
    {"gid", core::text::kCompareGroup},
};

}  // namespace

KTCmpSettingWindow::KTCmpSettingWindow(const QString& title, QWidget* parentWindow,
                                       const BMessage& settings, uint32_t replyCode,
                                       BMessenger target)
    : KTSetWindow(title, parentWindow, settings, replyCode, target) {
    auto* heading = new QLabel(KTControl::Text(core::text::kSelectCompareItems));
    KTControl::Name(heading, "str_compareitems");
    auto* layout = new QVBoxLayout(BkgView());
    layout->addWidget(heading);
    // Without any settings everything is compared, and the dialog says so.
    const bool isNew = !settings.Has(kAll);
    for (const Item& item : kItems) {
        const bool isAll = fItems.empty();
        fItems.push_back(AddFlag(layout, item.key, item.key, item.label,
                                 IsSet(item.key) || (isNew && isAll), isAll ? kAllSwitched : 0));
    }
    layout->addStretch(1);
    AllSwitched();
}

void KTCmpSettingWindow::MessageReceived(BMessage& message) {
    if (message.what == kAllSwitched)
        AllSwitched();
    else
        KTSetWindow::MessageReceived(message);
}

void KTCmpSettingWindow::AllSwitched() {
    for (QCheckBox* box : fItems)
        if (box != fItems.front()) box->setEnabled(!fItems.front()->isChecked());
}

void KTCmpSettingWindow::Save(BMessage& settings) {
    if (!Result()) return;
    SaveFlags(settings);
}
