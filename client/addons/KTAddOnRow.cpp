#include "client/addons/KTAddOnRow.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

#include "client/addons/AddOnCatalogue.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTElidedLabel.h"
#include "core/protocol/Texts.h"

namespace {

constexpr int kMenuNameRole = Qt::UserRole;
constexpr int kFileNameRole = Qt::UserRole + 1;

QByteArray ToByteArray(const std::string& text) {
    return QByteArray(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

KTAddOnRow::KTAddOnRow(const Names& names, const BHandler* target, QGridLayout* grid, int row) {
    const QString label = KTControl::Text(names.label);
    fMenu = new QComboBox;
    KTControl::Name(fMenu, names.menu, label);
    fMenu->view()->setObjectName(names.popUp);
    fMenu->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    KTControl::Bind(fMenu, names.chosenCode, target);

    fButton = new QPushButton(KTControl::LabelText(core::text::kSettings) + "...");
    KTControl::Name(fButton, names.button, label + ": " + KTControl::Text(core::text::kSettings));
    KTControl::Bind(fButton, BMessage(names.settingsCode), target);

    fWords = new KTElidedLabel(names.elide);
    KTControl::Name(fWords, names.words);

    auto* caption = new QLabel(KTControl::LabelText(names.label));
    caption->setBuddy(fMenu);
    grid->addWidget(caption, row, kLabel);
    grid->addWidget(fMenu, row, kMenu);
    grid->addWidget(fButton, row, kButton);
    grid->addWidget(fWords, row, kWords);
    grid->setColumnStretch(kWords, 1);
}

void KTAddOnRow::Fill(const std::vector<AddOnName>& addOns, const std::string& currentName) {
    fMenu->clear();
    for (const AddOnName& addOn : addOns) {
        fMenu->addItem(KTControl::Shown(addOn.menuName));
        const int item = fMenu->count() - 1;
        fMenu->setItemData(item, ToByteArray(addOn.menuName), kMenuNameRole);
        fMenu->setItemData(item, ToByteArray(addOn.fileName), kFileNameRole);
    }
    fMenu->setCurrentIndex(fMenu->findData(ToByteArray(currentName), kMenuNameRole));
}

std::string KTAddOnRow::ChosenFile() const {
    return fMenu->currentData(kFileNameRole).toByteArray().toStdString();
}

void KTAddOnRow::SetChosen(const std::string& fileName) {
    fMenu->setCurrentIndex(fMenu->findData(ToByteArray(fileName), kFileNameRole));
}

void KTAddOnRow::SetWords(const char* words) {
    fWords->setText(words && *words ? KTControl::Shown(words) : QString(kNothing));
}

bool KTAddOnRow::HasWords() const {
    return fWords->text() != kNothing;
}

void KTAddOnRow::EnableSettings(bool enable) {
    fButton->setEnabled(enable);
}

QWidget* KTAddOnRow::Menu() const {
    return fMenu;
}

QWidget* KTAddOnRow::Button() const {
    return fButton;
}
