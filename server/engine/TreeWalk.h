// Walks the selected part of one volume. Within a directory all entries are told first, then the
// directories among them are walked one after another: so the children of a directory come
// together, and a directory comes right before what is in it.
//
// Never crosses into another mount, follows no links, holds few descriptors however deep the tree
// is, and knows no limit on the length of a path. Only the names of directories on the present way
// are kept.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/selection/KTSelection.h"
#include "kit/support/Result.h"
#include "kit/support/UniqueFd.h"

namespace server {

// Entries of a directory that belong to the backup's own machinery (its destination, its
// catalogue): they change while it runs and are left out.
struct OwnFiles {
    uint64_t device = 0, node = 0;  // of the directory
    std::string words;              // that say in the report what was left out and why
    std::function<bool(std::string_view name)> covers;
};

struct WalkNode {
    int parent = -1;         // open directory that holds it; -1 for the volume's root
    const char* name = "";   // in the parent
    unsigned char type = 0;  // as the directory tells it (DT_REG …), which may be DT_UNKNOWN
    std::string_view path;   // "/Volume/path", valid during the call
    bool included = false;   // false: a directory that is only on the way to something included
    const struct stat* info = nullptr;  // of directories; null for others
};

class TreeVisitor {
public:
    virtual ~TreeVisitor() = default;

    // Asked before everything else that may take long: false ends the walk.
    virtual bool MayGoOn() = 0;
    // A directory was opened as `fd` (-1: `code` says why not, and nothing in it will come); its
    // entries come next. `tag` is what SubDirectory, or for the volume's root the caller of Run,
    // gave it.
    virtual void Enter(const WalkNode& node, int64_t tag, int fd, int code) = 0;
    // An entry that was no directory when the directory was read.
    virtual void Entry(const WalkNode& node) = 0;
    // A directory among the entries; its turn comes later, with this tag. Nothing: leave it out.
    virtual std::optional<int64_t> SubDirectory(const WalkNode& node) = 0;
    // All entries of the directory were told.
    virtual void EndOfEntries(int64_t tag) = 0;

    // What is not in the walk, and why. `code` is an errno.
    virtual void Unreadable(std::string_view path, int code) = 0;
    virtual void OtherMount(std::string_view path) = 0;
    virtual void LeftOut(std::string_view directory, const OwnFiles& own) = 0;
};

class TreeWalk {
public:
    enum class Order {
        Sorted,
        AsFound
    };  // by the bytes of the names; as the file system gives them

    TreeWalk(const core::SelectionMatcher& matcher, const std::vector<OwnFiles>& own, Order order);

    // False when the visitor ended it.
    bool Run(const std::string& volume, const std::string& mountPoint, int64_t tag,
             TreeVisitor& visitor);

private:
    struct Level {
        kit::UniqueFd fd;
        uint64_t device = 0, node = 0;
        size_t pathLength = 0;  // of fPath up to this directory
        int64_t tag = 0;
        bool uniform = false;  // everything below gets the answer of `included`
        bool included = false;
        const OwnFiles* own = nullptr;
        std::vector<char> subs;  // directories to come: tag, included, name, NUL
        size_t nextSub = 0;
    };

    bool ReadEntries(Level& level, TreeVisitor& visitor);
    void Told(Level& level, const char* name, unsigned char type, TreeVisitor& visitor);
    void ToldDirectory(Level& level, const WalkNode& node, TreeVisitor& visitor);
    bool EnterSub(TreeVisitor& visitor);
    bool Push(const WalkNode& node, int64_t tag, int fd, bool uniform, TreeVisitor& visitor);
    bool Reopen();
    void CloseFarLevels();
    uint64_t MountOf(int fd, const char* name, struct stat* info) const;

    const core::SelectionMatcher& fMatcher;
    const std::vector<OwnFiles>& fOwn;
    Order fOrder;
    uint64_t fMount = 0;
    std::string fPath;
    std::vector<Level> fLevels;
    std::vector<char> fBlock;       // what the kernel tells of a directory at a time
    std::vector<char> fNames;       // of the directory being read: type, name, NUL
    std::vector<uint32_t> fSorted;  // where they begin
};

// Opens for reading without leaving a trace in the access time, where that is allowed.
int OpenForReading(int parent, const char* name, int flags);

}  // namespace server
