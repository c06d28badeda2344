#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "kit/storage/BVolume.h"
#include "kit/storage/MountList.h"

using kit::MountKind;
using kit::MountSource;
using testing::ElementsAre;

namespace {

class StandIn : public MountSource {
public:
    std::vector<Mount> Mounts() override { return list; }
    std::string Label(const Mount& mount) override { return labels[mount.source]; }
    bool IsRemovable(const Mount& mount) override { return mount.fileSystem == "vfat"; }
    std::optional<Space> SpaceOf(const Mount& mount) override {
        if (mount.fileSystem == "nfs") return std::nullopt;
        return Space{1000, 400, mount.device + 7};
    }
    std::vector<Mount> list;
    std::map<std::string, std::string> labels;
};

MountSource::Mount At(std::string point, std::string type, std::string source, uint64_t device,
                      std::string root = "/") {
    return {std::move(point), std::move(root), std::move(type), std::move(source), device, false};
}

std::vector<BVolume> VolumesOf(std::vector<MountSource::Mount> list,
                               std::map<std::string, std::string> labels = {}) {
    auto mounts = std::make_shared<StandIn>();
    mounts->list = std::move(list);
    mounts->labels = std::move(labels);
    return BVolumeRoster(mounts).Volumes();
}

std::vector<std::string> Names(const std::vector<BVolume>& volumes) {
    std::vector<std::string> names;
    for (const auto& volume : volumes)
        names.push_back(volume.name);
    return names;
}

std::vector<std::string> Points(const std::vector<BVolume>& volumes) {
    std::vector<std::string> points;
    for (const auto& volume : volumes)
        points.push_back(volume.mountPoint);
    return points;
}

}  // namespace

TEST(Volumes, Names) {
    const auto volumes =
        VolumesOf({At("/media/joe/USB", "vfat", "/dev/sdb1", 3), At("/", "ext4", "/dev/sda1", 1),
                   At("/home", "xfs", "/dev/sda2", 2), At("/mnt/a", "ext4", "/dev/sdc1", 4),
                   At("/mnt/b", "ext4", "/dev/sdc2", 5), At("/srv/home", "ext4", "/dev/sdd1", 6),
                   At("/mnt/dots", "ext4", "/dev/sde1", 8)},
                  {{"/dev/sdb1", "Holiday/2024"},
                   {"/dev/sdc1", "Data"},
                   {"/dev/sdc2", "Data"},
                   {"/dev/sde1", ".."}});
    EXPECT_THAT(Names(volumes), ElementsAre("System", "Data", "Data (2)", "Holiday_2024", "_..",
                                            "home", "home (2)"));
    EXPECT_THAT(Points(volumes), ElementsAre("/", "/mnt/a", "/mnt/b", "/media/joe/USB", "/mnt/dots",
                                             "/home", "/srv/home"));
    EXPECT_TRUE(volumes[0].isBoot);
    EXPECT_TRUE(volumes[3].removable);
    EXPECT_EQ(volumes[5].device, 9U) << "stat's number, where it answered";
    EXPECT_EQ(volumes[5].capacity, 1000);
    EXPECT_EQ(volumes[5].freeBytes, 400);
    EXPECT_THAT(Names(VolumesOf({At("/", "ext4", "/dev/sda1", 1)}, {{"/dev/sda1", "Root"}})),
                ElementsAre("Root"));
}

TEST(Volumes, WhichMountsAreVolumes) {
    const auto volumes = VolumesOf(
        {At("/", "overlay", "overlay", 1), At("/proc", "proc", "proc", 2),
         At("/sys/fs/cgroup", "tmpfs", "tmpfs", 3), At("/run", "tmpfs", "tmpfs", 4),
         At("/snap/x", "squashfs", "/dev/loop1", 5),
         At("/var/lib/c/merged", "overlay", "overlay", 6),
         At("/run/user/1/doc", "fuse.portal", "portal", 7), At("/net", "nfs", "host:/x", 8),
         At("/far", "fuse.sshfs", "host:", 9), At("/vol", "zfs", "tank/vol", 10),
         At("/etc/unlisted", "minix", "/dev/sdx1", 11)});
    EXPECT_THAT(Points(volumes), ElementsAre("/", "/far", "/run", "/etc/unlisted", "/vol"));
    EXPECT_TRUE(volumes[0].persistent) << "the root one always";
    EXPECT_TRUE(volumes[1].persistent);
    EXPECT_FALSE(volumes[2].persistent);
    EXPECT_TRUE(volumes[3].persistent);

    EXPECT_THAT(Names(VolumesOf({At("/", "nfs", "host:/root", 1)})), ElementsAre("System"))
        << "the root volume is there even when it does not answer";
}

