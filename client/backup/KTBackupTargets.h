// KTBackupTargets: the destination and compressor controls of the backup tools, with the add-on
// objects they show. What the controls say is kept in the tool's job; the tool calls Init... when
// the job changed and Save... when the user did. Main thread.
//
// The controls of the compressor ("mnu_packer", "btn_packer", "str_packer") lie below those of the
// destination, in a grid that the tool may add rows to.
#pragma once

#include "client/addons/KTDestination.h"
#include "client/backup/KTBackupJob.h"

class KTBackupTargets : public KTDestination {
public:
    static constexpr int kRows = 2;  // that it takes in the grid, from row `firstRow` on
    using enum KTAddOnRow::Column;

    // `view` gets 'news', 'dset', 'crnw', 'pset'; it and `job` outlive this.
    KTBackupTargets(KTBackupJob* job, const std::string& programFolder, QWidget* parent,
                    const BHandler* view, QGridLayout* grid, int firstRow);

    void BuildPackerMenu(const std::string& currentName);
    void InitPacker();
    void SavePacker();
    void ShowPackerSettings();

    KTCruncher* Packer() const { return fPacker.Get(); }  // null when none is loaded
    QWidget* PackerMenu() const { return fRow.Menu(); }
    QWidget* PackerButton() const { return fRow.Button(); }

private:
    KTBackupJob* fJob;
    const BHandler* fView;
    AddOnCatalogue<KTCruncher> fPackers;
    LoadedAddOn<KTCruncher> fPacker;
    KTAddOnSettings fWindow;  // closed before the object goes
    KTAddOnRow fRow;
};
