#include "client/backup/KTBackupTargets.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

#include "client/uikit/KTControl.h"
#include "client/uikit/KTElidedLabel.h"
#include "core/locale/KTLocale.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kNothing[] = "--";
constexpr int kMenuNameRole = Qt::UserRole;
constexpr int kFileNameRole = Qt::UserRole + 1;

QByteArray ToByteArray(const std::string& text) {
    return QByteArray(text.data(), static_cast<qsizetype>(text.size()));
}

void FillMenu(QComboBox* menu, const std::vector<AddOnName>& addOns,
              const std::string& currentName) {
    menu->clear();
    for (const AddOnName& addOn : addOns) {
        menu->addItem(KTControl::Shown(addOn.menuName));
        const int item = menu->count() - 1;
        menu->setItemData(item, ToByteArray(addOn.menuName), kMenuNameRole);
        menu->setItemData(item, ToByteArray(addOn.fileName), kFileNameRole);
    }
    menu->setCurrentIndex(menu->findData(ToByteArray(currentName), kMenuNameRole));
}

std::string ChosenFile(const QComboBox* menu) {
    return menu->currentData(kFileNameRole).toByteArray().toStdString();
}

QPushButton* SettingsButton(const char* name, const QString& of, uint32_t code,
                            const BHandler* target) {
    auto* button = new QPushButton(KTControl::LabelText(core::text::kSettings) + "...");
    KTControl::Name(button, name, of + ": " + KTControl::Text(core::text::kSettings));
    KTControl::Bind(button, BMessage(code), target);
    return button;
}

QComboBox* Menu(const char* name, const char* popUpName, const QString& spoken, uint32_t code,
                const BHandler* target) {
    auto* menu = new QComboBox;
    KTControl::Name(menu, name, spoken);
    menu->view()->setObjectName(popUpName);
    menu->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    KTControl::Bind(menu, code, target);
    return menu;
}

}  // namespace

KTBackupTargets::KTBackupTargets(KTBackupJob* job, const std::string& programFolder,
                                 QWidget* parent, const BHandler* view, QGridLayout* grid,
                                 int firstRow)
    : fJob(job),
      fView(view),
      fDestinations(programFolder),
      fPackers(programFolder),
      fDestinationWindow(parent),
      fPackerWindow(parent) {
    const QString destination = KTControl::Text(core::text::kDestination);
    const QString compression = KTControl::Text(core::text::kCompression);
    fDestinationMenu = Menu("mnu_destination", "destination", destination, "news"_code, view);
    fDestinationButton = SettingsButton("btn_destination", destination, "dset"_code, view);
    fDestinationText = new KTElidedLabel(Qt::ElideMiddle);
    KTControl::Name(fDestinationText, "str_destination");
    fPackerMenu = Menu("mnu_packer", "packer", compression, "crnw"_code, view);
    fPackerButton = SettingsButton("btn_packer", compression, "pset"_code, view);
    fPackerText = new KTElidedLabel;
    KTControl::Name(fPackerText, "str_packer");

    const auto addRow = [&](int row, const QString& label, QWidget* menu, QWidget* button,
                            QWidget* words) {
        auto* caption = new QLabel(QString(label).replace('&', "&&"));
        caption->setBuddy(menu);
        grid->addWidget(caption, row, kLabel);
        grid->addWidget(menu, row, kMenu);
        grid->addWidget(button, row, kButton);
        grid->addWidget(words, row, kWords);
    };
    addRow(firstRow, destination, fDestinationMenu, fDestinationButton, fDestinationText);
    addRow(firstRow + 1, compression, fPackerMenu, fPackerButton, fPackerText);
    grid->setColumnStretch(kWords, 1);

    BuildDestinationMenu({});
    BuildPackerMenu({});
}

KTBackupTargets::~KTBackupTargets() = default;

void KTBackupTargets::BuildDestinationMenu(const std::string& currentName) {
    FillMenu(fDestinationMenu, fDestinations.List(), currentName);
}

void KTBackupTargets::BuildPackerMenu(const std::string& currentName) {
    FillMenu(fPackerMenu, fPackers.List(), currentName);
}

void KTBackupTargets::InitDestination() {
    LoadedAddOn<KTVolume> loaded = fDestinations.Load(fJob->Destination(), &fDestination);
    fDestinationWindow.OwnerGoes(fDestination.Get());
    fDestination = std::move(loaded);
    fDestinationMenu->setCurrentIndex(
        fDestinationMenu->findData(ToByteArray(fJob->Destination()), kFileNameRole));
    fDestinationButton->setEnabled(static_cast<bool>(fDestination));
    QString words = kNothing;
    if (fDestination) {
        fDestination->SetSettings(fJob->TakeVolume());
        const char* medium = fDestination->MediaName();
        if (medium && *medium) words = KTControl::Shown(medium);
    }
    fDestinationText->setText(words);
}

void KTBackupTargets::SaveDestination() {
    const std::string chosen = ChosenFile(fDestinationMenu);
    if (!chosen.empty()) fJob->SetDestination(chosen);
    if (!fDestination) {
        fDestinationButton->setEnabled(false);
        return;
    }
    if (!fJob->IsFull() && fDestination->IsOverwrite()) fDestination->SetOverwrite(false);
    StoreVolume();
}

void KTBackupTargets::InitPacker() {
    LoadedAddOn<KTCruncher> loaded = fPackers.Load(fJob->Packer(), &fPacker);
    fPackerWindow.OwnerGoes(fPacker.Get());
    fPacker = std::move(loaded);
    fPackerMenu->setCurrentIndex(fPackerMenu->findData(ToByteArray(fJob->Packer()), kFileNameRole));
    QString words = kNothing;
    if (fPacker) {
        fPacker->SetSettings(fJob->PackerSettings());
        const char* description = fPacker->Description();
        if (description) words = KTControl::Shown(description);
    }
    fPackerButton->setEnabled(fPacker && fPacker->HasSettings());
    fPackerText->setText(words);
}

void KTBackupTargets::SavePacker() {
    const std::string chosen = ChosenFile(fPackerMenu);
    if (!chosen.empty()) fJob->SetPacker(chosen);
    if (!fPacker) {
        fPackerButton->setEnabled(false);
        return;
    }
    BMessage settings;
    if (fPacker->Archive(&settings, true) == 0) fJob->StorePacker(std::move(settings));
}

void KTBackupTargets::ShowDestinationSettings() {
    if (fDestination)
        fDestination->ShowSettings(&fDestinationWindow, BMessenger(fView),
                                   KTLocale::GetInstance()->Language());
}

void KTBackupTargets::ShowPackerSettings() {
    if (fPacker && fPacker->HasSettings())
        fPacker->ShowSettings(&fPackerWindow, BMessenger(fView),
                              KTLocale::GetInstance()->Language());
}

QWidget* KTBackupTargets::DestinationMenu() const {
    return fDestinationMenu;
}

QWidget* KTBackupTargets::DestinationButton() const {
    return fDestinationButton;
}

QWidget* KTBackupTargets::PackerMenu() const {
    return fPackerMenu;
}

QWidget* KTBackupTargets::PackerButton() const {
    return fPackerButton;
}

bool KTBackupTargets::HasMedium() const {
    return fDestinationText->text() != kNothing;
}

void KTBackupTargets::SwitchOverwriteOff() {
    if (!IsOverwrite()) return;
    fDestination->SetOverwrite(false);
    StoreVolume();
}

void KTBackupTargets::StoreVolume() {
    BMessage settings;
    fDestination->GetSettings(&settings);
    fJob->StoreVolume(std::move(settings));
}
