// KTBackupTargets: the destination and compressor controls of the backup tools, with the add-on
// objects they show. What the controls say is kept in the tool's job; the tool calls Init... when
// the job changed and Save... when the user did. Main thread.
//
// Menus, buttons and the texts beside them ("mnu_destination", "btn_destination",
// "str_destination", "mnu_packer", "btn_packer", "str_packer") lie in a grid that the tool may add
// rows to.
#pragma once

#include "client/backup/AddOnCatalogue.h"
#include "client/backup/KTAddOnSettings.h"
#include "client/backup/KTBackupJob.h"
#include "kit/app/BHandler.h"

class KTElidedLabel;
class QComboBox;
class QGridLayout;
class QPushButton;
class QWidget;

class KTBackupTargets {
public:
    static constexpr int kRows = 2;  // that it takes in the grid, from row `firstRow` on
    enum Column { kLabel, kMenu, kButton, kWords };

    // `view` gets 'news', 'dset', 'crnw', 'pset'; it and `job` outlive this.
    KTBackupTargets(KTBackupJob* job, const std::string& programFolder, QWidget* parent,
                    const BHandler* view, QGridLayout* grid, int firstRow);
    ~KTBackupTargets();

    void BuildDestinationMenu(const std::string& currentName);
    void BuildPackerMenu(const std::string& currentName);
    void InitDestination();
    void SaveDestination();
    void InitPacker();
    void SavePacker();
    void ShowDestinationSettings();
    void ShowPackerSettings();

    KTVolume* Destination() const { return fDestination.Get(); }  // null when none is loaded
    KTCruncher* Packer() const { return fPacker.Get(); }
    QWidget* DestinationMenu() const;
    QWidget* DestinationButton() const;
    QWidget* PackerMenu() const;
    QWidget* PackerButton() const;
    // A destination is loaded and says where it writes.
    bool HasMedium() const;
    bool IsOverwrite() const { return fDestination && fDestination->IsOverwrite(); }
    // An incremental or differential backup never overwrites, and a "No" must reach the job at
    // once.
    void SwitchOverwriteOff();

private:
    void StoreVolume();

    KTBackupJob* fJob;
    const BHandler* fView;
    AddOnCatalogue<KTVolume> fDestinations;
    AddOnCatalogue<KTCruncher> fPackers;
    LoadedAddOn<KTVolume> fDestination;
    LoadedAddOn<KTCruncher> fPacker;
    KTAddOnSettings fDestinationWindow;  // closed before the objects go
    KTAddOnSettings fPackerWindow;

    QComboBox* fDestinationMenu;
    QPushButton* fDestinationButton;
    KTElidedLabel* fDestinationText;
    QComboBox* fPackerMenu;
    QPushButton* fPackerButton;
    KTElidedLabel* fPackerText;
};
