#include "client/mainwindow/KTLanguageMenu.h"

#include <QActionGroup>

#include "client/app/ClientCodes.h"
#include "client/app/Languages.h"
#include "client/uikit/KTControl.h"
#include "core/locale/KTLocale.h"

namespace {

// The label's bytes; the shown text may have its "&" doubled.
std::string LabelOf(const QAction* item) {
    return item->data().toByteArray().toStdString();
}

void SetLabel(QAction* item, const std::string& label) {
    item->setData(QByteArray::fromStdString(label));
    item->setText(KTControl::Shown(label).replace('&', "&&"));
    item->setObjectName("lang_" + KTControl::Shown(label));
}

}  // namespace

KTLanguageMenu::KTLanguageMenu(const QString& title, const BHandler* target, QWidget* parent)
    : QMenu(title, parent), fTarget(target), fGroup(new QActionGroup(this)) {
    fGroup->setExclusionPolicy(QActionGroup::ExclusionPolicy::ExclusiveOptional);
}

void KTLanguageMenu::BuildLanguageMenu(const std::vector<std::string>& folders,
                                       const std::string& current) {
    clear();
    InsertLanguageItem(CreateLanguageItem(client::kDefaultLanguage));
    for (const std::string& folder : folders) {
        for (const std::string& language : KTLocale::LanguagesIn(folder)) {
            if (!language.empty()) InsertLanguageItem(CreateLanguageItem(language));
        }
    }
    UpdateLocaleMenu(current);
}

void KTLanguageMenu::UpdateLocaleMenu(const std::string& current) {
    for (QAction* item : actions())
        item->setChecked(LabelOf(item) == current);
}

QAction* KTLanguageMenu::CreateLanguageItem(const std::string& language) {
    BMessage chosen(client::code::kLanguage);
    chosen.Add("language", language);
    QAction* item = KTControl::MakeAction(this, QString(), chosen, fTarget);
    SetLabel(item, language);
    item->setCheckable(true);
    fGroup->addAction(item);
    return item;
}

void KTLanguageMenu::InsertLanguageItem(QAction* item) {
    const std::string label = LabelOf(item);
    QAction* before = nullptr;
    const QList<QAction*> items = actions();
    for (qsizetype i = 0; i < items.size() && !before; ++i) {
        const std::string other = LabelOf(items[i]);
        if (other > label) before = items[i];
        if (other != label) continue;
        SetLabel(item, label + "(2)");
        if (i + 1 < items.size()) before = items[i + 1];
        break;
    }
    insertAction(before, item);
}
