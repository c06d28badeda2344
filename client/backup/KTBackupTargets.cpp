#include "client/backup/KTBackupTargets.h"

#include "core/locale/KTLocale.h"
#include "core/protocol/Texts.h"

KTBackupTargets::KTBackupTargets(KTBackupJob* job, const std::string& programFolder,
                                 QWidget* parent, const BHandler* view, QGridLayout* grid,
                                 int firstRow)
    : KTDestination(job, programFolder, parent, view, grid, firstRow),
      fJob(job),
      fView(view),
      fPackers(programFolder),
      fWindow(parent),
      fRow({"mnu_packer", "packer", "btn_packer", "str_packer", core::text::kCompression,
            "crnw"_code, "pset"_code},
           view, grid, firstRow + 1) {
    BuildPackerMenu({});
}

void KTBackupTargets::BuildPackerMenu(const std::string& currentName) {
    fRow.Fill(fPackers.List(), currentName);
}

void KTBackupTargets::InitPacker() {
    LoadedAddOn<KTCruncher> loaded = fPackers.Load(fJob->Packer(), &fPacker);
    fWindow.OwnerGoes(fPacker.Get());
    fPacker = std::move(loaded);
    fRow.SetChosen(fJob->Packer());
    if (fPacker) fPacker->SetSettings(fJob->PackerSettings());
    fRow.EnableSettings(fPacker && fPacker->HasSettings());
    fRow.SetWords(fPacker ? fPacker->Description() : nullptr);
}

void KTBackupTargets::SavePacker() {
    const std::string chosen = fRow.ChosenFile();
    if (!chosen.empty()) fJob->SetPacker(chosen);
    if (!fPacker) return fRow.EnableSettings(false);
    BMessage settings;
    if (fPacker->Archive(&settings, true) == 0) fJob->StorePacker(std::move(settings));
}

void KTBackupTargets::ShowPackerSettings() {
    if (fPacker && fPacker->HasSettings())
        fPacker->ShowSettings(&fWindow, BMessenger(fView), KTLocale::GetInstance()->Language());
}
