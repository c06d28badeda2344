// A job that names a destination: the add-on, and that add-on's settings. A plain value; one thread
// at a time.
#pragma once

#include <string>
#include <string_view>

#include "client/job/KTJob.h"

class KTDestinationJob : public KTJob {
public:
    using KTJob::KTJob;

    std::string Destination() const;
    void SetDestination(std::string_view addOn) { fJob.Set("addon", addOn); }
    // The settings to hand to the chosen destination: "volume" when it is that add-on's, else the
    // copy stored under the add-on's name, which becomes "volume"; else empty.
    BMessage TakeVolume();
    // The add-on's present settings as "volume", with a copy under its name. Settings that carry
    // another add-on's name are not stored; those that carry none get the chosen one's.
    void StoreVolume(BMessage settings);
    // Whether the job may write over what lies on the destination.
    virtual bool MayOverwrite() const { return false; }
};
