#include "client/jobqueue/KTJobSettingWindow.h"

#include <QBoxLayout>
#include <QGroupBox>
#include <algorithm>

#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace {

struct Choice {
    KTJobListView::Column column;
    const char* key;
    int32_t label;
};
constexpr Choice kChoices[] = {{KTJobListView::kStatus, "jqshowstatus", core::text::kStatus},
                               {KTJobListView::kType, "jqshowtype", core::text::kType},
                               {KTJobListView::kDate, "jqshowdate", core::text::kDate},
                               {KTJobListView::kId, "jqshowid", core::text::kId}};

}  // namespace

KTJobSettingWindow::KTJobSettingWindow(const QString& title, QWidget* parentWindow,
                                       const BMessage& settings, uint32_t replyCode,
                                       BMessenger target)
    : KTSetWindow(title, parentWindow, settings, replyCode, target) {
    auto* group = new QGroupBox(KTControl::LabelText(core::kMoreColumnsShown));
    KTControl::Name(group, "grp_columns");
    auto* boxes = new QVBoxLayout(group);
    for (const Choice& choice : kChoices)
        AddFlag(boxes, choice.key, choice.key, choice.label, Shows(settings, choice.column));
    auto* layout = new QVBoxLayout(BkgView());
    layout->addWidget(group);
    layout->addStretch(1);
}

bool KTJobSettingWindow::Shows(const BMessage& settings, KTJobListView::Column column) {
    const auto choice = std::ranges::find(kChoices, column, &Choice::column);
    return choice == std::end(kChoices) || settings.Get<int32_t>(choice->key, 1) != 0;
}

void KTJobSettingWindow::Save(BMessage& settings) {
    SaveFlags(settings);
}
