#include "server/engine/SourceScan.h"

#include <dirent.h>
#include <fcntl.h>

namespace server {

namespace {

class Counter : public TreeVisitor {
public:
    Counter(JobReport& report, JobControl& control, const std::atomic<bool>& end)
        : fReport(report), fControl(control), fEnd(end) {}

    bool MayGoOn() override { return !fEnd && fControl.MayGoOn(); }
    void Enter(const WalkNode&, int64_t, int, int) override {}
    void Entry(const WalkNode& node) override {
        struct stat info;
        const bool file = (node.type == DT_REG || node.type == DT_UNKNOWN) &&
                          ::fstatat(node.parent, node.name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                          S_ISREG(info.st_mode);
        fReport.AddTotals(1, file ? info.st_size : 0);
    }
    std::optional<int64_t> SubDirectory(const WalkNode&) override { return 0; }
    void EndOfEntries(int64_t) override {}
    void Unreadable(std::string_view, int) override {}
    void OtherMount(std::string_view) override {}
    void LeftOut(std::string_view, const OwnFiles&) override {}

private:
    JobReport& fReport;
    JobControl& fControl;
    const std::atomic<bool>& fEnd;
};

}  // namespace

SourceScan::SourceScan(const core::SelectionMatcher& matcher, const std::vector<OwnFiles>& own,
                       const std::vector<BVolume>& volumes, JobReport& report, JobControl& control)
    : fThread([&matcher, &own, &volumes, &report, &control, this] {
          Counter counter(report, control, fEnd);
          TreeWalk walk(matcher, own, TreeWalk::Order::AsFound);
          for (const BVolume& volume : volumes) {
              if (!walk.Run(volume.name, volume.mountPoint, 0, counter)) return;
          }
      }) {}

SourceScan::~SourceScan() {
    fEnd = true;
    Wait();
}

void SourceScan::Wait() {
    if (fThread.joinable()) fThread.join();
}

}  // namespace server
