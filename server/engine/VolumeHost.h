// A job as its destination sees it.
#pragma once

#include "addons/KTVolume.h"
#include "server/engine/JobReport.h"

namespace server {

class VolumeHost : public KTVolumeHost {
public:
    VolumeHost(JobReport& report, const JobControl& control) : fReport(report), fControl(control) {}
    bool IsAborted() const override { return fControl.IsAborted(); }
    void Tell(const std::string& words) override { fReport.Words(core::LineType::Heading, words); }

private:
    JobReport& fReport;
    const JobControl& fControl;
};

}  // namespace server