TEST(Volumes, BindMountsOnce) {
    EXPECT_THAT(
        Points(VolumesOf({At("/srv/again", "ext4", "/dev/sda1", 1), At("/", "ext4", "/dev/sda1", 1),
                          At("/mnt/part", "ext4", "/dev/sda1", 1, "/home"),
                          At("/mnt/disk", "ext4", "/dev/sdb1", 2),
                          At("/a/shorter", "ext4", "/dev/sdb1", 2, "/sub")})),
        ElementsAre("/", "/mnt/disk"));
    // Two folders of a file system that is mounted nowhere as a whole.
    EXPECT_THAT(Points(VolumesOf({At("/", "overlay", "overlay", 1),
                                  At("/data", "ext4", "/dev/sda1", 2, "/host/data"),
                                  At("/work", "ext4", "/dev/sda1", 2, "/host/work")})),
                ElementsAre("/", "/data", "/work"));
    // Subvolumes are file systems of their own.
    EXPECT_THAT(Points(VolumesOf({At("/", "btrfs", "/dev/sda1", 1, "/@"),
                                  At("/home", "btrfs", "/dev/sda1", 1, "/@home"),
                                  At("/mnt/home", "btrfs", "/dev/sda1", 1, "/@home")})),
                ElementsAre("/", "/home"));
}

TEST(Volumes, PathsOfRulesAndOfTheDisk) {
    const auto volumes =
        VolumesOf({At("/", "ext4", "/dev/sda1", 1), At("/home", "ext4", "/dev/sda2", 2),
                   At("/home/joe/disk", "ext4", "/dev/sdb1", 3)});
    const auto toDisk = [&volumes](const char* path) {
        return BVolumeRoster::ToDisk(volumes, path);
    };
    EXPECT_EQ(toDisk("/System"), "/");
    EXPECT_EQ(toDisk("/System/etc/\xff"), "/etc/\xff");
    EXPECT_EQ(toDisk("/home"), "/home");
    EXPECT_EQ(toDisk("/disk/a/b"), "/home/joe/disk/a/b");
    EXPECT_EQ(toDisk("/gone/a"), std::nullopt);
    EXPECT_EQ(toDisk("/"), std::nullopt);
    EXPECT_EQ(toDisk("System/a"), std::nullopt);

    const auto fromDisk = [&volumes](const char* path) {
        return BVolumeRoster::FromDisk(volumes, path);
    };
    EXPECT_EQ(fromDisk("/"), "/System");
    EXPECT_EQ(fromDisk("/homes/x"), "/System/homes/x");
    EXPECT_EQ(fromDisk("/home"), "/home");
    EXPECT_EQ(fromDisk("/home/joe"), "/home/joe");
    EXPECT_EQ(fromDisk("/home/joe/disk/a"), "/disk/a");
    EXPECT_EQ(fromDisk("relative"), std::nullopt);
    EXPECT_EQ(BVolumeRoster::FromDisk({}, "/x"), std::nullopt);
    EXPECT_EQ(BVolumeRoster::ByName(volumes, "system"), nullptr);
}

TEST(Volumes, ThoseOfThisMachine) {
    const auto volumes = BVolumeRoster().Volumes();
    ASSERT_FALSE(volumes.empty());
    const BVolume& root = volumes.front();
    struct stat status {};
    ASSERT_EQ(::stat("/", &status), 0);
    EXPECT_TRUE(root.isBoot && root.persistent);
    EXPECT_EQ(root.mountPoint, "/");
    EXPECT_EQ(root.device, status.st_dev);
    EXPECT_GT(root.capacity, 0);
    EXPECT_FALSE(root.name.empty());
    for (const auto& volume : volumes) {
        EXPECT_FALSE(volume.mountPoint.starts_with("/proc")) << volume.mountPoint;
        EXPECT_EQ(BVolumeRoster::ToDisk(volumes, "/" + volume.name + "/x"),
                  (volume.isBoot ? "" : volume.mountPoint) + "/x");
    }
}
