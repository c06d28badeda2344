// KTDestination: the controls that choose a destination ("mnu_destination", "btn_destination",
// "str_destination"), with the add-on object they show. What they say is kept in a job; its owner
// calls InitDestination when the job changed and SaveDestination when the user did. Main thread.
#pragma once

#include "client/addons/AddOnCatalogue.h"
#include "client/addons/KTAddOnRow.h"
#include "client/addons/KTAddOnSettings.h"
#include "client/addons/KTDestinationJob.h"
#include "kit/app/BHandler.h"

class KTDestination {
public:
    // `target` gets 'news' and 'dset'; it and `job` outlive this. The controls lie in row `row` of
    // the grid.
    KTDestination(KTDestinationJob* job, const std::string& programFolder, QWidget* parent,
                  const BHandler* target, QGridLayout* grid, int row);

    void BuildDestinationMenu(const std::string& currentName);
    void InitDestination();
    void SaveDestination();
    void ShowDestinationSettings();

    KTVolume* Destination() const { return fDestination.Get(); }  // null when none is loaded
    QWidget* DestinationMenu() const { return fRow.Menu(); }
    QWidget* DestinationButton() const { return fRow.Button(); }
    // A destination is loaded and says where it writes.
    bool HasMedium() const { return fRow.HasWords(); }
    bool IsOverwrite() const { return fDestination && fDestination->IsOverwrite(); }
    // What may not overwrite never does, and a "No" must reach the job at once.
    void SwitchOverwriteOff();

private:
    void StoreVolume();

    KTDestinationJob* fJob;
    const BHandler* fTarget;
    AddOnCatalogue<KTVolume> fDestinations;
    LoadedAddOn<KTVolume> fDestination;
    KTAddOnSettings fWindow;  // closed before the object goes
    KTAddOnRow fRow;
};
