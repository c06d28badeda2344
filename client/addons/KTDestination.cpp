#include "client/addons/KTDestination.h"

#include "core/locale/KTLocale.h"
#include "core/protocol/Texts.h"

KTDestination::KTDestination(KTDestinationJob* job, const std::string& programFolder,
                             QWidget* parent, const BHandler* target, QGridLayout* grid, int row)
    : fJob(job),
      fTarget(target),
      fDestinations(programFolder),
      fWindow(parent),
      fRow({"mnu_destination", "destination", "btn_destination", "str_destination",
            core::text::kDestination, "news"_code, "dset"_code, Qt::ElideMiddle},
           target, grid, row) {
    BuildDestinationMenu({});
}

void KTDestination::BuildDestinationMenu(const std::string& currentName) {
    fRow.Fill(fDestinations.List(), currentName);
}

void KTDestination::InitDestination() {
    LoadedAddOn<KTVolume> loaded = fDestinations.Load(fJob->Destination(), &fDestination);
    fWindow.OwnerGoes(fDestination.Get());
    fDestination = std::move(loaded);
    fRow.SetChosen(fJob->Destination());
    fRow.EnableSettings(static_cast<bool>(fDestination));
    if (fDestination) fDestination->SetSettings(fJob->TakeVolume());
    fRow.SetWords(fDestination ? fDestination->MediaName() : nullptr);
}

void KTDestination::SaveDestination() {
    const std::string chosen = fRow.ChosenFile();
    if (!chosen.empty()) fJob->SetDestination(chosen);
    if (!fDestination) return fRow.EnableSettings(false);
    if (!fJob->MayOverwrite() && fDestination->IsOverwrite()) fDestination->SetOverwrite(false);
    StoreVolume();
}

void KTDestination::ShowDestinationSettings() {
    if (fDestination)
        fDestination->ShowSettings(&fWindow, BMessenger(fTarget),
                                   KTLocale::GetInstance()->Language());
}

void KTDestination::SwitchOverwriteOff() {
    if (!IsOverwrite()) return;
    fDestination->SetOverwrite(false);
    StoreVolume();
}

void KTDestination::StoreVolume() {
    BMessage settings;
    fDestination->GetSettings(&settings);
    fJob->StoreVolume(std::move(settings));
}
