#include "server/catalogue/NameIndex.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "kit/message/Types.h"
#include "kit/storage/FileIo.h"
#include "server/catalogue/CatalogueReader.h"

namespace server {

namespace {

using kit::Error;
using kit::ErrorKind;
using kit::Status;

constexpr std::array<uint8_t, 8> kMagic{'K', 'T', 'N', 'A', 'M', 'E', 'S', '1'};
constexpr size_t kHeader = 24;
constexpr size_t kDirectoryRow = 8;
constexpr size_t kBlock = size_t{1} << 20;
constexpr size_t kLongestName = 4096;  // no file system has longer ones

void Put32(uint8_t* at, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t Get32(const uint8_t* at) {
    return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
           static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
}

char FoldedCharacter(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// All of `size` bytes.
bool ReadAt(int fd, uint8_t* into, size_t size, int64_t offset) {
    while (size > 0) {
        const ssize_t got = ::pread(fd, into, size, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        into += got;
        offset += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

// A file that gets its name when it is whole.
class NewFile {
public:
    explicit NewFile(const std::string& path)
        : fPath(path),
          fNew(path + ".new"),
          fFile(::open(fNew.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
        if (!fFile.IsOpen()) fStatus = Error::FromErrno(errno, fNew, "create");
        fBlock.reserve(kBlock + kLongestName);
    }
    ~NewFile() {
        if (!fDone) ::unlink(fNew.c_str());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    Bytes& Block() { return fBlock; }
    const Status& Result() const { return fStatus; }
    int64_t Size() const { return fWritten + static_cast<int64_t>(fBlock.size()); }
    void WriteFullBlock() {
        if (fBlock.size() >= kBlock) WriteOut();
    }
    Status Finish(std::span<const uint8_t> header) {
        WriteOut();
        if (fStatus && ::pwrite(fFile.Get(), header.data(), header.size(), 0) !=
                           static_cast<ssize_t>(header.size())) {
            fStatus = Error::FromErrno(errno, fNew, "write");
        }
        if (fStatus && ::fsync(fFile.Get()) != 0) fStatus = Error::FromErrno(errno, fNew, "sync");
        if (fStatus && ::rename(fNew.c_str(), fPath.c_str()) != 0) {
            fStatus = Error::FromErrno(errno, fNew, "rename");
        }
        fDone = fStatus.ok();
        return fStatus;
    }

private:
    void WriteOut() {
        if (fStatus) fStatus = kit::WriteAll(fFile.Get(), fBlock, fNew);
        fWritten += static_cast<int64_t>(fBlock.size());
        fBlock.clear();
    }

    const std::string fPath, fNew;
    kit::UniqueFd fFile;
    Bytes fBlock;
    int64_t fWritten = 0;
    bool fDone = false;
    Status fStatus;
};

}  // namespace

std::string NameIndex::Folded(std::string_view name) {
    std::string folded(name);
    std::transform(folded.begin(), folded.end(), folded.begin(), FoldedCharacter);
    return folded;
}

Status NameIndex::Build(const std::string& catalogue, const std::string& path) {
    auto reader = CatalogueReader::Open(catalogue);
    if (!reader) return reader.error();
    const auto damaged = [&](const char* what) {
        return Error::Make(ErrorKind::Damaged, catalogue, what);
    };
    NewFile file(path);
    file.Block().resize(kHeader);
    uint32_t entries = 0, directories = 0;
    Statement names = reader->File().Prepare("SELECT id, name FROM entries ORDER BY id");
    while (file.Result() && names.Next()) {
        if (names.Integer(0) != ++entries) return damaged("numbers of entries");
        const auto name = names.Blob(1);
        if (name.size() > kLongestName || std::count(name.begin(), name.end(), 0) > 0) {
            return damaged("a name");
        }
        for (const uint8_t byte : name)
            file.Block().push_back(static_cast<uint8_t>(FoldedCharacter(static_cast<char>(byte))));
        file.Block().push_back(0);
        file.WriteFullBlock();
    }
    if (auto read = names.Result(); !read) return read;
    const int64_t nameBytes = file.Size() - static_cast<int64_t>(kHeader);
    Statement rows =
        reader->File().Prepare("SELECT first, id FROM directories WHERE count > 0 ORDER BY first");
    while (file.Result() && rows.Next()) {
        const int64_t first = rows.Integer(0), id = rows.Integer(1);
        if (first <= id || id < 0 || first > entries) return damaged("directories");
        std::array<uint8_t, kDirectoryRow> row;
        Put32(row.data(), static_cast<uint32_t>(first));
        Put32(row.data() + 4, static_cast<uint32_t>(id));
        file.Block().insert(file.Block().end(), row.begin(), row.end());
        ++directories;
        file.WriteFullBlock();
    }
    if (auto read = rows.Result(); !read) return read;
    std::array<uint8_t, kHeader> header;
    std::copy(kMagic.begin(), kMagic.end(), header.begin());
    Put32(&header[8], entries);
    Put32(&header[12], directories);
    Put32(&header[16], static_cast<uint32_t>(nameBytes));
    Put32(&header[20], static_cast<uint32_t>(static_cast<uint64_t>(nameBytes) >> 32));
    return file.Finish(header);
}

kit::Result<NameIndex> NameIndex::Open(const std::string& path) {
    NameIndex index;
    index.fPath = path;
    index.fFile = kit::UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!index.fFile.IsOpen()) return Error::FromErrno(errno, path, "open");
    std::array<uint8_t, kHeader> header;
    struct stat status {};
    if (!ReadAt(index.fFile.Get(), header.data(), header.size(), 0) ||
        !std::equal(kMagic.begin(), kMagic.end(), header.begin()) ||
        ::fstat(index.fFile.Get(), &status) != 0) {
        return index.Damaged();
    }
    index.fEntries = Get32(&header[8]);
    index.fDirectories = Get32(&header[12]);
    const uint64_t names = Get32(&header[16]) | static_cast<uint64_t>(Get32(&header[20])) << 32;
    const uint64_t rows = uint64_t{index.fDirectories} * kDirectoryRow;
    // Cut short by a crash, or not ours.
    if (names > INT64_MAX / 2 || index.fEntries > INT32_MAX ||
        static_cast<uint64_t>(status.st_size) != kHeader + names + rows) {
        return index.Damaged();
    }
    index.fNames = static_cast<int64_t>(names);
    return index;
}

Error NameIndex::Damaged() const {
    return Error::Make(ErrorKind::Damaged, fPath, "index of names");
}

Status NameIndex::Find(std::string_view folded,
                       const std::function<bool(int32_t id)>& visit) const {
    if (folded.empty() || folded.find('\0') != std::string_view::npos) return {};
    Bytes block(kBlock);
    uint32_t id = 1;  // whose name is at `at`
    for (int64_t done = 0; done < fNames;) {
        const auto size = static_cast<size_t>(
            std::min<int64_t>(static_cast<int64_t>(block.size()), fNames - done));
        if (!ReadAt(fFile.Get(), block.data(), size, static_cast<int64_t>(kHeader) + done)) {
            return Damaged();
        }
        // Whole names only; what is cut comes with the next block.
        const auto* last = static_cast<const uint8_t*>(::memrchr(block.data(), 0, size));
        if (!last) return Damaged();
        const uint8_t* const end = last + 1;
        const uint8_t* at = block.data();
        while (at < end) {
            const auto* found = static_cast<const uint8_t*>(
                ::memmem(at, static_cast<size_t>(end - at), folded.data(), folded.size()));
            const uint8_t* const upTo = found ? found : end;
            id += static_cast<uint32_t>(std::count(at, upTo, 0));
            if (!found) break;
            if (id > fEntries) return Damaged();
            if (!visit(static_cast<int32_t>(id))) return {};
            at = static_cast<const uint8_t*>(::memchr(found, 0, static_cast<size_t>(end - found))) +
                 1;
            ++id;
        }
        done += end - block.data();
    }
    return id == fEntries + 1 ? Status() : Damaged();
}

std::optional<int32_t> NameIndex::ParentOf(int32_t id) const {
    // The last directory whose children begin at the entry or before it.
    uint32_t low = 0, high = fDirectories;
    std::optional<uint32_t> parent;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        std::array<uint8_t, kDirectoryRow> row;
        if (!ReadAt(fFile.Get(), row.data(), row.size(),
                    static_cast<int64_t>(kHeader) + fNames +
                        int64_t{middle} * static_cast<int64_t>(kDirectoryRow))) {
            return std::nullopt;
        }
        if (Get32(row.data()) <= static_cast<uint32_t>(id)) {
            parent = Get32(row.data() + 4);
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (!parent || *parent >= static_cast<uint32_t>(id)) return std::nullopt;
    return static_cast<int32_t>(*parent);
}

}  // namespace server
